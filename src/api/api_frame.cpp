#include "api/api_frame.h"

#include <pthread.h>

#include <atomic>
#include <new>

#include "config/config_oids.h"
#include "context/vtest_text_buffer.h"
#include "crypto/crypto_error.h"
#include "keystore/token_session.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/utf8.h"
#include "ops/op_error.h"

namespace crv {
namespace {

std::atomic<bool> forked = false;

int record(CRVctx* ctx, int code, const char* text) noexcept {
    try {
        if (ctx) {
            VtestTextBuffer::setVtestTxt(ctx, text);
        } else {
            putText(initFailure(), text);
        }
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

/// What a PIN that nobody gives is called.
constexpr struct {
    PinSlot slot;
    int code;
} kMissingPins[] = {{PinSlot::SigningToken, ECRV_SGN_PIN_NOT_PRES},
                    {PinSlot::DecryptionToken, ECRV_DEC_PIN_NOT_PRES},
                    {PinSlot::Roots, ECRV_ROOTS_PIN_NOT_PRES},
                    {PinSlot::SigningKey, ECRV_SGN_KEY_PIN_NOT_PRES}};

int codeOfMissingPin(PinSlot slot) {
    return std::ranges::find(kMissingPins, slot, [](const auto& row) { return row.slot; })->code;
}

/// Notes of the store's failures that a caller can act on.
int codeOfStore(StoreCause cause) {
    return cause == StoreCause::NotLocked ? ECRV_LOCK : cause == StoreCause::NoMemory ? ECRV_MEM : ECRV_DB;
}

bool remembersPins(const CRVctx& ctx) noexcept {
    try {
        return ctx.configurationManager.record().getIntOpt(kOptRememberPinInfo) != 0;
    } catch (...) {  // a damaged record
        return false;
    }
}

}  // namespace

CallGuard::CallGuard(CRVctx* ctx) noexcept : ctx_(ctx), code_(checkCRVctx(ctx)) {
    if (code_ == CRV_OK && (isForkedChild() || ctx->busy.exchange(true))) code_ = ECRV_INV_WRK_MODE;
}

CallGuard::~CallGuard() {
    if (code_ == CRV_OK) ctx_->busy = false;
}

bool isForkedChild() noexcept {
    return forked;
}

void watchForks() {
    static const bool watching = [] {
        if (pthread_atfork(nullptr, nullptr, [] { forked = true; }) != 0) throw std::bad_alloc();
        return true;
    }();
    static_cast<void>(watching);
}

TextBuffer& initFailure() noexcept {
    thread_local TextBuffer text{};
    return text;
}

void putText(TextBuffer& buffer, std::string_view text) noexcept {
    const std::string_view fitting = cutText(text, buffer.size() - 1);
    buffer[fitting.copy(buffer.data(), fitting.size())] = '\0';
}

int endOperation(CRVctx* ctx, int code) noexcept {
    const auto missing = ctx->state.missingPin();
    if (code == ECRV_ACTION_CANCELLED && missing) code = codeOfMissingPin(*missing);
    if (code <= CRV_OK_NEED_TARVO && !ctx->state.warnings.empty()) code = WCRV_GENERIC_WARNING;
    if (ctx->state.usedPin()) ctx->state.endCall(remembersPins(*ctx));
    return ctx->state.lastCode = code;
}

int codeOfException(CRVctx* ctx) noexcept {
    try {
        throw;
    } catch (const VtestException& error) {
        return record(ctx, ECRV_INTERNAL_ERROR, error.what());
    } catch (const CrvApiException& error) {
        return record(ctx, error.code(), error.hasText() ? error.what() : "");
    } catch (const OpError& error) {
        return record(ctx, error.code(), error.what());
    } catch (const TokenFailure& error) {
        return record(ctx, libraryCode(error.result()), error.what());
    } catch (const CryptoError& error) {
        return record(ctx, codeOfCrypto(error.failure()), error.what());
    } catch (const OpStopped&) {
        return ECRV_ACTION_CANCELLED;
    } catch (const StoreError& error) {
        return record(ctx, codeOfStore(error.cause()), error.what());
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

std::string_view textIn(const char* text) {
    const std::string_view view = viewOrEmpty(text);
    if (!isUtf8(view)) throw CrvApiException(ECRV_TEXT_CONVERT);
    return view;
}

ByteView octetsIn(const unsigned char* data, long len) {
    demand(len >= 0 && (data || len == 0));
    return {data, static_cast<size_t>(len)};
}

int codeOfProfileResult(int result) {
    for (const auto& row : kProfileCodes)
        if (row.result == result) return row.code;
    failAssertion("0", "src/api/crvctx", __LINE__);
}

}  // namespace crv
