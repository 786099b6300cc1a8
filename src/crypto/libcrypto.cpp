#include "crypto/libcrypto.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/proverr.h>
#include <openssl/provider.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "crypto/rand_provider.h"

namespace crv::ossl {

namespace {

OSSL_LIB_CTX* makeContext() {
    LibCtx made(OSSL_LIB_CTX_new());
    if (!made || !OSSL_PROVIDER_load(made.get(), "default")) {
        fail(CryptoFailure::Internal, "libcrypto has no default provider");
    }
    if (!installRandProvider(made.get())) fail(CryptoFailure::Internal, "libcrypto refuses our generator");
    return made.release();
}

bool loadLegacy() {
    if (OSSL_PROVIDER_load(context(), "legacy")) return true;
    throwIfNoMemory();
    return false;
}

/// What else libcrypto notes where it got no memory, and, the way that it is used here, nowhere else.
constexpr std::pair<int, int> kSilentLack[] = {
    {ERR_LIB_EVP, EVP_R_INITIALIZATION_ERROR},  // of an algorithm that was found
    {ERR_LIB_EVP, EVP_R_NOT_ABLE_TO_COPY_CTX},  // an HMAC that starts anew
    {ERR_LIB_EVP, ERR_R_INTERNAL_ERROR},        // no place for a key that was made
    {ERR_LIB_PROV, PROV_R_DIGEST_NOT_ALLOWED},  // a hash that is not found by its name: RSA signs with all of ours
};

}  // namespace

OSSL_LIB_CTX* context() {
    static OSSL_LIB_CTX* const only = makeContext();
    return only;
}

void needLegacy() {
    // Not there, what is asked of it is reported as unsupported.
    static const bool there = loadLegacy();
    static_cast<void>(there);
}

Complaints takeComplaints() {
    Complaints noted;
    bool rsaFailed = false;
    while (const unsigned long error = ERR_get_error()) {
        const int library = ERR_GET_LIB(error), reason = ERR_GET_REASON(error);
        const bool silent = std::ranges::find(kSilentLack, std::pair(library, reason)) != std::end(kSilentLack);
        noted.any = true;
        noted.ofMemory = noted.ofMemory || silent || reason == ERR_R_MALLOC_FAILURE;
        noted.ofRsa = noted.ofRsa || library == ERR_LIB_RSA;
        rsaFailed = rsaFailed || (library == ERR_LIB_PROV && reason == ERR_R_RSA_LIB);
    }
    // RSA itself says why, unless it got no memory to begin.
    noted.ofMemory = noted.ofMemory || (rsaFailed && !noted.ofRsa);
    return noted;
}

void fail(CryptoFailure failure, const std::string& text) {
    const Complaints noted = takeComplaints();
    if (noted.ofMemory || (!noted.any && failure == CryptoFailure::Internal)) throw std::bad_alloc();
    throw CryptoError(failure, text);
}

void throwIfNoMemory() {
    const Complaints noted = takeComplaints();
    if (noted.ofMemory || !noted.any) throw std::bad_alloc();
}

void mustTake(int answer, CryptoFailure failure, const char* text) {
    if (answer == 1) return;
    throwIfNoMemory();
    throw CryptoError(failure, text);
}

Group groupOf(int curve) {
    return Group(made(EC_GROUP_new_by_curve_name_ex(context(), nullptr, curve), CryptoFailure::Internal,
                      "no memory for an elliptic curve"));
}

}  // namespace crv::ossl
