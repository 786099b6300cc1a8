#include "crypto/pbe.h"

#include "crypto/libcrypto.h"
#include "misc/utf8.h"

namespace crv {

namespace {

void mustBeSensible(uint64_t iterations, size_t length) {
    if (iterations == 0 || iterations > kMaxPbeIterations) {
        throw CryptoError(CryptoFailure::BadParameter, "iteration count out of range");
    }
    if (length == 0 || length > 1024) throw CryptoError(CryptoFailure::BadParameter, "derived length out of range");
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

const char* mustBeKnown(KcHashAlgo hash) {
    const char* name = libcryptoHashName(hash);
    if (!name) throw CryptoError(CryptoFailure::Unsupported, "no key derivation with this hash");
    return name;
}

OSSL_PARAM hashName(KcHashAlgo hash) {
    return OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char*>(mustBeKnown(hash)), 0);
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
    CipherAlgo cipher;
    SecretBytes key;
    SecretBytes iv;
};

DerivedKey derivePbe(PbeAlgo algo, ByteView password, ByteView salt, uint64_t iterations) {
    if (algo != PbeAlgo::Sha1Rc2Cbc40 && algo != PbeAlgo::Sha1TripleDesCbc) {
        throw CryptoError(CryptoFailure::BadParameter, "no such password-based encryption");
    }
    const CipherAlgo cipher = algo == PbeAlgo::Sha1Rc2Cbc40 ? CipherAlgo::Rc2Cbc40 : CipherAlgo::TripleDesCbc;
    const auto derive = [&](Pkcs12KeyId id, size_t length) {
        return pkcs12Derive(KcHashAlgo::Sha1, id, password, salt, iterations, length);
    };
    return {cipher, derive(Pkcs12KeyId::EncryptionKey, cipherKeyLength(cipher)),
            derive(Pkcs12KeyId::InitialVector, cipherBlockLength(cipher))};
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
                         size_t length) {
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
        for (uint64_t i = 1; i < iterations; ++i) {
            running.update(digest);
            running.final(digest);
        }
        out.insert(out.end(), digest.begin(), digest.end());
        if (out.size() >= length) break;
        addToBlocks(input, repeated(digest, block));
    }
    out.resize(length);
    return out;
}

Bytes pbeEncrypt(PbeAlgo algo, ByteView utf16Password, ByteView salt, uint64_t iterations, ByteView plain) {
    const DerivedKey derived = derivePbe(algo, utf16Password, salt, iterations);
    return encryptCbc(derived.cipher, derived.key, derived.iv, plain);
}

SecretBytes pbeDecrypt(PbeAlgo algo, ByteView utf16Password, ByteView salt, uint64_t iterations, ByteView ciphertext) {
    const DerivedKey derived = derivePbe(algo, utf16Password, salt, iterations);
    return decryptCbc(derived.cipher, derived.key, derived.iv, ciphertext);
}

SecretBytes pbkdf2(KcHashAlgo hash, ByteView password, ByteView salt, uint64_t iterations, size_t length) {
    mustBeSensible(iterations, length);
    int anyParameters = 1;  // else libcrypto refuses the short salts and low counts of old files (SP 800-132 limits)
    const OSSL_PARAM params[] = {hashName(hash),
                                 octets(OSSL_KDF_PARAM_PASSWORD, password),
                                 octets(OSSL_KDF_PARAM_SALT, salt),
                                 OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_ITER, &iterations),
                                 OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS5, &anyParameters),
                                 OSSL_PARAM_construct_end()};
    return runKdf("PBKDF2", params, length);
}

SecretBytes pbes2Decrypt(const Pbes2Params& params, ByteView password, ByteView ciphertext) {
    const SecretBytes key =
        pbkdf2(params.prfHash, password, params.salt, params.iterations, cipherKeyLength(params.cipher));
    return decryptCbc(params.cipher, key, params.iv, ciphertext);
}

}  // namespace crv
