// Letter case of ASCII only, whatever the locale: paths of lists, names of servers, options of the command line.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace crv {

constexpr char asciiUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

inline std::string asciiUpper(std::string_view text) {
    std::string upper(text);
    for (char& c : upper) c = asciiUpper(c);
    return upper;
}

inline bool equalIgnoreCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, [](char x, char y) { return asciiUpper(x) == asciiUpper(y); });
}

}  // namespace crv
