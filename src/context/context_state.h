// What a context keeps besides its managers: PINs, report, warnings, the last failure of a device.
#pragma once

#include <functional>
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
    void beginCall();
    /// The reports of all calls, the running one's included.
    [[nodiscard]] std::string wholeReport() const { return runReport_ + report_; }

    PinCache pins;
    PinPrompt prompt;
    TokenNotices tokenNotices;  ///< none: tokens' PINs are used without a word
    std::vector<int> warnings;
    unsigned lastDeviceError = 0;
    unsigned long lastPkcs11Rv = 0;

  private:
    const void* owner_;
    ConfigurationManager& configuration_;
    std::string report_;
    std::string runReport_;
};

}  // namespace crv
