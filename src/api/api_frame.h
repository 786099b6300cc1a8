// The frame around every operation of the library.
#pragma once

#include <algorithm>
#include <cstring>

#include "context/crvctx.h"
#include "corvane/crvapi.h"
#include "misc/exceptions.h"

namespace crv {

/// The right to work with a context for a scope, which one caller has at a time.
class CallGuard {
  public:
    explicit CallGuard(CRVctx* ctx) noexcept;
    ~CallGuard();
    CallGuard(const CallGuard&) = delete;
    CallGuard& operator=(const CallGuard&) = delete;

    /// 0; ECRV_API_INV_PAR and ECRV_API_INV_CTX as checkCRVctx; ECRV_INV_WRK_MODE while another call is at work with
    /// the context, and in a child of the process that made contexts.
    [[nodiscard]] int code() const { return code_; }

  private:
    CRVctx* ctx_;
    int code_;
};

/// Whether contexts were made before this process was forked: nothing may be done with the library here.
[[nodiscard]] bool isForkedChild() noexcept;
/// From now on children are known.
void watchForks();

/// Code of the exception being handled; what it says becomes the context's diagnostic text. Must be called in a
/// handler. Without a context the text is that of initFailure.
int codeOfException(CRVctx* ctx) noexcept;

/// Why the last making of a context failed on this thread. No object with a destructor: glibc ends the process when
/// there is no memory to remember one for a thread.
/// A text of a context or a thread.
using TextBuffer = std::array<char, CRVctx::kErrorTextSize>;
TextBuffer& initFailure() noexcept;
/// Copies a text into a buffer of this kind, cut before a character that does not fit whole.
void putText(TextBuffer& buffer, std::string_view text) noexcept;

/// Ends an operation that answers a code; answers what the caller gets.
int endOperation(CRVctx* ctx, int code) noexcept;

/// Runs the inner part of an operation, which answers a code: checks the context, empties report and warnings, turns
/// success with warnings into WCRV_GENERIC_WARNING and an exception into its code, wipes PINs that were used.
template <class Inner>
int apiFrame(CRVctx* ctx, Inner inner) noexcept {
    const CallGuard call(ctx);
    if (const int code = call.code()) return code;
    try {
        ctx->state.beginCall();
        return endOperation(ctx, inner());
    } catch (...) {
        return endOperation(ctx, codeOfException(ctx));
    }
}

/// The same for an operation that answers a pointer: null instead of any failure, whose code is the last code.
template <class Inner>
auto apiPointerFrame(CRVctx* ctx, Inner inner) noexcept -> decltype(inner()) {
    const CallGuard call(ctx);
    if (call.code()) return nullptr;
    try {
        ctx->state.beginCall();
        const auto result = inner();
        endOperation(ctx, CRV_OK);
        return result;
    } catch (...) {
        endOperation(ctx, codeOfException(ctx));
        return nullptr;
    }
}

/// The frame of a call that is no operation: it leaves report, warnings, text and last code of the last operation
/// alone.
template <class Inner>
int lookBack(CRVctx* ctx, Inner inner) noexcept {
    const CallGuard call(ctx);
    if (const int code = call.code()) return code;
    try {
        return inner();
    } catch (const std::bad_alloc&) {
        return ECRV_MEM;
    } catch (const CrvApiException& error) {
        return error.code();
    } catch (...) {
        return ECRV_UNKNOWN_EXCEPTION;
    }
}

/// Frees a handle; null does nothing.
template <class Handle>
int freeHandle(CRVctx* ctx, Handle* handle) noexcept {
    return lookBack(ctx, [&] {
        const std::unique_ptr<Handle> ended(handle);
        return CRV_OK;
    });
}

/// A value by the buffer rule: ECRV_API_INV_PAR, ECRV_BUFF_TO_SHORT or 0.
int copyOut(std::string_view value, char* buf, long* len);

/// Gives a caller's structure as much of ours as its size says; no pointer to a string of ours may be null.
template <class Structure>
void handOut(Structure whole, Structure* to) {
    demand(to && to->size >= static_cast<long>(sizeof to->size));
    whole.size = to->size;
    std::memcpy(to, &whole, std::min(static_cast<size_t>(to->size), sizeof whole));
}

/// Zeroes a caller's structure as far as it and we know it.
template <class Structure>
void clearOut(Structure* to) {
    handOut(Structure{}, to);
}

/// A caller's structure as we know it: members that he does not have are zero, those that we do not know must be.
template <class Structure>
Structure takeIn(const Structure* from) {
    Structure whole{};
    demand(from && from->size >= static_cast<long>(sizeof from->size));
    const auto size = static_cast<size_t>(from->size);
    constexpr size_t kMost = 4096;  // beyond what any version has: memory that nobody filled
    demand(size <= kMost);
    const auto* octets = reinterpret_cast<const unsigned char*>(from);
    if (size > sizeof whole)
        demand(std::all_of(octets + sizeof whole, octets + size, [](unsigned char c) { return c == 0; }));
    std::memcpy(&whole, from, std::min(size, sizeof whole));
    return whole;
}

/// A text of the caller's, empty for null. Throws CrvApiException (ECRV_TEXT_CONVERT) for what is no UTF-8.
std::string_view textIn(const char* text);
/// Octets of the caller's: ECRV_API_INV_PAR for a negative length, or null with another length than 0.
ByteView octetsIn(const unsigned char* data, long len);

/// API code of a result of the profile layer; any result that it does not give fails an assertion.
int codeOfProfileResult(int result);

}  // namespace crv
