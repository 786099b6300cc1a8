#include "crvconfd/engines/text_view.h"

#include <algorithm>

#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr size_t kLabelWidth = 30;
/// Room that a value needs beside its label.
constexpr size_t kLeastValue = 32;

size_t textRows() {
    return static_cast<size_t>(kFooterRow - kFirstRow - 1);
}

size_t textWidth() {
    return static_cast<size_t>(screenColumns()) - 2;
}

/// The screen may have become narrower since the lines were made.
void fitLines(std::vector<std::string>& lines) {
    const auto fits = [](const std::string& line) {
        return line.size() <= textWidth() || columnsOf(line) <= textWidth();
    };
    if (std::ranges::all_of(lines, fits)) return;
    std::vector<std::string> all;
    for (std::string& line : lines) {
        if (fits(line)) {
            all.push_back(std::move(line));
            continue;
        }
        const auto pieces = wrapText(line, textWidth() - kLabelWidth);
        for (size_t i = 0; i < pieces.size(); ++i)
            all.push_back(i == 0 ? pieces[i] : std::string(kLabelWidth, ' ') + pieces[i]);
    }
    lines = std::move(all);
}

size_t lastTop(size_t lines) {
    return lines > textRows() ? lines - textRows() : 0;
}

void draw(const TextView& view) {
    displHeader(0, "%s", view.header.c_str());
    const size_t count = view.lines.size(), end = std::min(count, view.top + textRows());
    for (size_t i = view.top; i < end; ++i) displLine(kFirstRow + static_cast<int>(i - view.top), 1, view.lines[i]);
    if (count > textRows()) displText(kFooterRow, 0, "%zu-%zu/%zu", view.top + 1, end, count);
}

struct Scroll {
    int key;
    size_t (*top)(size_t top, size_t last);
};

constexpr Scroll kScrolls[] = {
    {kKeyUp, [](size_t top, size_t) { return top - std::min<size_t>(top, 1); }},
    {kKeyDown, [](size_t top, size_t last) { return std::min(top + 1, last); }},
    {kKeyPageUp, [](size_t top, size_t) { return top - std::min(top, textRows()); }},
    {kKeyPageDown, [](size_t top, size_t last) { return std::min(top + textRows(), last); }},
    {kKeyHome, [](size_t, size_t) { return size_t{0}; }},
    {kKeyEnd, [](size_t, size_t last) { return last; }},
};

}  // namespace

std::vector<std::string> wrapText(std::string_view text, size_t width) {
    std::vector<std::string> lines;
    while (lines.empty() || !text.empty()) {
        size_t take = bytesWithin(text, width);
        if (take < text.size()) {
            const size_t space = text.rfind(' ', take);
            if (space != std::string_view::npos && space > 0) take = space;
        }
        lines.emplace_back(text.substr(0, take));
        text.remove_prefix(take);
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    }
    return lines;
}

void addField(std::vector<std::string>& lines, std::string_view label, std::string_view value) {
    const size_t left = std::max(kLabelWidth, columnsOf(label) + 1);
    if (left + kLeastValue > textWidth()) {
        // Files choose some labels (numbers of extensions and certificates): a long one stands above its value.
        for (std::string& line : wrapText(label, textWidth())) lines.push_back(std::move(line));
        return addField(lines, {}, value);
    }
    const std::string head = fitText(label, left);
    const auto wrapped = wrapText(value, textWidth() - left);
    lines.push_back(head + wrapped.front());
    for (size_t i = 1; i < wrapped.size(); ++i) lines.push_back(std::string(kLabelWidth, ' ') + wrapped[i]);
}

void runTextView(TextView& view) {
    ScreenActions actions = view.actions;
    for (const Scroll& scroll : kScrolls) {
        actions.push_back({scroll.key, nullptr, false,
                           [&view, scroll](size_t) { view.top = scroll.top(view.top, lastTop(view.lines.size())); }});
    }
    const auto drawText = [&view] {
        fitLines(view.lines);
        view.top = std::min(view.top, lastTop(view.lines.size()));
        draw(view);
    };
    runScreen({.draw = drawText, .actions = std::move(actions), .gap = view.gap});
}

}  // namespace crv
