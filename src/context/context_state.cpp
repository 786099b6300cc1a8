#include "context/context_state.h"

#include "context/vtest_text_buffer.h"

namespace crv {

PinResult ContextState::getPIN(PinSlot slot, SecretText& pin, bool* fromCache, bool ask) {
    const PinCache::Slot& cached = pins.slot(slot);
    if (fromCache) *fromCache = cached.present;
    pin.clear();
    if (cached.present) {
        pin = cached.pin;
        usedPin_ = true;
        return kPinOk;
    }
    if (ask && !prompt) missingPin_ = slot;
    if (!ask || !prompt) return kPinCancelled;
    const PinResult result = prompt(slot, pin);
    if (result == kPinOk) {
        usedPin_ = true;
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

void ContextState::beginCall() noexcept {
    try {
        runReport_ = wholeReport();
    } catch (...) {  // a call must not fail for want of its predecessor's report
    }
    report_.clear();
    warnings.clear();
    usedPin_ = false;
    missingPin_.reset();
    VtestTextBuffer::forget(owner_);
}

void ContextState::endCall(bool remember) noexcept {
    if (usedPin_ && !remember) pins.removeAll();
    usedPin_ = false;
}

std::string ContextState::wholeReport() const {
    std::string whole = runReport_ + report_;
    if (whole.size() > kMaxRunReport) {
        // An end of a line before what stays; without one what stays begins within a line.
        const size_t end = whole.find('\n', whole.size() - kMaxRunReport - 1);
        whole.erase(0, end + 1 < whole.size() ? end + 1 : whole.size() - kMaxRunReport);
    }
    return whole;
}

}  // namespace crv
