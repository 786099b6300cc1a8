// Letter case of ASCII only, whatever the locale: paths of lists, names of servers, options, keys of screens.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace crv {

constexpr bool isAsciiUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

constexpr char asciiUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

inline std::string asciiUpper(std::string_view text) {
    std::string upper(text);
    for (char& c : upper) c = asciiUpper(c);
    return upper;
}

/// The small letter of a capital one; anything else, numbers beyond characters included, stays as it is.
template <class Character>
constexpr Character asciiLower(Character c) {
    return c >= 'A' && c <= 'Z' ? static_cast<Character>(c + ('a' - 'A')) : c;
}

inline bool equalIgnoreCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, [](char x, char y) { return asciiUpper(x) == asciiUpper(y); });
}

inline bool containsIgnoreCase(std::string_view text, std::string_view part) {
    return asciiUpper(text).find(asciiUpper(part)) != std::string::npos;
}

}  // namespace crv
