#include "crypto/cipher.h"

#include <limits>

#include "crypto/libcrypto.h"

namespace crv {

namespace {

struct CipherRow {
    CipherAlgo algo;
    uint8_t key;
    uint8_t vector;
    const char* name;
};

constexpr CipherRow kCiphers[] = {
    {CipherAlgo::TripleDesCbc, 24, 8, "DES-EDE3-CBC"},
    {CipherAlgo::Rc2Cbc40, 5, 8, "RC2-40-CBC"},
    {CipherAlgo::Rc2Cbc64, 8, 8, "RC2-64-CBC"},
    {CipherAlgo::Rc2Cbc128, 16, 8, "RC2-CBC"},
    {CipherAlgo::Aes128Cbc, 16, 16, "AES-128-CBC"},
    {CipherAlgo::Aes192Cbc, 24, 16, "AES-192-CBC"},
    {CipherAlgo::Aes256Cbc, 32, 16, "AES-256-CBC"},
    {CipherAlgo::TwoKeyTripleDesCbc, 16, 8, "DES-EDE-CBC"},
    {CipherAlgo::Rc4Of40, 5, 0, "RC4-40"},
    {CipherAlgo::Rc4Of128, 16, 0, "RC4"},
    {CipherAlgo::Camellia128Cbc, 16, 16, "CAMELLIA-128-CBC"},
    {CipherAlgo::Camellia192Cbc, 24, 16, "CAMELLIA-192-CBC"},
    {CipherAlgo::Camellia256Cbc, 32, 16, "CAMELLIA-256-CBC"},
};

const CipherRow& cipherRow(CipherAlgo algo) {
    for (const CipherRow& row : kCiphers) {
        if (row.algo == algo) return row;
    }
    throw CryptoError(CryptoFailure::BadParameter, "no such cipher");
}

enum class Direction { Decrypt = 0, Encrypt = 1 };

ossl::CipherCtx startCipher(CipherAlgo algo, Direction direction, ByteView key, ByteView iv) {
    const CipherRow& row = cipherRow(algo);
    if (key.size() != row.key || iv.size() != row.vector) {
        throw CryptoError(CryptoFailure::BadParameter, "cipher key or initial vector of the wrong length");
    }
    const ossl::Cipher cipher(EVP_CIPHER_fetch(ossl::context(), row.name, nullptr));
    if (!cipher) ossl::fail(CryptoFailure::Unsupported, std::string("libcrypto lacks ") + row.name);
    ossl::CipherCtx ctx(ossl::made(EVP_CIPHER_CTX_new(), CryptoFailure::Internal, "no memory for a cipher"));
    ossl::must(EVP_CipherInit_ex2(ctx.get(), cipher.get(), key.data(), iv.data(), static_cast<int>(direction), nullptr),
               CryptoFailure::Internal, "cipher does not start");
    return ctx;
}

// Fills `out`, which must be one block longer than the input, and cuts it to what came out.
template <class Out>
void runCipher(EVP_CIPHER_CTX* ctx, ByteView in, Out& out, const char* failure) {
    if (in.size() > static_cast<size_t>(std::numeric_limits<int>::max()) - 64) {
        throw CryptoError(CryptoFailure::BadParameter, "too much data for one cipher call");
    }
    int body = 0;
    int tail = 0;
    ossl::must(EVP_CipherUpdate(ctx, out.data(), &body, in.data(), static_cast<int>(in.size())), CryptoFailure::BadData,
               failure);
    ossl::must(EVP_CipherFinal_ex(ctx, out.data() + body, &tail), CryptoFailure::BadData, failure);
    out.resize(static_cast<size_t>(body) + static_cast<size_t>(tail));
}

}  // namespace

size_t cipherKeyLength(CipherAlgo algo) {
    return cipherRow(algo).key;
}

size_t cipherVectorLength(CipherAlgo algo) {
    return cipherRow(algo).vector;
}

Bytes encipher(CipherAlgo algo, ByteView key, ByteView iv, ByteView plain) {
    const ossl::CipherCtx ctx = startCipher(algo, Direction::Encrypt, key, iv);
    Bytes out(plain.size() + iv.size());
    runCipher(ctx.get(), plain, out, "encryption failed");
    return out;
}

SecretBytes decipher(CipherAlgo algo, ByteView key, ByteView iv, ByteView ciphertext) {
    const ossl::CipherCtx ctx = startCipher(algo, Direction::Decrypt, key, iv);
    SecretBytes out(ciphertext.size() + iv.size());
    runCipher(ctx.get(), ciphertext, out, "the ciphertext does not decrypt");
    return out;
}

}  // namespace crv
