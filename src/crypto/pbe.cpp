#include "crypto/pbe.h"

#include <algorithm>

#include "crypto/hash_chain.h"
#include "crypto/libcrypto.h"
#include "misc/byte_order.h"
#include "misc/utf8.h"

namespace crv {

namespace {

void mustBeSensible(uint64_t iterations, size_t length) {
    if (iterations == 0) throw CryptoError(CryptoFailure::BadParameter, "an iteration count of 0");
    if (iterations > kMaxPbeIterations) throw CryptoError(CryptoFailure::Unsupported, "too many iterations");
    if (length == 0 || length > 1024) throw CryptoError(CryptoFailure::BadParameter, "derived length out of range");
}

/// After so many rounds, milliseconds at most, somebody may stop the derivation.
constexpr uint64_t kRoundsBetweenQuestions = 1 << 14;

void ask(const PbeProgress& progress) {
    if (progress && !progress()) throw CryptoError(CryptoFailure::Cancelled, "stopped");
}

SecretBytes runKdf(const char* name, const OSSL_PARAM* params, size_t length) {
    const ossl::Kdf kdf(EVP_KDF_fetch(ossl::context(), name, nullptr));
    if (!kdf) ossl::fail(CryptoFailure::Unsupported, std::string("libcrypto lacks ") + name);
    const ossl::KdfCtx ctx(
        ossl::made(EVP_KDF_CTX_new(kdf.get()), CryptoFailure::Internal, "no memory for a derivation"));
    SecretBytes out(length);
    ossl::must(EVP_KDF_derive(ctx.get(), out.data(), out.size(), params), CryptoFailure::Internal, "derivation failed");
    return out;
}

// libcrypto's parameters are not const, although it only reads these.
OSSL_PARAM octets(const char* key, ByteView value) {
    return OSSL_PARAM_construct_octet_string(key, const_cast<uint8_t*>(value.data()), value.size());
}

void mustBeKnown(KcHashAlgo hash) {
    if (!libcryptoHashName(hash)) throw CryptoError(CryptoFailure::Unsupported, "no key derivation with this hash");
}

size_t roundedUp(size_t length, size_t block) {
    return (length + block - 1) / block * block;
}

// The octets over and over again, cut at a length.
SecretBytes repeated(ByteView octets, size_t length) {
    SecretBytes out(length);
    for (size_t i = 0; i < length; ++i) out[i] = octets[i % octets.size()];
    return out;
}

// Adds a big-endian number and 1 to every block of its length, dropping what overflows (RFC 7292 B.2 step 6C).
void addToBlocks(SecretBytes& blocks, const SecretBytes& number) {
    for (size_t start = 0; start < blocks.size(); start += number.size()) {
        unsigned carry = 1;
        for (size_t i = number.size(); i-- > 0; carry >>= 8) {
            carry += blocks[start + i] + number[i];
            blocks[start + i] = static_cast<uint8_t>(carry);
        }
    }
}

struct DerivedKey {
    SecretBytes key;
    SecretBytes iv;
};

DerivedKey derivePbe(CipherAlgo cipher, ByteView password, ByteView salt, uint64_t iterations,
                     const PbeProgress& progress) {
    const auto derive = [&](Pkcs12KeyId id, size_t length) {
        return pkcs12Derive(KcHashAlgo::Sha1, id, password, salt, iterations, length, progress);
    };
    const size_t vector = cipherVectorLength(cipher);
    return {derive(Pkcs12KeyId::EncryptionKey, cipherKeyLength(cipher)),
            vector == 0 ? SecretBytes() : derive(Pkcs12KeyId::InitialVector, vector)};
}

struct PrfRow {
    PrfAlgo prf;
    const char* name;
};
constexpr PrfRow kPrfs[] = {
    {PrfAlgo::Sha1, "SHA1"},
    {PrfAlgo::Sha224, "SHA2-224"},
    {PrfAlgo::Sha256, "SHA2-256"},
    {PrfAlgo::Sha384, "SHA2-384"},
    {PrfAlgo::Sha512, "SHA2-512"},
    {PrfAlgo::Sha3224, "SHA3-224"},
    {PrfAlgo::Sha3256, "SHA3-256"},
    {PrfAlgo::Sha3384, "SHA3-384"},
    {PrfAlgo::Sha3512, "SHA3-512"},
    {PrfAlgo::Sha512Of224, "SHA2-512/224"},
    {PrfAlgo::Sha512Of256, "SHA2-512/256"},
};

/// HMAC under one key, again and again.
class Hmac {
  public:
    Hmac(PrfAlgo prf, ByteView key) {
        const auto* row = std::ranges::find(kPrfs, prf, &PrfRow::prf);
        if (row == std::end(kPrfs)) throw CryptoError(CryptoFailure::Unsupported, "no such HMAC");
        const ossl::Mac method(ossl::made(EVP_MAC_fetch(ossl::context(), "HMAC", nullptr), CryptoFailure::Unsupported,
                                          "libcrypto lacks HMAC"));
        ctx_.reset(ossl::made(EVP_MAC_CTX_new(method.get()), CryptoFailure::Internal, "no memory for an HMAC"));
        const OSSL_PARAM params[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, const_cast<char*>(row->name), 0),
            OSSL_PARAM_construct_end()};
        // A null pointer would mean the key before, of which there is none.
        static constexpr uint8_t kNoKey[1] = {};
        ossl::mustTake(EVP_MAC_init(ctx_.get(), key.empty() ? kNoKey : key.data(), key.size(), params),
                       CryptoFailure::Unsupported, "libcrypto lacks this HMAC");
    }

