// Calls that show what the others did; they leave report, warnings and code of the last operation alone.
#include "api/api_frame.h"
#include "config/warning_codes.h"

namespace crv {
namespace {

int crvGetWarningsInt(const std::vector<int>& warnings, long* codes, long* count) {
    demand(count && (!codes || *count >= 0));
    const auto needed = static_cast<long>(warnings.size());
    const long room = std::exchange(*count, needed);
    if (!codes) return CRV_OK;
    if (room < needed) return ECRV_BUFF_TO_SHORT;
    std::ranges::copy(warnings, codes);
    return CRV_OK;
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvGetLastCodeAPI(CRVctx* ctx) {
    return lookBack(ctx, [&] { return ctx->state.lastCode; });
}

int crvGetWarnings(CRVctx* ctx, long* codes, long* count) {
    return lookBack(ctx, [&] { return crvGetWarningsInt(ctx->state.warnings, codes, count); });
}

const char* crvWarningTextAPI(long code) {
    return warningText(code);
}

int crvGetReportAPI(CRVctx* ctx, char* buf, long* len) {
    return lookBack(ctx, [&] { return copyOut(ctx->state.callReport(), buf, len); });
}

int crvGetRunReportAPI(CRVctx* ctx, char* buf, long* len) {
    return lookBack(ctx, [&] { return copyOut(ctx->state.wholeReport(), buf, len); });
}
