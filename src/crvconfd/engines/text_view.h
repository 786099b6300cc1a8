// Scrolling views of text: certificates, CRLs, profile details.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace crv {

/// The text cut into lines of at most width (over 1) columns, at spaces where there are any.
[[nodiscard]] std::vector<std::string> wrapText(std::string_view text, size_t width);

/// Appends "label value" to the lines: the values of one view stand in one column, long ones go on below.
void addField(std::vector<std::string>& lines, std::string_view label, std::string_view value);

/// Shows the lines from row 2 on, the header on row 0 and the footer (with mnemonics) on row 22, until one of the keys
/// (lower-case letters; upper case works too) or Escape; arrows, Page Up and Down, Home and End scroll. top is the
/// first line shown. Returns the key, or 27.
[[nodiscard]] int showText(const std::string& header, const std::vector<std::string>& lines, const char* footer,
                           std::string_view keys, size_t& top);

}  // namespace crv
