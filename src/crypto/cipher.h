// Block ciphers in CBC mode with PKCS#7 padding (RFC 5652 6.3), AES in GCM mode (SP 800-38D), and RC4 for old files.
#pragma once

#include <memory>

#include "misc/secret.h"

struct evp_cipher_ctx_st;

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
    Aes128Gcm,
    Aes192Gcm,
    Aes256Gcm,
};

[[nodiscard]] size_t cipherKeyLength(CipherAlgo algo);
/// Length of the initial vector, which is that of a block; 0 for RC4.
[[nodiscard]] size_t cipherVectorLength(CipherAlgo algo);
/// Whether the mode shows that nobody changed the ciphertext. Such a cipher goes by CipherStream only: it has a tag.
[[nodiscard]] bool isAuthenticated(CipherAlgo algo);

/// The ciphertext, padded to whole blocks (an empty plaintext gives one block). A key or vector of the wrong length is
/// CryptoError (badParameter); RC2 and RC4 without libcrypto's legacy provider are CryptoError (unsupported).
[[nodiscard]] Bytes encipher(CipherAlgo algo, ByteView key, ByteView iv, ByteView plain);

/// The plaintext. A ciphertext of no or of broken blocks, or a padding that does not come out right, is CryptoError
/// (badData).
[[nodiscard]] SecretBytes decipher(CipherAlgo algo, ByteView key, ByteView iv, ByteView ciphertext);

/// A cipher over content that nobody holds as a whole. Moves, does not copy; its state is wiped when it ends.
class CipherStream {
  public:
    enum class Direction { Decrypt = 0, Encrypt = 1 };
    static constexpr size_t kTagLength = 16;
    static constexpr size_t kLeastTagLength = 12;
    static constexpr size_t kLongestNonce = 64;  ///< of GCM

    /// CryptoError as for encipher; GCM takes vectors of 1 to 64 octets.
    CipherStream(CipherAlgo algo, Direction direction, ByteView key, ByteView iv);
    CipherStream(CipherStream&&) noexcept;
    CipherStream& operator=(CipherStream&&) noexcept;
    ~CipherStream();

    /// What comes out for the next octets takes the place of what `out` held.
    void update(ByteView in, SecretBytes& out);
    /// The rest. A ciphertext of broken blocks, a wrong padding and a wrong tag are CryptoError (badData).
    void finish(SecretBytes& out);
    /// GCM: the tag of what was enciphered, after finish.
    [[nodiscard]] Bytes tag();
    /// GCM: the tag that the ciphertext is to have, 12 to 16 octets, before finish; else CryptoError (badData).
    void expectTag(ByteView tag);

  private:
    struct Free {
        void operator()(evp_cipher_ctx_st* ctx) const noexcept;
    };
    std::unique_ptr<evp_cipher_ctx_st, Free> ctx_;
};

}  // namespace crv