    [[nodiscard]] size_t length() const { return EVP_MAC_CTX_get_mac_size(ctx_.get()); }
    void update(ByteView data) { must(EVP_MAC_update(ctx_.get(), data.data(), data.size())); }
    /// `out` has the MAC's length. The next message may follow.
    void final(SecretBytes& out) {
        size_t written = 0;
        must(EVP_MAC_final(ctx_.get(), out.data(), &written, out.size()));
        must(EVP_MAC_init(ctx_.get(), nullptr, 0, nullptr));
    }

  private:
    static void must(int answer) { ossl::must(answer, CryptoFailure::Internal, "HMAC failed"); }

    ossl::MacCtx ctx_;
};

// Done here, because libcrypto's PBKDF2 cannot be stopped; it takes as long.
SecretBytes derive(const Pbkdf2Params& how, ByteView password, size_t length, const PbeProgress& progress) {
    mustBeSensible(how.iterations, length);
    Hmac prf(how.prf, password);
    SecretBytes out, link(prf.length()), sum;
    for (uint32_t block = 1; out.size() < length; ++block) {
        uint8_t number[4];
        storeBe(number, block);
        prf.update(how.salt);
        prf.update(number);
        prf.final(link);
        sum = link;
        for (uint64_t i = 1; i < how.iterations; ++i) {
            prf.update(link);
            prf.final(link);
            for (size_t k = 0; k < sum.size(); ++k) sum[k] ^= link[k];
            if (i % kRoundsBetweenQuestions == 0) ask(progress);
        }
        out.insert(out.end(), sum.begin(), sum.end());
    }
    out.resize(length);
    return out;
}

SecretBytes derive(const ScryptParams& how, ByteView password, size_t length, const PbeProgress&) {
    constexpr uint64_t kMost = uint64_t{256} << 20;
    constexpr uint64_t kMostOfOne = kMost / 128;  // so that no product overflows
    uint64_t cost = how.cost, blockSize = how.blockSize, parallel = how.parallel, memory = 2 * kMost;
    const bool powerOf2 = cost > 1 && (cost & (cost - 1)) == 0;
    if (!powerOf2 || blockSize == 0 || parallel == 0 || length == 0 || length > 1024)
        throw CryptoError(CryptoFailure::BadParameter, "scrypt parameters out of range");
    if (cost > kMostOfOne || blockSize > kMostOfOne / cost || parallel > kMostOfOne / (cost * blockSize) * 4)
        throw CryptoError(CryptoFailure::Unsupported, "scrypt would take too much memory or time");
    const OSSL_PARAM params[] = {octets(OSSL_KDF_PARAM_PASSWORD, password),
                                 octets(OSSL_KDF_PARAM_SALT, how.salt),
                                 OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_SCRYPT_N, &cost),
                                 OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_SCRYPT_R, &blockSize),
                                 OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_SCRYPT_P, &parallel),
                                 OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_SCRYPT_MAXMEM, &memory),
                                 OSSL_PARAM_construct_end()};
    return runKdf("SCRYPT", params, length);
}

}  // namespace

