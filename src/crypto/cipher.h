// Block ciphers in CBC mode with PKCS#7 padding (RFC 5652 6.3), and RC4 for old files.
#pragma once

#include "misc/secret.h"

namespace crv {

enum class CipherAlgo : uint8_t {
    TripleDesCbc,
    Rc2Cbc40,
    Rc2Cbc64,
    Rc2Cbc128,
    Aes128Cbc,
    Aes192Cbc,
    Aes256Cbc,
    TwoKeyTripleDesCbc,
    Rc4Of40,
    Rc4Of128,
    Camellia128Cbc,
    Camellia192Cbc,
    Camellia256Cbc,
};

[[nodiscard]] size_t cipherKeyLength(CipherAlgo algo);
/// Length of the initial vector, which is that of a block; 0 for RC4.
[[nodiscard]] size_t cipherVectorLength(CipherAlgo algo);

/// The ciphertext, padded to whole blocks (an empty plaintext gives one block). A key or vector of the wrong length is
/// CryptoError (badParameter); RC2 and RC4 without libcrypto's legacy provider are CryptoError (unsupported).
[[nodiscard]] Bytes encipher(CipherAlgo algo, ByteView key, ByteView iv, ByteView plain);

/// The plaintext. A ciphertext of no or of broken blocks, or a padding that does not come out right, is CryptoError
/// (badData).
[[nodiscard]] SecretBytes decipher(CipherAlgo algo, ByteView key, ByteView iv, ByteView ciphertext);

}  // namespace crv
