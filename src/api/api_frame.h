// The frame around every operation of the library.
#pragma once

#include "context/crvctx.h"

namespace crv {

/// Code of the exception being handled; what it says becomes the context's diagnostic text. Must be called in a
/// handler.
int codeOfException(CRVctx* ctx) noexcept;

/// Runs the inner part of an operation, which answers a code: checks the context, empties report and warnings, turns
/// success with warnings into WCRV_GENERIC_WARNING and an exception into its code.
template <class Inner>
int apiFrame(CRVctx* ctx, Inner inner) noexcept {
    if (const int code = checkCRVctx(ctx)) return code;
    try {
        ctx->state.beginCall();
        const int code = inner();
        return code == CRV_OK && !ctx->state.warnings.empty() ? WCRV_GENERIC_WARNING : code;
    } catch (...) {
        return codeOfException(ctx);
    }
}

/// The same for an operation that answers a pointer: null instead of any failure.
template <class Inner>
auto apiPointerFrame(CRVctx* ctx, Inner inner) noexcept -> decltype(inner()) {
    if (checkCRVctx(ctx)) return nullptr;
    try {
        ctx->state.beginCall();
        return inner();
    } catch (...) {
        codeOfException(ctx);
        return nullptr;
    }
}

/// A value by the buffer rule: ECRV_API_INV_PAR, ECRV_BUFF_TO_SHORT or 0.
int copyOut(std::string_view value, char* buf, long* len);

/// API code of a result of the profile layer; any result that it does not give fails an assertion.
int codeOfProfileResult(int result);

}  // namespace crv
