// Option calls.
#include "api/api_frame.h"
#include "config/config_oids.h"
#include "config/trusted_list_manager.h"
#include "context/context_options.h"

namespace crv {
namespace {

bool isGlobalOption(long id) {
    return id == kOptTslDownloadWithWget;
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvSetOptionAPI(CRVctx* ctx, long id, long value) {
    return apiFrame(ctx, [&] { return crvSetOptionInt(ctx, id, value); });
}

int crvGetOptionAPI(CRVctx* ctx, long id, long* value) {
    return apiFrame(ctx, [&] { return crvGetOptionInt(ctx, id, value); });
}

int crvSetTextOptionAPI(CRVctx* ctx, long id, const char* value) {
    return apiFrame(ctx, [&] {
        demand(CRVCfgFile::isSuchTextOpt(id));
        ctx->configurationManager.editRecord().setTextOpt(id, value ? std::optional<std::string>(value) : std::nullopt);
        return CRV_OK;
    });
}

const char* crvGetTextOptionAPI(CRVctx* ctx, long id) {
    return apiPointerFrame(ctx, [&]() -> const char* {
        demand(CRVCfgFile::isSuchTextOpt(id));
        const auto value = ctx->configurationManager.record().getTextOpt(id);
        ctx->textOption = value.value_or("");
        return value ? ctx->textOption.c_str() : nullptr;
    });
}

int crvSetGlobalOption(long id, long value) {
    if (!isGlobalOption(id)) return ECRV_API_INV_PAR;
    TrustedListManager::instance().setDownloadWithWget(value != 0);
    return CRV_OK;
}

int crvGetGlobalOption(long id, long* value) {
    if (!isGlobalOption(id) || !value) return ECRV_API_INV_PAR;
    *value = TrustedListManager::instance().downloadWithWget();
    return CRV_OK;
}
