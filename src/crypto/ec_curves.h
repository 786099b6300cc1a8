// The elliptic curves on offer: libcrypto's named curves over fields of 160 bits and more.
#pragma once

#include <span>

#include "misc/bytes.h"

namespace crv {

/// A curve: libcrypto's number for it (stable over its versions). `none` is no curve.
enum class StdECId : int { None = 0, P256 = 415 };

/// The curve preselected where one is asked for.
inline constexpr StdECId kDefaultCurve = StdECId::P256;

struct EcCurve {
    StdECId id;
    const char* name;  ///< for instance "prime256v1", "brainpoolP384r1"
    unsigned bits;     ///< of the field
    bool hasOid;       ///< false: its parameters can only be written explicitly
};

/// All curves by size, then name. Made at the first call.
[[nodiscard]] std::span<const EcCurve> ecCurves();
/// The curve, or null.
[[nodiscard]] const EcCurve* findCurve(StdECId id);

/// The DER ECParameters (RFC 3279 2.3.5): the identifier, or the whole domain when asked for or when the curve has no
/// identifier. CryptoError (unsupported) for a curve that is not in the table.
[[nodiscard]] Bytes encodeEcDomain(StdECId id, bool explicitDomain);

struct EcDomain {
    StdECId id;
    bool explicitDomain;
};

/// The reverse. Only curves of the table are taken, however they are written; others, parameters that are not DER and
/// trailing octets are CryptoError (unsupported or badKey).
[[nodiscard]] EcDomain decodeEcDomain(ByteView parameters);

}  // namespace crv
