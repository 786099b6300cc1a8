// Signature schemes of keys. The numbers are kept in configuration records and profiles.
#pragma once

#include <cstdint>

namespace crv {

enum class KeyScheme : uint8_t {
    Rsa = 0,     ///< RSA with PKCS#1 v1.5 padding (RFC 8017 8.2)
    Dsa = 1,     ///< DSA (FIPS 186)
    Ecdsa = 2,   ///< ECDSA (X9.62)
    RsaPss = 3,  ///< RSA with PSS padding (RFC 8017 8.1)
    None = 255,  ///< no scheme: the rows of the signature table that name a bare hash
};

/// Whether keys of the scheme are RSA keys.
constexpr bool isRsa(KeyScheme scheme) {
    return scheme == KeyScheme::Rsa || scheme == KeyScheme::RsaPss;
}

}  // namespace crv
