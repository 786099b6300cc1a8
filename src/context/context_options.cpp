#include "context/context_options.h"

#include <algorithm>

#include "config/config_oids.h"
#include "config/warning_codes.h"
#include "misc/exceptions.h"
#include "misc/logger.h"

namespace crv {
namespace {

int refuse(CRVctx*, long) {
    return ECRV_API_INV_PAR;
}

int refuseGet(CRVctx*, long*) {
    return ECRV_API_INV_PAR;
}

int ignore(CRVctx*, long) {
    return CRV_OK;
}

int storeInt(CRVctx* ctx, long id, long value) {
    ctx->configurationManager.editRecord().setIntOpt(id, value);
    return CRV_OK;
}

/// Adding signers, which is set by two odd codes.
int setSignerMode(CRVctx* ctx, long value) {
    demand(value == 3 || value == 4);
    return storeInt(ctx, kOptAddSignerMode, value - 3);
}

int getSignerMode(CRVctx* ctx, long* value) {
    *value = ctx->configurationManager.record().getIntOpt(kOptAddSignerMode);
    return CRV_OK;
}

/// Options that are not simply stored.
constexpr struct SpecialOption {
    long id;
    int (*set)(CRVctx*, long);
    int (*get)(CRVctx*, long*);
} kSpecial[] = {
    {1, refuse, refuseGet},
    {kOptAddSignerMode, setSignerMode, getSignerMode},
    {15, setDigestOption, getDigestOption},
    {21, setSchemeOption, getSchemeOption},
    {25, setSignatureOption, getSignatureOption},
    {31, ignore, refuseGet},
};

const SpecialOption* findSpecial(long id) {
    const SpecialOption* row = std::ranges::find(kSpecial, id, &SpecialOption::id);
    return row == std::end(kSpecial) ? nullptr : row;
}

}  // namespace

int crvSetOptionInt(CRVctx* ctx, long id, long value) {
    if (const SpecialOption* special = findSpecial(id)) return special->set(ctx, value);
    demand(CRVCfgFile::isSuchIntOpt(id));
    return storeInt(ctx, id, value);
}

int crvGetOptionInt(CRVctx* ctx, long id, long* value) {
    demand(value);
    if (const SpecialOption* special = findSpecial(id)) return special->get(ctx, value);
    demand(CRVCfgFile::isSuchIntOpt(id));
    *value = ctx->configurationManager.record().getIntOpt(id);
    return CRV_OK;
}

void applyUnsavedOptions(CRVctx* ctx) {
    for (const OptionSetting& setting : ctx->unsavedOptions) {
        int code = CRV_OK;
        if (const long* value = std::get_if<long>(&setting.value)) {
            code = crvSetOptionInt(ctx, setting.id, *value);
        } else {
            ctx->configurationManager.editRecord().setTextOpt(setting.id, std::get<1>(setting.value));
        }
        if (code != CRV_OK) ctx->state.addWarning(WARN_OPTION_NOT_APPLIED);
    }
}

CrvOptionGuard::CrvOptionGuard(CRVctx* ctx, long id, long value) : ctx_(ctx), id_(id) {
    if (const int code = crvGetOptionInt(ctx, id, &former_)) throw CrvApiException(code);
    if (const int code = crvSetOptionInt(ctx, id, value)) throw CrvApiException(code);
}

CrvOptionGuard::~CrvOptionGuard() {
    try {
        // Option 2 answers what it stores and takes the codes for it.
        crvSetOptionInt(ctx_, id_, id_ == 2 ? former_ + 3 : former_);
    } catch (const std::exception& error) {
        logLine(LogLevel::Error, "CrvOptionGuard: ", error.what());
    }
}

}  // namespace crv
