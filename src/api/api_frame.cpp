#include "api/api_frame.h"

#include <new>

#include "context/vtest_text_buffer.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

int record(CRVctx* ctx, int code, const char* text) noexcept {
    try {
        VtestTextBuffer::setVtestTxt(ctx, text);
    } catch (...) {
        // The code stands without its text.
    }
    return code;
}

constexpr struct {
    int result;
    int code;
} kProfileCodes[] = {
    {kAttrOk, CRV_OK},
    {kAttrBadArgument, ECRV_API_INV_PAR},
    {kAttrTooShort, ECRV_BUFF_TO_SHORT},
    {kAttrDefault, ECRV_ATTR_HAS_DEFAULT_VALUE},
    {kAttrNoValue, ECRV_ATTR_HAS_NO_VALUE},
};

}  // namespace

int codeOfException(CRVctx* ctx) noexcept {
    try {
        throw;
    } catch (const VtestException& error) {
        return record(ctx, ECRV_INTERNAL_ERROR, error.what());
    } catch (const CrvApiException& error) {
        return record(ctx, error.code(), error.hasText() ? error.what() : "");
    } catch (const std::bad_alloc&) {
        return ECRV_MEM;
    } catch (const std::exception& error) {
        return record(ctx, ECRV_UNKNOWN_EXCEPTION, error.what());
    } catch (...) {
        return ECRV_UNKNOWN_EXCEPTION;
    }
}

int copyOut(std::string_view value, char* buf, long* len) {
    return codeOfProfileResult(copyAttr(value, buf, len));
}

int codeOfProfileResult(int result) {
    for (const auto& row : kProfileCodes)
        if (row.result == result) return row.code;
    failAssertion("0", "src/api/crvctx", __LINE__);
}

}  // namespace crv
