// Letter case of ASCII only, whatever the locale: paths of lists, names of servers, options, keys of screens.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace crv {

constexpr bool isAsciiUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

constexpr char asciiUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// Writes the text in capital letters to a place that has room for it.
inline void asciiUpper(std::string_view text, char* to) {
    constexpr size_t kStep = sizeof(uint64_t);
    constexpr uint64_t kOnes = 0x0101010101010101, kHighBits = 0x80 * kOnes;
    size_t at = 0;
    for (; at + kStep <= text.size(); at += kStep) {
        // Eight at a time: sums of seven bits that reach the eighth tell what is 'a' or more, and what is beyond 'z'.
        uint64_t chars = 0;
        std::memcpy(&chars, text.data() + at, kStep);
        const uint64_t sevenBits = chars & ~kHighBits;
        const uint64_t fromA = sevenBits + (0x80 - 'a') * kOnes, beyondZ = sevenBits + (0x7F - 'z') * kOnes;
        chars -= (fromA & ~beyondZ & ~chars & kHighBits) >> 2;
        std::memcpy(to + at, &chars, kStep);
    }
    for (; at < text.size(); ++at) to[at] = asciiUpper(text[at]);
}

inline std::string asciiUpper(std::string_view text) {
    std::string upper(text.size(), '\0');
    asciiUpper(text, upper.data());
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
