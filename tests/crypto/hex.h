// Hexadecimal text in tables of test vectors.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "misc/bytes.h"

namespace crv {

inline Bytes unhex(std::string_view text) {
    Bytes octets;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        octets.push_back(static_cast<uint8_t>(std::stoul(std::string(text.substr(i, 2)), nullptr, 16)));
    }
    return octets;
}

inline std::string hex(ByteView octets) {
    std::string text;
    char pair[3];
    for (const uint8_t octet : octets) {
        std::snprintf(pair, sizeof pair, "%02x", octet);
        text += pair;
    }
    return text;
}

}  // namespace crv
