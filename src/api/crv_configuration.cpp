// Calls that save the key store or change what opens it; the library itself.
#include <cstdlib>

#include "api/handles.h"
#include "api/key_store_call.h"
#include "ops/password_rules.h"

namespace crv {
namespace {

static_assert(std::string_view(CRV_VERSION) == CRV_VERSION_TEXT, "the header's version is the project's");

int crvSaveConfigurationInt(CRVctx& ctx) {
    demandLogIn(ctx);
    fetchPins(ctx);
    const int code = codeOfKeys(ctx, saveKeyStore(accessOf(ctx)));
    if (code == CRV_OK) ctx.unsavedOptions.clear();
    return code;
}

/// A file has rules of ours for its password, a token its own for its PIN, which it changes against the old one.
int crvChangePasswordInt(CRVctx& ctx, const char* text) {
    demand(text);
    const SecretText password(textIn(text));
    demandLogIn(ctx);
    const bool file = ctx.configurationManager.keyMedium() == KeyMedium::File;
    if (file) demandGoodPassword(password);
    fetchPins(ctx);
    SecretText old;
    if (const PinResult given = ctx.getPIN(PinSlot::SigningToken, old); given != kPinOk)
        return given == kPinWrong ? ECRV_PASSWORD : ECRV_ACTION_CANCELLED;
    if (!file) return codeOfKeys(ctx, ctx.keyManager.changePin(old, password));
    if (!ctx.keyManager.opensWith(old)) return ECRV_PASSWORD;
    return codeOfKeys(ctx, changeKeyStorePassword(accessOf(ctx), password));
}

/// Before the octets that are handed out: how many there are to wipe.
constexpr size_t kOctetsHead = alignof(std::max_align_t);

}  // namespace

void giveOctets(ByteView octets, unsigned char** to, long* len) {
    auto* block = static_cast<unsigned char*>(std::malloc(kOctetsHead + octets.size() + 1));
    if (!block) throw std::bad_alloc();
    const size_t size = octets.size();
    std::memcpy(block, &size, sizeof size);
    if (size > 0) std::memcpy(block + kOctetsHead, octets.data(), size);
    *to = block + kOctetsHead;
    *len = static_cast<long>(size);
}

}  // namespace crv

using namespace crv;

int crvSaveConfigurationAPI(CRVctx* ctx) {
    return apiFrame(ctx, [&] { return crvSaveConfigurationInt(*ctx); });
}

int crvChangePasswordAPI(CRVctx* ctx, const char* password) {
    return apiFrame(ctx, [&] { return crvChangePasswordInt(*ctx, password); });
}

int crvSetLockTimeoutAPI(CRVctx* ctx, long seconds) {
    constexpr long kMost = 100L * 366 * 24 * 3600;
    return apiFrame(ctx, [&] {
        demand(seconds >= -1 && seconds <= kMost);
        ctx->lockSeconds = seconds;
        return CRV_OK;
    });
}

int crvFreeOctetsAPI(unsigned char* octets) {
    if (!octets) return CRV_OK;
    unsigned char* block = octets - kOctetsHead;
    size_t size = 0;
    std::memcpy(&size, block, sizeof size);
    wipeMemory(block, kOctetsHead + size);
    std::free(block);
    return CRV_OK;
}

int crvGetInitFailureAPI(char* buf, long* len) {
    try {
        return copyOut(initFailure().data(), buf, len);
    } catch (...) {
        return ECRV_UNKNOWN_EXCEPTION;
    }
}

long crvVersionAPI(void) {
    return CRV_VERSION_NUMBER;
}

const char* crvVersionTextAPI(void) {
    return CRV_VERSION_TEXT;
}
