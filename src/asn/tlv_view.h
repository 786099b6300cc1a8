// Elements of DER octets as views, for walks over a million of them where objects would be too slow.
#pragma once

#include <optional>

#include "misc/bytes.h"

namespace crv {

/// One element: its identifier octet, its contents, and both with the length in between.
struct Tlv {
    uint8_t tag = 0;
    ByteView body{};
    ByteView whole{};
};

/// Takes the element at the front off the octets; nothing, and nothing taken, when they begin with none. Tag numbers
/// above 30, indefinite lengths and lengths beyond 32 bits are none here.
[[nodiscard]] inline std::optional<Tlv> takeTlv(ByteView& octets) {
    if (octets.size() < 2 || (octets[0] & 0x1F) == 0x1F) return std::nullopt;
    size_t length = octets[1], header = 2;
    if (length >= 0x80) {
        const size_t count = length & 0x7F;
        if (count == 0 || count > 4 || octets.size() < 2 + count) return std::nullopt;
        for (length = 0; header < 2 + count; ++header) length = length << 8 | octets[header];
    }
    if (length > octets.size() - header) return std::nullopt;
    const Tlv taken{octets[0], octets.subspan(header, length), octets.first(header + length)};
    octets = octets.subspan(header + length);
    return taken;
}

/// The same when it has that tag.
[[nodiscard]] inline std::optional<Tlv> takeTlv(ByteView& octets, uint8_t tag) {
    if (octets.empty() || octets[0] != tag) return std::nullopt;
    return takeTlv(octets);
}

}  // namespace crv
