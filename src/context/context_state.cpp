#include "context/context_state.h"

#include "context/vtest_text_buffer.h"

namespace crv {

PinResult ContextState::getPIN(PinSlot slot, SecretText& pin, bool* fromCache, bool ask) {
    const PinCache::Slot& cached = pins.slot(slot);
    if (fromCache) *fromCache = cached.present;
    pin.clear();
    if (cached.present) {
        pin = cached.pin;
        return kPinOk;
    }
    if (!ask || !prompt) return kPinCancelled;
    const PinResult result = prompt(slot, pin);
    if (result == kPinOk) {
        pins.store(slot, pin);
    } else {
        pin.clear();
    }
    return result;
}

void ContextState::report(std::string_view line) {
    report_.append(line).push_back('\n');
}

void ContextState::setDiagnosticText(std::string_view text) {
    VtestTextBuffer::setVtestTxt(owner_, text);
}

void ContextState::beginCall() {
    runReport_ += report_;
    report_.clear();
    warnings.clear();
    VtestTextBuffer::forget(owner_);
}

}  // namespace crv
