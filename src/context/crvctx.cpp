#include "context/crvctx.h"

#include <atomic>
#include <cstring>

#include "context/vtest_text_buffer.h"
#include "crypto/crypto_error.h"
#include "crypto/self_test.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

std::atomic<int> alive = 0;

DbConfig databaseOf(const CrvProfile* profile) {
    if (profile) return profile->dbConfig();
    DbConfig none;
    none.setType(std::string(kDbKindNone));
    return none;
}

CertList trustedCertificates(const KeyManager& keys) {
    CertList list;
    for (TrustPoint& point : keys.trustedPoints()) list.push_back(std::move(point.certificate));
    return list;
}

}  // namespace

ContextCount::ContextCount() {
    if (++alive <= kMost) return;
    --alive;
    throw CrvApiException(ECRV_TOO_MANY_CONTEXTS);
}

ContextCount::~ContextCount() {
    --alive;
}

}  // namespace crv

using namespace crv;

void CRVctx::testPrimitives() {
    try {
        requireSelfTests();
    } catch (const CryptoError& error) {
        throw CrvApiException(ECRV_LIBCORVPP_TEST_FAILED, error.what());
    }
}

CRVctx::CRVctx() {
    keyManager.init(state);
    certificateManager.init(dbManager, certificateCache, [this] { return trustedCertificates(keyManager); });
    certificateManager.setAlgorithmPolicy([this] { return configurationManager.record().getAlgorithmPolicy(); });
    revocationManager.init(certificateManager);
    dbManager.init([this] { return databaseOf(configurationManager.profile()); });
    networkManager.init(state, certificateManager, revocationManager);
    networkManager.setOwnCertificates([this] { return keyManager.userCerts(); });
}

CRVctx::~CRVctx() {
    // Nothing here may need memory: there may be none.
    keyManager.deinitProfile();
    state.removePINs();
    VtestTextBuffer::forget(this);
    wipeMemory(marker.data(), marker.size());
}

void CRVctx::setProfile(std::unique_ptr<crv::CrvProfile> profile) {
    if (profile) testPrimitives();
    keyManager.deinitProfile();
    userCerts.clear();
    if (configurationManager.profile()) {
        removePINs();
        unsavedOptions.clear();
    }
    networkManager.beginProfile();
    configurationManager.setProfile(std::move(profile));
}

void CRVctx::moveFromNetStoreToDB() {
    networkManager.moveFromNetStoreToDB([this](ByteView der) { return certificateManager.db().insert(der); },
                                        [this](ByteView der) {
                                            const CrlInsert result = revocationManager.insertGenuine(der);
                                            return result == CrlInsert::Stored || result == CrlInsert::Older;
                                        });
}

namespace crv {

int checkCRVctx(const CRVctx* ctx) noexcept {
    if (!ctx) return ECRV_API_INV_PAR;
    return std::strcmp(ctx->marker.data(), CRVctx::kMarker.data()) == 0 ? CRV_OK : ECRV_API_INV_CTX;
}

void demand(bool condition) {
    if (!condition) throw CrvApiException(ECRV_API_INV_PAR);
}

}  // namespace crv
