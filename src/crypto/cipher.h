// Block ciphers in CBC mode with PKCS#7 padding (RFC 5652 6.3).
#pragma once

#include "misc/secret.h"

namespace crv {

enum class CipherAlgo : uint8_t { TripleDesCbc, Rc2Cbc40, Rc2Cbc64, Rc2Cbc128, Aes128Cbc, Aes192Cbc, Aes256Cbc };

[[nodiscard]] size_t cipherKeyLength(CipherAlgo algo);
/// Length of a block and of the initial vector.
[[nodiscard]] size_t cipherBlockLength(CipherAlgo algo);

/// The ciphertext, padded to whole blocks (an empty plaintext gives one block). A key or vector of the wrong length is
/// CryptoError (badParameter); RC2 without libcrypto's legacy provider is CryptoError (unsupported).
[[nodiscard]] Bytes encryptCbc(CipherAlgo algo, ByteView key, ByteView iv, ByteView plain);

/// The plaintext. A ciphertext of no or of broken blocks, or a padding that does not come out right, is CryptoError
/// (badData).
[[nodiscard]] SecretBytes decryptCbc(CipherAlgo algo, ByteView key, ByteView iv, ByteView ciphertext);

}  // namespace crv
