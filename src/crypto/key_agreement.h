// Keys made out of an agreed secret, and keys wrapped under others.
#pragma once

#include "crypto/kc_hash.h"
#include "misc/secret.h"

namespace crv {

/// The key derivation of X9.63 (SEC 1 3.6.1). CryptoError (badParameter) for what is no hash.
[[nodiscard]] SecretBytes deriveX963(KcHashAlgo hash, ByteView secret, ByteView sharedInfo, size_t length);

/// AES key wrap (RFC 3394): eight octets longer than the key, which has 16 octets and more in blocks of eight.
/// CryptoError (badParameter) for other lengths, for the key under which it is wrapped other than 16, 24 and 32.
[[nodiscard]] Bytes wrapKey(ByteView under, ByteView key);
/// How a key is wrapped under another.
enum class KeyWrap {
    Aes,       ///< RFC 3394
    TripleDes  ///< RFC 3217 3, which is read only; the key under which it is wrapped has 24 octets
};
/// CryptoError (badData) when it does not unwrap.
[[nodiscard]] SecretBytes unwrapKey(KeyWrap wrap, ByteView under, ByteView wrapped);

}  // namespace crv
