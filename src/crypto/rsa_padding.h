// Paddings of RSA for keys elsewhere that compute the bare function only.
#pragma once

#include "crypto/public_key.h"
#include "crypto/random_bridge.h"

namespace crv {

/// The block that RSASSA-PSS signs with a key of so many bits, as long as the modulus (RFC 8017 9.1.1). CryptoError
/// (badParameter) when the key is too short for it.
[[nodiscard]] Bytes encodePss(KcHashAlgo hash, ByteView digest, unsigned keyBits, RandomBridge& random,
                              const PssParams& pss = {});

/// What was encrypted, out of the block as long as the modulus that decryption gave (RFC 8017 7.1.2, 7.2.2). Whatever
/// is wrong with the block takes the same time and is CryptoError (badData).
[[nodiscard]] SecretBytes removePadding(RsaPadding padding, SecretBytes block, const OaepParams& oaep = {});

}  // namespace crv
