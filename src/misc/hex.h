// Hexadecimal digits.
#pragma once

#include <optional>
#include <string>

#include "misc/bytes.h"

namespace crv {

/// Upper-case digits, two an octet, with `separator` between the octets.
inline std::string toHex(ByteView octets, std::string_view separator = {}) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(octets.size() * (2 + separator.size()));
    for (const uint8_t octet : octets) {
        if (!text.empty()) text += separator;
        text += kDigits[octet >> 4];
        text += kDigits[octet & 15];
    }
    return text;
}

/// The two digits of an octet, as escapes have them.
inline std::string toHex(char octet) {
    return toHex(asBytes({&octet, 1}));
}

/// The value of a digit in either case; -1 for anything else.
constexpr int hexValue(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                  : -1;
}

/// The octet that the first two characters spell; -1 when they are no digits or missing.
constexpr int hexOctet(std::string_view text) {
    if (text.size() < 2 || hexValue(text[0]) < 0 || hexValue(text[1]) < 0) return -1;
    return hexValue(text[0]) << 4 | hexValue(text[1]);
}

/// The octets of a text that is nothing but pairs of digits.
inline std::optional<Bytes> fromHex(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    Bytes octets;
    octets.reserve(text.size() / 2);
    for (; !text.empty(); text.remove_prefix(2)) {
        const int octet = hexOctet(text);
        if (octet < 0) return std::nullopt;
        octets.push_back(static_cast<uint8_t>(octet));
    }
    return octets;
}

}  // namespace crv
