#include "api/crvctx.h"

#include <atomic>
#include <cstring>

#include "api/vtest_text_buffer.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

std::atomic<int> alive = 0;

}  // namespace

ContextCount::ContextCount() {
    if (++alive <= kMost) return;
    --alive;
    throw CrvApiException(ECRV_TOO_MANY_CONTEXTS);
}

ContextCount::~ContextCount() {
    --alive;
}

CRVctx::CRVctx() {
    networkManager.init(state);
}

CRVctx::~CRVctx() {
    setProfile(nullptr);
    VtestTextBuffer::forget(this);
    wipeMemory(marker.data(), marker.size());
}

void CRVctx::setProfile(std::unique_ptr<CrvProfile> profile) {
    removePINs();
    networkManager.clearNetStore();
    configurationManager.setProfile(std::move(profile));
}

int checkCRVctx(const CRVctx* ctx) noexcept {
    if (!ctx) return ECRV_API_INV_PAR;
    return std::strcmp(ctx->marker.data(), CRVctx::kMarker.data()) == 0 ? CRV_OK : ECRV_API_INV_CTX;
}

}  // namespace crv
