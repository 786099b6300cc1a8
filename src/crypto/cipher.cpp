#include "crypto/cipher.h"

#include <algorithm>
#include <limits>

#include "crypto/libcrypto.h"
#include "misc/aside.h"

namespace crv {

namespace {

struct CipherRow {
    CipherAlgo algo;
    uint8_t key;
    uint8_t vector;
    const char* name;
    bool legacy = false;  // of libcrypto's provider of that name
    bool slow = false;    // 30 ns an octet, so that a second thread is worth its start
};

constexpr CipherRow kCiphers[] = {
    {CipherAlgo::TripleDesCbc, 24, 8, "DES-EDE3-CBC", false, true},
    {CipherAlgo::Rc2Cbc40, 5, 8, "RC2-40-CBC", true},
    {CipherAlgo::Rc2Cbc64, 8, 8, "RC2-64-CBC", true},
    {CipherAlgo::Rc2Cbc128, 16, 8, "RC2-CBC", true},
    {CipherAlgo::Aes128Cbc, 16, 16, "AES-128-CBC"},
    {CipherAlgo::Aes192Cbc, 24, 16, "AES-192-CBC"},
    {CipherAlgo::Aes256Cbc, 32, 16, "AES-256-CBC"},
    {CipherAlgo::TwoKeyTripleDesCbc, 16, 8, "DES-EDE-CBC", false, true},
    {CipherAlgo::Rc4Of40, 5, 0, "RC4-40", true},
    {CipherAlgo::Rc4Of128, 16, 0, "RC4", true},
    {CipherAlgo::Camellia128Cbc, 16, 16, "CAMELLIA-128-CBC"},
    {CipherAlgo::Camellia192Cbc, 24, 16, "CAMELLIA-192-CBC"},
    {CipherAlgo::Camellia256Cbc, 32, 16, "CAMELLIA-256-CBC"},
    {CipherAlgo::Aes128Gcm, 16, 12, "AES-128-GCM"},
    {CipherAlgo::Aes192Gcm, 24, 12, "AES-192-GCM"},
    {CipherAlgo::Aes256Gcm, 32, 12, "AES-256-GCM"},
};

const CipherRow& cipherRow(CipherAlgo algo) {
    for (const CipherRow& row : kCiphers) {
        if (row.algo == algo) return row;
    }
    throw CryptoError(CryptoFailure::BadParameter, "no such cipher");
}

using Direction = CipherStream::Direction;

ossl::CipherCtx startCipher(CipherAlgo algo, Direction direction, ByteView key, ByteView iv) {
    const CipherRow& row = cipherRow(algo);
    const bool vectorFits =
        isAuthenticated(algo) ? !iv.empty() && iv.size() <= CipherStream::kLongestNonce : iv.size() == row.vector;
    if (key.size() != row.key || !vectorFits) {
        throw CryptoError(CryptoFailure::BadParameter, "cipher key or initial vector of the wrong length");
    }
    if (row.legacy) ossl::needLegacy();
    const ossl::Cipher cipher(EVP_CIPHER_fetch(ossl::context(), row.name, nullptr));
    if (!cipher) ossl::fail(CryptoFailure::Unsupported, std::string("libcrypto lacks ") + row.name);
    ossl::CipherCtx ctx(ossl::made(EVP_CIPHER_CTX_new(), CryptoFailure::Internal, "no memory for a cipher"));
    size_t vectorLength = iv.size();
    const OSSL_PARAM lengths[] = {OSSL_PARAM_construct_size_t(OSSL_CIPHER_PARAM_IVLEN, &vectorLength),
                                  OSSL_PARAM_construct_end()};
    ossl::must(EVP_CipherInit_ex2(ctx.get(), cipher.get(), key.data(), iv.data(), static_cast<int>(direction),
                                  isAuthenticated(algo) ? lengths : nullptr),
               CryptoFailure::Internal, "cipher does not start");
    return ctx;
}

ossl::CipherCtx startWhole(CipherAlgo algo, Direction direction, ByteView key, ByteView iv) {
    if (isAuthenticated(algo)) throw CryptoError(CryptoFailure::BadParameter, "the cipher has a tag");
    return startCipher(algo, direction, key, iv);
}

/// All of `in` at once to `out`, which has room for a block more; the length of what came out.
size_t runCipher(EVP_CIPHER_CTX* ctx, ByteView in, uint8_t* out, const char* failure) {
    if (in.size() > static_cast<size_t>(std::numeric_limits<int>::max()) - 64) {
        throw CryptoError(CryptoFailure::BadParameter, "too much data for one cipher call");
    }
    int body = 0;
    int tail = 0;
    ossl::must(EVP_CipherUpdate(ctx, out, &body, in.data(), static_cast<int>(in.size())), CryptoFailure::BadData,
               failure);
    ossl::must(EVP_CipherFinal_ex(ctx, out + body, &tail), CryptoFailure::BadData, failure);
    return static_cast<size_t>(body) + static_cast<size_t>(tail);
}

}  // namespace

size_t cipherKeyLength(CipherAlgo algo) {
    return cipherRow(algo).key;
}

size_t cipherVectorLength(CipherAlgo algo) {
    return cipherRow(algo).vector;
}

bool isAuthenticated(CipherAlgo algo) {
    return algo == CipherAlgo::Aes128Gcm || algo == CipherAlgo::Aes192Gcm || algo == CipherAlgo::Aes256Gcm;
}

Bytes encipher(CipherAlgo algo, ByteView key, ByteView iv, ByteView plain) {
    const ossl::CipherCtx ctx = startWhole(algo, Direction::Encrypt, key, iv);
    Bytes out(plain.size() + iv.size());
    out.resize(runCipher(ctx.get(), plain, out.data(), "encryption failed"));
    return out;
}

SecretBytes decipher(CipherAlgo algo, ByteView key, ByteView iv, ByteView ciphertext) {
    constexpr size_t kWorthAThread = 4096;
    const size_t block = cipherVectorLength(algo);
    SecretBytes out(ciphertext.size() + block);
    const auto run = [&](EVP_CIPHER_CTX* ctx, size_t from, size_t to) {
        return runCipher(ctx, ciphertext.subspan(from, to - from), out.data() + from,
                         "the ciphertext does not decrypt");
    };
    // In CBC mode a block is deciphered with the ciphertext before it and nothing else (SP 800-38A 6.2).
    const bool halved = cipherRow(algo).slow && ciphertext.size() >= kWorthAThread;
    const size_t half = halved ? ciphertext.size() / 2 / block * block : 0;
    const ossl::CipherCtx first = startWhole(algo, Direction::Decrypt, key, iv);
    if (!halved) {
        out.resize(run(first.get(), 0, ciphertext.size()));
        return out;
    }
    EVP_CIPHER_CTX_set_padding(first.get(), 0);
    const ossl::CipherCtx second = startWhole(algo, Direction::Decrypt, key, ciphertext.subspan(half - block, block));
    std::future<void> other = aside([&] { static_cast<void>(run(first.get(), 0, half)); });
    const size_t rest = run(second.get(), half, ciphertext.size());
    other.get();
    out.resize(half + rest);
    return out;
}

void CipherStream::Free::operator()(evp_cipher_ctx_st* ctx) const noexcept {
    EVP_CIPHER_CTX_free(ctx);
}

CipherStream::CipherStream(CipherAlgo algo, Direction direction, ByteView key, ByteView iv)
    : ctx_(startCipher(algo, direction, key, iv).release()) {}
CipherStream::CipherStream(CipherStream&&) noexcept = default;
CipherStream& CipherStream::operator=(CipherStream&&) noexcept = default;
CipherStream::~CipherStream() = default;

void CipherStream::update(ByteView in, SecretBytes& out) {
    constexpr size_t kMostAtOnce = size_t{1} << 30;
    size_t filled = 0;
    out.resize(in.size() + EVP_MAX_BLOCK_LENGTH);
    while (!in.empty()) {
        const ByteView piece = in.first(std::min(in.size(), kMostAtOnce));
        int length = 0;
        ossl::must(
            EVP_CipherUpdate(ctx_.get(), out.data() + filled, &length, piece.data(), static_cast<int>(piece.size())),
            CryptoFailure::BadData, "too much data for the cipher");
        filled += static_cast<size_t>(length);
        in = in.subspan(piece.size());
    }
    out.resize(filled);
}

void CipherStream::finish(SecretBytes& out) {
    out.resize(EVP_MAX_BLOCK_LENGTH);
    int length = 0;
    ossl::must(EVP_CipherFinal_ex(ctx_.get(), out.data(), &length), CryptoFailure::BadData,
               "the ciphertext does not decrypt");
    out.resize(static_cast<size_t>(length));
}

Bytes CipherStream::tag() {
    Bytes tag(kTagLength);
    ossl::must(EVP_CIPHER_CTX_ctrl(ctx_.get(), EVP_CTRL_AEAD_GET_TAG, static_cast<int>(kTagLength), tag.data()),
               CryptoFailure::Internal, "the cipher has no tag");
    return tag;
}

void CipherStream::expectTag(ByteView tag) {
    Bytes wanted = toBytes(tag);
    if (tag.size() < kLeastTagLength || tag.size() > kTagLength)
        throw CryptoError(CryptoFailure::BadData, "a tag of that length does not protect");
    ossl::must(EVP_CIPHER_CTX_ctrl(ctx_.get(), EVP_CTRL_AEAD_SET_TAG, static_cast<int>(wanted.size()), wanted.data()),
               CryptoFailure::BadData, "the cipher takes no tag");
}

}  // namespace crv
