// A digest fits one block, and EVP takes two thirds as long again as the block itself to begin and to end a message.
// These rounds, thousands for each key, call libcrypto's SHA by name; nothing else in this library may.
#undef OPENSSL_NO_DEPRECATED
#define OPENSSL_SUPPRESS_DEPRECATED
#include "crypto/hash_chain.h"

#include <openssl/sha.h>

#include "crypto/crypto_error.h"
#include "misc/secret.h"

namespace crv {

namespace {

using Chain = void (*)(std::span<uint8_t> digest, uint64_t times);

#ifndef OPENSSL_NO_DEPRECATED_3_0
template <class State, auto Begin, auto Add, auto End>
void chain(std::span<uint8_t> digest, uint64_t times) {
    State state;
    for (; times > 0; --times) {
        Begin(&state);
        Add(&state, digest.data(), digest.size());
        End(digest.data(), &state);
    }
    wipeMemory(&state, sizeof state);
}

Chain chainOf(KcHashAlgo algo) {
    switch (algo) {
        case KcHashAlgo::Sha1:
            return chain<SHA_CTX, SHA1_Init, SHA1_Update, SHA1_Final>;
        case KcHashAlgo::Sha224:
            return chain<SHA256_CTX, SHA224_Init, SHA224_Update, SHA224_Final>;
        case KcHashAlgo::Sha256:
            return chain<SHA256_CTX, SHA256_Init, SHA256_Update, SHA256_Final>;
        case KcHashAlgo::Sha384:
            return chain<SHA512_CTX, SHA384_Init, SHA384_Update, SHA384_Final>;
        case KcHashAlgo::Sha512:
            return chain<SHA512_CTX, SHA512_Init, SHA512_Update, SHA512_Final>;
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