SecretBytes utf16BePassword(std::string_view utf8) {
    SecretBytes out;
    out.reserve(2 * utf8.size() + 2);
    const auto put = [&out](uint32_t unit) {
        out.push_back(static_cast<uint8_t>(unit >> 8));
        out.push_back(static_cast<uint8_t>(unit));
    };
    while (!utf8.empty()) {
        const auto character = takeCharacter(utf8);
        if (!character) throw CryptoError(CryptoFailure::BadParameter, "the password is not UTF-8");
        const uint32_t code = *character;
        if (code >= 0x10000) put(0xD800 + ((code - 0x10000) >> 10));
        put(code >= 0x10000 ? 0xDC00 + (code & 0x3FF) : code);
    }
    put(0);
    return out;
}

// Done here, because libcrypto gives the memory with the repeated password back without wiping it.
SecretBytes pkcs12Derive(KcHashAlgo hash, Pkcs12KeyId id, ByteView utf16Password, ByteView salt, uint64_t iterations,
                         size_t length, const PbeProgress& progress) {
    mustBeSensible(iterations, length);
    mustBeKnown(hash);
    const size_t block = hashBlockLength(hash);
    const SecretBytes purpose(block, static_cast<uint8_t>(id));
    SecretBytes input = repeated(salt, roundedUp(salt.size(), block));
    const SecretBytes password = repeated(utf16Password, roundedUp(utf16Password.size(), block));
    input.insert(input.end(), password.begin(), password.end());
    KcHash running(hash);
    SecretBytes digest(running.length());
    SecretBytes out;
    out.reserve(length + digest.size());
    for (;;) {
        running.update(purpose);
        running.update(input);
        running.final(digest);
        for (uint64_t left = iterations - 1; left > 0;) {
            const uint64_t rounds = std::min(left, kRoundsBetweenQuestions);
            hashAgain(hash, digest, rounds);
            left -= rounds;
            if (left > 0) ask(progress);
        }
        out.insert(out.end(), digest.begin(), digest.end());
        if (out.size() >= length) break;
        addToBlocks(input, repeated(digest, block));
    }
    out.resize(length);
    return out;
}

CipherAlgo cipherOf(PbeAlgo algo) {
    if (algo == PbeAlgo::Sha1TripleDesCbc) return CipherAlgo::TripleDesCbc;
    if (algo == PbeAlgo::Sha1Rc2Cbc40) return CipherAlgo::Rc2Cbc40;
    throw CryptoError(CryptoFailure::BadParameter, "no such password-based encryption");
}

Bytes pbeEncrypt(PbeAlgo algo, ByteView utf16Password, ByteView salt, uint64_t iterations, ByteView plain) {
    const CipherAlgo cipher = cipherOf(algo);
    const DerivedKey derived = derivePbe(cipher, utf16Password, salt, iterations, {});
    return encipher(cipher, derived.key, derived.iv, plain);
}

SecretBytes pbeDecrypt(CipherAlgo cipher, ByteView utf16Password, ByteView salt, uint64_t iterations,
                       ByteView ciphertext, const PbeProgress& progress) {
    const DerivedKey derived = derivePbe(cipher, utf16Password, salt, iterations, progress);
    return decipher(cipher, derived.key, derived.iv, ciphertext);
}

SecretBytes hmac(PrfAlgo prf, ByteView key, ByteView message) {
    Hmac code(prf, key);
    SecretBytes out(code.length());
    code.update(message);
    code.final(out);
    return out;
}

SecretBytes deriveKey(const KeyDerivation& how, ByteView password, size_t length, const PbeProgress& progress) {
    return std::visit([&](const auto& params) { return derive(params, password, length, progress); }, how);
}

}  // namespace crv
