// Hexadecimal digits.
#pragma once

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

}  // namespace crv
