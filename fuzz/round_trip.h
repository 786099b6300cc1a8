// What every structure must do with any octets, for the fuzz targets.
#pragma once

#include <algorithm>
#include <cstdlib>

#include "asn/asn_object.h"

namespace crv::fuzz {

inline void check(bool condition) {
    if (!condition) std::abort();
}

/// Reads the octets in both modes, which must agree, and writes what was read: keeping mode gives the octets back, the
/// other one something that reads and writes as itself. Answers whether the octets begin with a T; `kept` refers to
/// them.
template <class T>
bool roundTrip(ByteView octets, T& kept) {
    const long length = kept.readFromBuff(octets, ASN_FLAG_CONST);
    T copied;
    check((copied.readFromBuff(octets) > 0) == (length > 0));
    if (length <= 0) return false;
    check(std::ranges::equal(kept.encoded(), octets.first(static_cast<size_t>(length))));
    T again;
    const Bytes der = copied.encoded();
    check(static_cast<long>(der.size()) == copied.getLength() && again.readExactly(der) && again.encoded() == der);
    return true;
}

}  // namespace crv::fuzz
