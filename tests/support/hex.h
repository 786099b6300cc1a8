// Octets as data files of tests have them.
#pragma once

#include "misc/ascii.h"
#include "misc/hex.h"

namespace crv::test {

inline Bytes unhex(std::string_view text) {
    return fromHex(text).value();
}

inline std::string hex(ByteView octets) {
    std::string text = toHex(octets);
    for (char& c : text) c = asciiLower(c);
    return text;
}

}  // namespace crv::test
