// Scrolling views of text: certificates, CRLs, profile details.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "crvconfd/engines/screen.h"

namespace crv {

/// The text cut into lines of at most width (over 1) columns, at spaces where there are any.
[[nodiscard]] std::vector<std::string> wrapText(std::string_view text, size_t width);

/// Appends "label value" to the lines: the values of one view stand in one column, long ones go on below.
void addField(std::vector<std::string>& lines, std::string_view label, std::string_view value);

/// The same with the values at a column of so many columns in all; a label that is too long for it is wrapped, too.
void addColumns(std::vector<std::string>& lines, std::string_view label, size_t width, std::string_view value,
                size_t columns);

/// Draws the lines that have room between header and footer, from top on (moved where that is too far), and on the
/// message row where they are among all when there are more.
void drawLines(const std::vector<std::string>& lines, size_t& top);
/// Moves the top by a key that scrolls so many lines; false, without effect, for any other key and where all are seen.
[[nodiscard]] bool scrollLines(int key, size_t count, size_t& top);

/// Lines from row 2 on below a header. Actions may change them.
struct TextView {
    std::string header;
    std::vector<std::string> lines;
    ScreenActions actions = {};
    const char* gap = "   ";
    size_t top = 0;  ///< first line shown
};

/// Shows the text until the user goes back; arrows, Page Up and Down, Home and End scroll.
void runTextView(TextView& view);
inline void runTextView(TextView&& view) {
    runTextView(view);
}

}  // namespace crv
