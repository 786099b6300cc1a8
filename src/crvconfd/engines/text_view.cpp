#include "crvconfd/engines/text_view.h"

#include <algorithm>

#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

/// Room that a value needs beside its label.
constexpr size_t kLeastValue = 32;

size_t textRows() {
    return static_cast<size_t>(kFooterRow - kFirstRow - 1);
}

size_t textWidth() {
    return static_cast<size_t>(shownColumns()) - 2;
}

size_t labelWidth() {
    constexpr size_t kWidest = 30, kNarrowest = 6;
    return std::clamp(textWidth() - kLeastValue, kNarrowest, kWidest);
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
        const auto pieces = wrapText(line, textWidth() - labelWidth());
        for (size_t i = 0; i < pieces.size(); ++i)
            all.push_back(i == 0 ? pieces[i] : std::string(labelWidth(), ' ') + pieces[i]);
    }
    lines = std::move(all);
}

size_t lastTop(size_t lines) {
    return lines > textRows() ? lines - textRows() : 0;
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

void addColumns(std::vector<std::string>& lines, std::string_view label, size_t width, std::string_view value,
                size_t columns) {
    const auto labels = wrapText(label, width - 1), values = wrapText(value, columns - width);
    for (size_t i = 0; i < std::max(labels.size(), values.size()); ++i) {
        lines.push_back(fitText(i < labels.size() ? labels[i] : std::string(), width) +
                        (i < values.size() ? values[i] : std::string()));
    }
}

void addField(std::vector<std::string>& lines, std::string_view label, std::string_view value) {
    const size_t left = std::max(labelWidth(), columnsOf(label) + 1);
    if (left > labelWidth() && left + kLeastValue > textWidth()) {
        // Files choose some labels (numbers of extensions and certificates): a long one stands above its value.
        for (std::string& line : wrapText(label, textWidth())) lines.push_back(std::move(line));
        return addField(lines, {}, value);
    }
    const std::string head = fitText(label, left);
    const auto wrapped = wrapText(value, textWidth() - left);
    lines.push_back(head + wrapped.front());
    for (size_t i = 1; i < wrapped.size(); ++i) lines.push_back(std::string(labelWidth(), ' ') + wrapped[i]);
}

void drawLines(const std::vector<std::string>& lines, size_t& top) {
    top = std::min(top, lastTop(lines.size()));
    const size_t count = lines.size(), end = std::min(count, top + textRows());
    for (size_t i = top; i < end; ++i) displLine(kFirstRow + static_cast<int>(i - top), 1, lines[i]);
    if (count > textRows()) displText(kMessageRow, 0, "%zu-%zu/%zu", top + 1, end, count);
}

bool scrollLines(int key, size_t count, size_t& top) {
    const auto* found = std::ranges::find(kScrolls, key, &Scroll::key);
    if (found == std::end(kScrolls) || count <= textRows()) return false;
    top = found->top(top, lastTop(count));
    return true;
}

void runTextView(TextView& view) {
    ScreenActions actions = view.actions;
    for (const Scroll& scroll : kScrolls) {
        actions.push_back({scroll.key, nullptr, false, [&view, key = scroll.key](size_t) {
                               static_cast<void>(scrollLines(key, view.lines.size(), view.top));
                           }});
    }
    const auto drawText = [&view] {
        fitLines(view.lines);
        displHeader(0, "%s", view.header.c_str());
        drawLines(view.lines, view.top);
    };
    runScreen({.draw = drawText, .actions = std::move(actions), .gap = view.gap, .leastRows = kFewestRows});
}

}  // namespace crv
