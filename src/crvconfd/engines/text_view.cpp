#include "crvconfd/engines/text_view.h"

#include <algorithm>
#include <cctype>

#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr int kFirstRow = 2;
constexpr int kFooterRow = 22;
constexpr size_t kRows = kFooterRow - kFirstRow - 1;
constexpr size_t kLabelWidth = 30;
constexpr size_t kTextWidth = kScreenColumns - 2;
/// Room that a value needs beside its label.
constexpr size_t kLeastValue = 32;

void draw(const std::string& header, const std::vector<std::string>& lines, const char* footer, size_t top) {
    clrScr();
    displHeader(0, "%s", header.c_str());
    const size_t end = std::min(lines.size(), top + kRows);
    for (size_t i = top; i < end; ++i) displText(kFirstRow + static_cast<int>(i - top), 1, "%s", lines[i].c_str());
    if (lines.size() > kRows) displText(kFooterRow, 0, "%zu-%zu/%zu", top + 1, end, lines.size());
    displCentColText(kFooterRow, "%s", footer);
}

/// First line shown after a scrolling key.
size_t scrolled(int key, size_t top, size_t last) {
    switch (key) {
        case kKeyUp:
            return top - std::min<size_t>(top, 1);
        case kKeyDown:
            return std::min(top + 1, last);
        case kKeyPageUp:
            return top - std::min(top, kRows);
        case kKeyPageDown:
            return std::min(top + kRows, last);
        case kKeyHome:
            return 0;
        case kKeyEnd:
            return last;
        default:
            return top;
    }
}

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
    if (left + kLeastValue > kTextWidth) {
        // Files choose some labels (numbers of extensions and certificates): a long one stands above its value.
        for (std::string& line : wrapText(label, kTextWidth)) lines.push_back(std::move(line));
        return addField(lines, {}, value);
    }
    const std::string head = fitText(label, left);
    const auto wrapped = wrapText(value, kTextWidth - left);
    lines.push_back(head + wrapped.front());
    for (size_t i = 1; i < wrapped.size(); ++i) lines.push_back(std::string(kLabelWidth, ' ') + wrapped[i]);
}

int showText(const std::string& header, const std::vector<std::string>& lines, const char* footer,
             std::string_view keys, size_t& top) {
    const size_t last = lines.size() > kRows ? lines.size() - kRows : 0;
    for (;;) {
        top = std::min(top, last);
        draw(header, lines, footer, top);
        const int key = getScrollKey();
        const int letter = key > 0 && key < 128 ? std::tolower(key) : 0;
        if (key == kKeyEscape) return key;
        if (letter != 0 && keys.find(static_cast<char>(letter)) != std::string_view::npos) return letter;
        top = scrolled(key, top, last);
    }
}

}  // namespace crv
