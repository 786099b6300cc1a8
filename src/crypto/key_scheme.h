// Signature schemes of keys. The numbers are kept in configuration records and profiles.
#pragma once

#include <cstdint>

namespace crv {

enum class KeyScheme : uint8_t {
    rsa = 0,     ///< RSA with PKCS#1 v1.5 padding (RFC 8017 8.2)
    dsa = 1,     ///< DSA (FIPS 186)
    ecdsa = 2,   ///< ECDSA (X9.62)
    rsaPss = 3,  ///< RSA with PSS padding (RFC 8017 8.1)
    none = 255,  ///< no scheme: the rows of the signature table that name a bare hash
};

/// Whether keys of the scheme are RSA keys.
constexpr bool isRsa(KeyScheme scheme) {
    return scheme == KeyScheme::rsa || scheme == KeyScheme::rsaPss;
}

}  // namespace crv
