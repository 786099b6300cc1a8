#include "crypto/libcrypto.h"

#include <openssl/err.h>
#include <openssl/provider.h>

namespace crv::ossl {

namespace {

OSSL_LIB_CTX* makePlainContext() {
    LibCtx context(OSSL_LIB_CTX_new());
    if (!context || OSSL_PROVIDER_load(context.get(), "default") == nullptr) {
        fail(CryptoFailure::internal, "libcrypto has no default provider");
    }
    OSSL_PROVIDER_load(context.get(), "legacy");  // only RC2 needs it: absent, that cipher is reported as unsupported
    ERR_clear_error();
    return context.release();
}

}  // namespace

OSSL_LIB_CTX* plainContext() {
    static OSSL_LIB_CTX* const context = makePlainContext();
    return context;
}

void fail(CryptoFailure failure, const std::string& text) {
    ERR_clear_error();
    throw CryptoError(failure, text);
}

}  // namespace crv::ossl
