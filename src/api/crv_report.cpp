// Calls that show what the others did; they leave report and warnings of the last operation alone.
#include "api/api_frame.h"
#include "config/warning_codes.h"

namespace crv {
namespace {

/// The frame of a call that does not begin an operation of its own.
template <class Inner>
int lookBack(CRVctx* ctx, Inner inner) noexcept {
    if (const int code = checkCRVctx(ctx)) return code;
    try {
        return inner();
    } catch (...) {
        return codeOfException(ctx);
    }
}

std::string warningTexts(const CRVctx* ctx) {
    std::string texts;
    for (int code : ctx->state.warnings) texts.append(warningText(code)).push_back('\n');
    return texts;
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvGetWarnings(CRVctx* ctx, char* buf, long* len) {
    return lookBack(ctx, [&] { return copyOut(warningTexts(ctx), buf, len); });
}

int crvGetReportAPI(CRVctx* ctx, char* buf, long* len) {
    return lookBack(ctx, [&] { return copyOut(ctx->state.wholeReport(), buf, len); });
}
