#include "crypto/kc_hash.h"

#include <algorithm>

#include "crypto/libcrypto.h"
#include "crypto/ripemd128.h"

namespace crv {

namespace {

struct HashRow {
    KcHashAlgo algo;
    uint8_t length;
    uint8_t block;
    const char* name;  // libcrypto's; null: not there
};

constexpr HashRow kHashes[] = {
    {KcHashAlgo::Sha1, 20, 64, "SHA1"},           {KcHashAlgo::Sha224, 28, 64, "SHA224"},
    {KcHashAlgo::Sha256, 32, 64, "SHA256"},       {KcHashAlgo::Sha384, 48, 128, "SHA384"},
    {KcHashAlgo::Sha512, 64, 128, "SHA512"},      {KcHashAlgo::Ripemd128, 16, 64, nullptr},
    {KcHashAlgo::Ripemd160, 20, 64, "RIPEMD160"}, {KcHashAlgo::Md5, 16, 64, "MD5"},
    {KcHashAlgo::Sha3224, 28, 144, "SHA3-224"},   {KcHashAlgo::Sha3256, 32, 136, "SHA3-256"},
    {KcHashAlgo::Sha3384, 48, 104, "SHA3-384"},   {KcHashAlgo::Sha3512, 64, 72, "SHA3-512"},
};

const HashRow* hashRow(KcHashAlgo algo) noexcept {
    const auto* row =
        std::find_if(std::begin(kHashes), std::end(kHashes), [&](const HashRow& r) { return r.algo == algo; });
    return row == std::end(kHashes) ? nullptr : row;
}

const HashRow& mustRow(KcHashAlgo algo) {
    const HashRow* row = hashRow(algo);
    if (!row) throw CryptoError(CryptoFailure::BadParameter, "no such hash function");
    return *row;
}

// Fetched once: a fetch by name costs more than hashing a short message.
struct Methods {
    std::array<ossl::Md, std::size(kHashes)> all;

    Methods() {
        for (size_t i = 0; i < all.size(); ++i) {
            if (!kHashes[i].name) continue;
            all[i].reset(EVP_MD_fetch(ossl::context(), kHashes[i].name, nullptr));
            if (!all[i]) ossl::throwIfNoMemory();
        }
    }
};

void mustFit(const HashRow& row, std::span<uint8_t> digest) {
    if (digest.size() != row.length)
        throw CryptoError(CryptoFailure::BadParameter, "digest buffer of the wrong length");
}

}  // namespace

size_t hashLength(KcHashAlgo algo) noexcept {
    const HashRow* row = hashRow(algo);
    return row ? row->length : 0;
}

size_t hashBlockLength(KcHashAlgo algo) noexcept {
    const HashRow* row = hashRow(algo);
    return row ? row->block : 0;
}

const char* libcryptoHashName(KcHashAlgo algo) noexcept {
    const HashRow* row = hashRow(algo);
    return row ? row->name : nullptr;
}

const evp_md_st* libcryptoHash(KcHashAlgo algo) {
    static const Methods methods;
    const HashRow& row = mustRow(algo);
    const EVP_MD* method = methods.all[static_cast<size_t>(&row - kHashes)].get();
    if (!method && row.name) {
        ossl::fail(CryptoFailure::Unsupported, std::string("libcrypto lacks ") + row.name);
    }
    return method;
}

void KcHash::Free::operator()(evp_md_ctx_st* ctx) const noexcept {
    EVP_MD_CTX_free(ctx);
}

KcHash::KcHash(KcHashAlgo algo) : algo_(algo) {
    start();
}
KcHash::KcHash(KcHash&&) noexcept = default;
KcHash& KcHash::operator=(KcHash&&) noexcept = default;
KcHash::~KcHash() = default;

void KcHash::start() {
    const EVP_MD* method = libcryptoHash(algo_);
    if (!method) {
        own_ = std::make_unique<Ripemd128>();
        return;
    }
    if (!ctx_) ctx_.reset(ossl::made(EVP_MD_CTX_new(), CryptoFailure::Internal, "no memory for a hash"));
    ossl::must(EVP_DigestInit_ex2(ctx_.get(), method, nullptr), CryptoFailure::Internal, "hash does not start");
}

void KcHash::update(ByteView data) {
    if (own_) {
        own_->update(data);
    } else {
        ossl::must(EVP_DigestUpdate(ctx_.get(), data.data(), data.size()), CryptoFailure::Internal, "hash failed");
    }
}

void KcHash::final(std::span<uint8_t> digest) {
    mustFit(mustRow(algo_), digest);
    if (own_) {
        own_->final(digest.first<Ripemd128::kLength>());
    } else {
        ossl::must(EVP_DigestFinal_ex(ctx_.get(), digest.data(), nullptr), CryptoFailure::Internal, "hash failed");
    }
    start();
}

Bytes KcHash::final() {
    Bytes digest(length());
    final(digest);
    return digest;
}

void hashInto(KcHashAlgo algo, ByteView data, std::span<uint8_t> digest) {
    mustFit(mustRow(algo), digest);
    const EVP_MD* method = libcryptoHash(algo);
    if (!method) {
        Ripemd128 hash;
        hash.update(data);
        hash.final(digest.first<Ripemd128::kLength>());
        return;
    }
    ossl::must(EVP_Digest(data.data(), data.size(), digest.data(), nullptr, method, nullptr), CryptoFailure::Internal,
               "hash failed");
}

Bytes hashOf(KcHashAlgo algo, ByteView data) {
    Bytes digest(hashLength(algo));
    hashInto(algo, data, digest);
    return digest;
}

}  // namespace crv
