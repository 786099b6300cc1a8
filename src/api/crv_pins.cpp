// PIN calls.
#include <langinfo.h>

#include <cerrno>
#include <cstring>

#include "api/key_store_call.h"
#include "misc/ascii.h"
#include "misc/charset.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

/// A text in the character set of the locale as UTF-8.
SecretText localToUtf8(const char* text) {
    const char* local = nl_langinfo(CODESET);
    std::string_view given(text);
    const bool ascii = given.find_first_of("\x80\xff") == std::string_view::npos &&
                       std::ranges::all_of(given, [](char c) { return c > 0; });
    if (ascii || equalIgnoreCase(local, "UTF-8")) return SecretText(given);
    SecretBytes utf8;
    if (!convertCharset(local, "UTF-8", given, utf8)) throw CrvApiException(ECRV_TEXT_CONVERT, local);
    return SecretText(asText(utf8));
}

int crvStorePINInt(CRVctx* ctx, long id, const SecretText& pin) {
    ctx->state.pins.store(PinCache::slotOf(id), pin);
    return CRV_OK;
}

int crvCleanPINInt(CRVctx* ctx, long mask) {
    demand((mask & ~PinCache::kAllSlots) == 0);
    ctx->state.pins.clean(mask);
    return CRV_OK;
}

int crvGetPINInfoInt(CRVctx* ctx, long id, long* needed) {
    demand(needed && PinCache::isSlot(id));
    const CrvProfile* profile = ctx->configurationManager.profile();
    if (!profile) return ECRV_PROFILE_NOT_LOADED;
    const auto slot = static_cast<PinSlot>(id);
    const auto first = static_cast<long>(PinSlot::SigningToken);
    const long external = slot == PinSlot::DecryptionToken ? CRVPROFILE_ATTR_EXTERN_DPIN : CRVPROFILE_ATTR_EXTERN_SPIN;
    if (slot == PinSlot::Roots) {
        *needed = rootsNeedPassword(*profile) ? id : 0;
    } else {
        *needed = flagOf(*profile, external) || !ctx->keyManager.wantsTypedPin(slot) ? 0 : first;
    }
    return CRV_OK;
}

/// A prompt of the program, which fills a buffer, as the library asks.
PinPrompt wrapped(CrvPinPrompt prompt, void* user) {
    if (!prompt) return {};
    return [prompt, user](PinSlot slot, SecretText& pin) {
        SecretArray<256> buffer;
        char* text = reinterpret_cast<char*>(buffer.data());
        const auto result =
            static_cast<PinResult>(prompt(user, static_cast<long>(slot), text, static_cast<long>(buffer.size())));
        buffer.back() = 0;
        if (result == kPinOk) pin = SecretText(text);
        return result;
    };
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvStorePINAPI(CRVctx* ctx, long id, const char* pin) {
    return apiFrame(ctx, [&] {
        demand(pin);
        return crvStorePINInt(ctx, id, localToUtf8(pin));
    });
}

int crvStorePINUtf8API(CRVctx* ctx, long id, const char* pin) {
    return apiFrame(ctx, [&] {
        demand(pin);
        return crvStorePINInt(ctx, id, SecretText(textIn(pin)));
    });
}

int crvCleanPINAPI(CRVctx* ctx, long mask) {
    return apiFrame(ctx, [&] { return crvCleanPINInt(ctx, mask); });
}

int crvGetPINInfo(CRVctx* ctx, long id, long* needed) {
    return apiFrame(ctx, [&] { return crvGetPINInfoInt(ctx, id, needed); });
}

int crvSetPINPromptAPI(CRVctx* ctx, CrvPinPrompt prompt, void* user) {
    return apiFrame(ctx, [&] {
        ctx->state.prompt = wrapped(prompt, user);
        return CRV_OK;
    });
}
