// What a context keeps besides its managers: PINs, report, warnings, the last failure of a device.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "config/context_services.h"
#include "context/pin_cache.h"

namespace crv {

/// Asks the user for the PIN of a slot; answers as ContextServices::getPIN.
using PinPrompt = std::function<PinResult(PinSlot slot, SecretText& pin)>;

/// Tells the user what a token says; answers as ContextServices::tokenNotice.
using TokenNotices = std::function<bool(TokenNotice notice, const std::string& label)>;

class ContextState final : public ContextServices {
  public:
    /// Diagnostic texts are recorded for `owner`.
    ContextState(const void* owner, ConfigurationManager& configuration)
        : owner_(owner), configuration_(configuration) {}

    ConfigurationManager& configuration() override { return configuration_; }
    PinResult getPIN(PinSlot slot, SecretText& pin, bool* fromCache = nullptr, bool ask = true) override;
    void storePIN(PinSlot slot, const SecretText& pin) override { pins.store(slot, pin); }
    bool tokenNotice(TokenNotice notice, const std::string& label) override {
        return !tokenNotices || tokenNotices(notice, label);
    }
    void removePINs() override { pins.removeAll(); }
    void report(std::string_view line) override;
    void addWarning(int code) override { warnings.push_back(code); }
    void setDiagnosticText(std::string_view text) override;
    void setLastDeviceError(unsigned error) override { lastDeviceError = error; }
    void setLastPkcs11Rv(unsigned long rv) override { lastPkcs11Rv = rv; }

    /// Starts a call: the report so far goes to the run-long one, warnings and diagnostic text are emptied.
    void beginCall() noexcept;
    /// Ends it: wipes every PIN when the call used one, unless `remember`.
    void endCall(bool remember) noexcept;
    /// The slot whose PIN the running call wanted and which nobody gives: none is stored, and there is no prompt.
    [[nodiscard]] std::optional<PinSlot> missingPin() const { return missingPin_; }
    [[nodiscard]] bool usedPin() const { return usedPin_; }

    /// Octets of the run-long report that are kept: the newest whole lines.
    static constexpr size_t kMaxRunReport = size_t{256} << 10;
    /// The report of the running call, or between calls of the last one.
    [[nodiscard]] const std::string& callReport() const { return report_; }
    /// The reports of all calls, the running one's included, cut to kMaxRunReport.
    [[nodiscard]] std::string wholeReport() const;

    PinCache pins;
    PinPrompt prompt;
    TokenNotices tokenNotices;  ///< none: tokens' PINs are used without a word
    std::vector<int> warnings;
    int lastCode = 0;  ///< of the last call
    unsigned lastDeviceError = 0;
    unsigned long lastPkcs11Rv = 0;

  private:
    const void* owner_;
    ConfigurationManager& configuration_;
    std::string report_;
    std::string runReport_;
    bool usedPin_ = false;
    std::optional<PinSlot> missingPin_;
};

}  // namespace crv
