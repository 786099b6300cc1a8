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

/// Comes before the change that is to be remembered, which then needs no memory.
void makeRoom(CRVctx* ctx) {
    ctx->unsavedOptions.reserve(ctx->unsavedOptions.size() + 1);
}

/// Remembers what a program set until it is saved: the log-in brings the record of the key store.
void remember(CRVctx* ctx, OptionSetting setting) {
    auto& list = ctx->unsavedOptions;
    list.push_back(std::move(setting));
    const auto before = std::ranges::find(list, list.back().id, &OptionSetting::id);
    if (before != list.end() - 1) list.erase(before);
}

int crvSetTextOptionInt(CRVctx* ctx, long id, const char* value) {
    demand(CRVCfgFile::isSuchTextOpt(id));
    const auto text = value ? std::optional<std::string>(textIn(value)) : std::nullopt;
    OptionSetting setting{id, text};
    makeRoom(ctx);
    ctx->configurationManager.editRecord().setTextOpt(id, text);
    remember(ctx, std::move(setting));
    return CRV_OK;
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvSetOptionAPI(CRVctx* ctx, long id, long value) {
    return apiFrame(ctx, [&] {
        makeRoom(ctx);
        const int code = crvSetOptionInt(ctx, id, value);
        if (code == CRV_OK) remember(ctx, {id, value});
        return code;
    });
}

int crvGetOptionAPI(CRVctx* ctx, long id, long* value) {
    return apiFrame(ctx, [&] { return crvGetOptionInt(ctx, id, value); });
}

int crvSetTextOptionAPI(CRVctx* ctx, long id, const char* value) {
    return apiFrame(ctx, [&] { return crvSetTextOptionInt(ctx, id, value); });
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
