// A token of the profile at work: opening and logging in when somebody needs it, and finding it again when it was taken
// out and put back.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "config/context_services.h"
#include "keystore/key_manager_result.h"
#include "pkcs11/p11_device.h"

namespace crv {

/// A token that is there.
struct FoundToken {
    PKCS11Device device;  ///< with its slots, without a session
    int slot;
    P11TokenInfo info;
    std::string reader;
};

/// The key manager's result for what a device answered; the module's value goes to the context.
[[nodiscard]] KeyManagerResult tokenResult(ContextServices& context, const PKCS11Device& device, P11Result result);

/// How a profile uses a token.
struct TokenUse {
    PinSlot pin = PinSlot::SigningToken;
    bool keepOpen = false;       ///< the session stays open between operations
    bool externalPin = false;    ///< the PIN is entered on the reader
    bool detectExternal = true;  ///< also when the token says so
};

/// Used by one thread at a time. A PIN of the cache is sent to this token only, and one that was refused is not sent
/// again; what the user typed just now always is.
class TokenSession {
  public:
    TokenSession(ContextServices& context, FoundToken token, const TokenUse& use);
    ~TokenSession();
    TokenSession(const TokenSession&) = delete;
    TokenSession& operator=(const TokenSession&) = delete;

    /// What is done with the open device. kKmTokenKeyNotFound is taken for a token that may have been exchanged.
    using Work = std::function<KeyManagerResult(PKCS11Device& device)>;

    /// Does the work logged in. When the token went away meanwhile it is looked for by label and serial number, and the
    /// work is done once more; it must look first for what it may have made already. kKmCardNotFound when the token is
    /// gone; what log-in answers (13, 27, 48, 49); the result of the work. No other process comes between.
    [[nodiscard]] KeyManagerResult run(const Work& work) { return perform(work, true); }
    /// The same without a log-in, for what everybody may see.
    [[nodiscard]] KeyManagerResult look(const Work& work) { return perform(work, false); }
    /// Ends the session with the token.
    void close() noexcept;
    /// Keeps the session open over several operations, so that they need one log-in.
    class Together {
      public:
        explicit Together(TokenSession& session) : session_(session) { ++session_.together_; }
        Together(const Together&) = delete;
        Together& operator=(const Together&) = delete;
        ~Together() {
            if (--session_.together_ == 0 && !session_.use_.keepOpen) session_.close();
        }

      private:
        TokenSession& session_;
    };

    /// Before a PIN is asked for: kKmCardBlocked for one that is locked; what the token says of the tries that are left
    /// goes to the user, who may keep the PIN back (kKmCancelled). Once until a log-in.
    [[nodiscard]] KeyManagerResult announce();
    [[nodiscard]] KeyManagerResult changePin(const SecretText& oldPin, const SecretText& newPin);
    /// Where a key wants a PIN each time; to be called between the beginning of an operation and the operation. The
    /// reason of a failure is left in `why`.
    [[nodiscard]] P11Result loginForKey(PKCS11Device& device, KeyManagerResult& why);

    [[nodiscard]] const P11TokenInfo& info() const { return token_.info; }
    [[nodiscard]] const std::string& reader() const { return token_.reader; }
    [[nodiscard]] PinSlot pinSlot() const { return use_.pin; }
    [[nodiscard]] PKCS11Device& device() { return token_.device; }
    [[nodiscard]] int slot() const { return token_.slot; }
    [[nodiscard]] ContextServices& context() const { return context_; }
    /// Whether the PIN is entered on the reader.
    [[nodiscard]] bool hasPinPad() const;
    /// Whether the token offers a mechanism; asked once.
    [[nodiscard]] bool offers(CK_MECHANISM_TYPE mechanism, CK_FLAGS use);
    /// Grows whenever handles of objects became worthless.
    [[nodiscard]] unsigned generation() const { return generation_; }

  private:
    [[nodiscard]] KeyManagerResult perform(const Work& work, bool loggedIn);
    [[nodiscard]] KeyManagerResult enter(bool loggedIn);
    [[nodiscard]] KeyManagerResult recognise();
    [[nodiscard]] KeyManagerResult prepareLogin();
    [[nodiscard]] KeyManagerResult askPin();
    [[nodiscard]] KeyManagerResult login();
    [[nodiscard]] KeyManagerResult loginTyped();
    [[nodiscard]] KeyManagerResult findAgain();
    [[nodiscard]] bool isSame(const P11TokenInfo& other) const;
    [[nodiscard]] KeyManagerResult resultOf(P11Result result) { return tokenResult(context_, token_.device, result); }

    /// A PIN that the token refused, as its salted digest.
    struct Refused {
        SecretArray<16> salt;
        Bytes digest;
    };
    /// Whether the token takes PINs of that length.
    [[nodiscard]] bool fits(const SecretText& pin) const;
    [[nodiscard]] static Bytes digestOf(const SecretArray<16>& salt, const SecretText& pin);
    [[nodiscard]] bool wasRefused(const SecretText& pin) const;
    void noteRefused(const SecretText& pin);

    ContextServices& context_;
    FoundToken token_;
    TokenUse use_;
    std::map<std::pair<CK_MECHANISM_TYPE, CK_FLAGS>, bool> offers_;
    std::optional<Refused> refused_;
    SecretText pin_;  // for the log-in that follows
    bool pinFromCache_ = false;
    unsigned generation_ = 0;
    int together_ = 0;
    bool loggedIn_ = false;
    bool announced_ = false;
};

using TokenSessionPtr = std::shared_ptr<TokenSession>;

/// Why a key on a token did not sign or decrypt.
class TokenFailure : public std::exception {
  public:
    explicit TokenFailure(KeyManagerResult result) : result_(result) {}
    [[nodiscard]] KeyManagerResult result() const noexcept { return result_; }
    [[nodiscard]] const char* what() const noexcept override { return resultText(result_); }

  private:
    KeyManagerResult result_;
};

}  // namespace crv
