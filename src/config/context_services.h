// What the managers know of the library context that owns them.
#pragma once

#include <string>
#include <string_view>

#include "misc/secret.h"

namespace crv {

class ConfigurationManager;

/// Slots of the PIN cache; the values combine into masks.
enum class PinSlot : long {
    SigningToken = 1,     // password of the security file, PIN of the token with the signing key
    DecryptionToken = 2,  // PIN of the token with the decryption key
    Roots = 8,            // password of the additional trust-point store
    SigningKey = 16,      // PIN of the signing key itself
};

/// Results of ContextServices::getPIN.
enum PinResult : int { kPinOk = 0, kPinWrong = 34, kPinCancelled = 41 };

/// What a token has to say of its PIN.
enum class TokenNotice {
    PinOnReader,  ///< it is entered on the reader now
    FinalTry,     ///< the next wrong one locks the token
    FewTries      ///< a wrong one was given before
};

/// Implemented by a member object of the context. A manager gets a reference in its init, keeps it, and uses it from
/// the thread of the running call only (worker threads hand their findings to it).
class ContextServices {
  public:
    /// The current profile, its key medium and its configuration record with the options.
    virtual ConfigurationManager& configuration() = 0;

    /// The PIN of a slot: the cached one, else, when ask is true and the program gave a way to ask, the user's answer,
    /// which is cached. fromCache, when given, tells which. kPinCancelled also when there is nothing to give; pin is
    /// then empty.
    [[nodiscard]] virtual PinResult getPIN(PinSlot slot, SecretText& pin, bool* fromCache = nullptr,
                                           bool ask = true) = 0;
    /// Puts a PIN into its slot; the one that was there is wiped.
    virtual void storePIN(PinSlot slot, const SecretText& pin) = 0;
    /// Tells the user what a token says of its PIN. For FinalTry asks, too: false keeps the PIN back.
    [[nodiscard]] virtual bool tokenNotice(TokenNotice notice, const std::string& label) = 0;
    /// Wipes every slot, so that the next getPIN asks again.
    virtual void removePINs() = 0;

    /// Adds a line to the report of the running call (without a line end). Never a secret.
    virtual void report(std::string_view line) = 0;
    /// Notes a warning: the running call then ends with 10 instead of 0.
    virtual void addWarning(int code) = 0;
    /// What a layer knows about the failure at hand; shown behind the code's text.
    virtual void setDiagnosticText(std::string_view text) = 0;
    /// Number of the last error of the Tarvo device; shown in the text of code 39.
    virtual void setLastDeviceError(unsigned error) = 0;
    /// The last CKR_ value of the PKCS#11 module; shown in the text of code 44.
    virtual void setLastPkcs11Rv(unsigned long rv) = 0;

  protected:
    ~ContextServices() = default;
};

}  // namespace crv
