// Log-in.
#include <ctime>

#include "api/key_store_call.h"
#include "asn/x509/signed_certificate.h"
#include "config/warning_codes.h"
#include "context/context_options.h"

namespace crv {
namespace {

/// Codes of a successful log-in, which tell where the keys are. No class of profile has medium 3.
constexpr struct {
    KeyMedium medium;
    int code;
} kSuccessCodes[] = {
    {KeyMedium::Tarvo, CRV_OK_NEED_TARVO},
    {static_cast<KeyMedium>(3), CRV_OK_NEED_CARD},
    {KeyMedium::Token, CRV_OK_NEED_CRYPTO_CARD},
};

int codeOfSuccess(KeyMedium medium) {
    for (const auto& row : kSuccessCodes)
        if (row.medium == medium) return row.code;
    return CRV_OK;
}

void loadUserCertificates(CRVctx* ctx) {
    const int64_t now = std::time(nullptr);
    ctx->userCerts = ctx->keyManager.userCerts();
    for (const CertPtr& certificate : ctx->userCerts) {
        if (!certificate->isValidAt(now)) ctx->state.addWarning(WARN_USER_CRT_NOT_VALID);
    }
}

int crvAuthenticateExInt(CRVctx* ctx, int readAdditional) {
    const ConfigurationManager& configuration = ctx->configurationManager;
    if (!configuration.profile()) return ECRV_PROFILE_NOT_LOADED;
    fetchPins(*ctx, readAdditional != 0);
    int databases = CRV_OK;
    const KeyManagerResult result = openKeyStore(accessOf(*ctx), OpenMode::LogIn, readAdditional != 0, [&] {
        databases = codeOfDbState(ctx->dbManager.isDbCreated());
        if (databases == CRV_OK) ctx->userCerts.clear();
        return databases == CRV_OK;
    });
    if (databases != CRV_OK) throw CrvApiException(databases, ctx->dbManager.lastFailure());
    if (result == kKmLockFailed || result == kKmLockGivenUp) return ECRV_LOCK;
    // What a missing seed leaves open can only be mended at the console.
    if (result != kKmOk) ctx->keyManager.deinitProfile();
    ctx->state.report("Otwarcie profilu " + configuration.profileName() + ": " + std::to_string(result));
    if (result == kKmWrongPassword) ctx->removePINs();
    if (result != kKmOk) return libraryCode(result);
    applyUnsavedOptions(ctx);
    loadUserCertificates(ctx);
    return codeOfSuccess(configuration.keyMedium());
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvAuthenticateExAPI(CRVctx* ctx, int readAdditional) {
    return apiFrame(ctx, [&] { return crvAuthenticateExInt(ctx, readAdditional); });
}
