// A digest fits one block, and EVP takes two thirds as long again as the block itself to begin and to end a message,
// libcrypto's older calls a quarter. These rounds, thousands for each key, call its SHA by name, a block at a time;
// nothing else in this library may.
#undef OPENSSL_NO_DEPRECATED
#define OPENSSL_SUPPRESS_DEPRECATED
#include "crypto/hash_chain.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cstring>

#include "crypto/crypto_error.h"
#include "misc/byte_order.h"
#include "misc/secret.h"

namespace crv {

namespace {

using Chain = void (*)(std::span<uint8_t> digest, uint64_t times);

#ifndef OPENSSL_NO_DEPRECATED_3_0
/// The messages are padded here (FIPS 180-4 5.1), once: what differs is the digest in front. libcrypto's states begin
/// with the words of the hash.
template <class State, class Word, auto Begin, auto AddBlock>
void chain(std::span<uint8_t> digest, uint64_t times) {
    constexpr size_t kBlock = 16 * sizeof(Word);
    State begun;
    Begin(&begun);
    SecretArray<kBlock> block;
    std::ranges::copy(digest, block.begin());
    block[digest.size()] = 0x80;
    storeBe(block.data() + kBlock - sizeof(uint64_t), uint64_t{8} * digest.size());
    State state;
    for (; times > 0; --times) {
        state = begun;
        AddBlock(&state, block.data());
        const auto* words = reinterpret_cast<const uint8_t*>(&state);
        for (size_t at = 0; at < digest.size(); at += sizeof(Word)) {
            Word word;
            std::memcpy(&word, words + at, sizeof word);
            storeBe(block.data() + at, word);
        }
    }
    std::copy_n(block.begin(), digest.size(), digest.begin());
    wipeMemory(&state, sizeof state);
}

Chain chainOf(KcHashAlgo algo) {
    switch (algo) {
        case KcHashAlgo::Sha1:
            return chain<SHA_CTX, SHA_LONG, SHA1_Init, SHA1_Transform>;
        case KcHashAlgo::Sha224:
            return chain<SHA256_CTX, SHA_LONG, SHA224_Init, SHA256_Transform>;
        case KcHashAlgo::Sha256:
            return chain<SHA256_CTX, SHA_LONG, SHA256_Init, SHA256_Transform>;
        case KcHashAlgo::Sha384:
            return chain<SHA512_CTX, SHA_LONG64, SHA384_Init, SHA512_Transform>;
        case KcHashAlgo::Sha512:
            return chain<SHA512_CTX, SHA_LONG64, SHA512_Init, SHA512_Transform>;
        default:
            return nullptr;
    }
}
#else  // a libcrypto that was built without them
Chain chainOf(KcHashAlgo) {
    return nullptr;
}
#endif

}  // namespace

void hashAgain(KcHashAlgo algo, std::span<uint8_t> digest, uint64_t times) {
    if (digest.size() != hashLength(algo))
        throw CryptoError(CryptoFailure::BadParameter, "digest buffer of the wrong length");
    if (const Chain known = chainOf(algo)) return known(digest, times);
    KcHash running(algo);
    for (; times > 0; --times) {
        running.update(digest);
        running.final(digest);
    }
}

}  // namespace crv
