// The signature algorithm map: which hash goes with which key scheme, under which name and identifier.
#pragma once

#include <span>
#include <string_view>

#include "crypto/kc_hash.h"
#include "crypto/key_scheme.h"

namespace crv {

struct SignAlgo {
    KeyScheme scheme;  ///< `none`: the row names a bare hash
    KcHashAlgo hash;   ///< `none`: the row names a bare key scheme
    const char* name;  ///< as shown to the user
    const char* oid;   ///< dotted; RSASSA-PSS rows share one identifier and differ in their parameters (RFC 4055 3.1)
};

/// All 47 rows: RSA, RSA-PSS, DSA, ECDSA, bare hashes, bare schemes.
[[nodiscard]] std::span<const SignAlgo> signAlgoMap() noexcept;

/// The first row with both values, or null.
[[nodiscard]] const SignAlgo* findSignAlgo(KeyScheme scheme, KcHashAlgo hash) noexcept;
/// The first row with the identifier, or null.
[[nodiscard]] const SignAlgo* findSignAlgo(std::string_view oid) noexcept;
/// The name of that row, or null.
[[nodiscard]] const char* signAlgoName(KeyScheme scheme, KcHashAlgo hash) noexcept;

/// The identifier of a bare hash in dotted form; empty for what is no hash.
[[nodiscard]] const char* hashOid(KcHashAlgo hash) noexcept;

/// Whether signatures of the scheme over the hash exist; never for scheme or hash `none`.
[[nodiscard]] bool isHashSupported(KeyScheme scheme, KcHashAlgo hash) noexcept;

/// The hash of the next row of the same scheme, `none` after the last one and for a pair that is not there.
[[nodiscard]] KcHashAlgo nextSignAlgo(KeyScheme scheme, KcHashAlgo hash) noexcept;
/// The hash of the scheme's first row, `none` for an unknown scheme.
[[nodiscard]] KcHashAlgo firstSignAlgo(KeyScheme scheme) noexcept;

/// Whether a key of so many bits has room for the signature's encoded digest; 0 bits means unknown and is always valid.
/// PKCS#1 v1.5: the DigestInfo and 11 octets of padding (RFC 8017 9.2), octets rounded up. PSS: twice the hash and two
/// octets (9.1.1), octets rounded down. DSA and ECDSA: always valid.
[[nodiscard]] bool isSignAlgoValidForKeyLength(KeyScheme scheme, KcHashAlgo hash, unsigned keyBits) noexcept;

}  // namespace crv
