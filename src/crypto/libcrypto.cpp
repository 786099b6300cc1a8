#include "crypto/libcrypto.h"

#include <openssl/err.h>
#include <openssl/provider.h>

#include <new>

#include "crypto/rand_provider.h"

namespace crv::ossl {

namespace {

OSSL_LIB_CTX* makeContext() {
    LibCtx made(OSSL_LIB_CTX_new());
    if (!made || !OSSL_PROVIDER_load(made.get(), "default")) {
        fail(CryptoFailure::Internal, "libcrypto has no default provider");
    }
    if (!installRandProvider(made.get())) fail(CryptoFailure::Internal, "libcrypto refuses our generator");
    OSSL_PROVIDER_load(made.get(), "legacy");  // only RC2 and RC4 need it: absent, they are reported as unsupported
    ERR_clear_error();
    return made.release();
}

}  // namespace

OSSL_LIB_CTX* context() {
    static OSSL_LIB_CTX* const only = makeContext();
    return only;
}

void fail(CryptoFailure failure, const std::string& text) {
    ERR_clear_error();
    throw CryptoError(failure, text);
}

void throwIfNoMemory() {
    bool lacking = ERR_peek_error() == 0;
    while (const unsigned long error = ERR_get_error())
        if (ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE) lacking = true;
    if (lacking) throw std::bad_alloc();
}

Group groupOf(int curve) {
    return Group(made(EC_GROUP_new_by_curve_name_ex(context(), nullptr, curve), CryptoFailure::Internal,
                      "no memory for an elliptic curve"));
}

}  // namespace crv::ossl
