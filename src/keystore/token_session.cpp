#include "keystore/token_session.h"

#include <algorithm>

#include "crypto/kc_hash.h"
#include "crypto/random_bridge.h"
#include "misc/logger.h"

namespace crv {
namespace {

struct RvRow {
    CK_RV rv;
    KeyManagerResult result;
};

/// What is not listed is a failed communication.
constexpr RvRow kRvResults[] = {
    {CKR_PIN_INCORRECT, kKmWrongPassword},
    {CKR_PIN_INVALID, kKmWrongPassword},
    {CKR_PIN_LEN_RANGE, kKmWrongPassword},
    {CKR_PIN_EXPIRED, kKmWrongPassword},
    {CKR_PIN_TOO_WEAK, kKmWrongPassword},
    {CKR_PIN_LOCKED, kKmCardBlocked},
    {CKR_TOKEN_NOT_PRESENT, kKmCardNotFound},
    {CKR_TOKEN_NOT_RECOGNIZED, kKmCardNotFound},
    {CKR_DEVICE_REMOVED, kKmCardNotFound},
    {CKR_SLOT_ID_INVALID, kKmCardNotFound},
    {CKR_CANCEL, kKmCancelled},
    {CKR_FUNCTION_CANCELED, kKmCancelled},
    {CKR_HOST_MEMORY, kKmNoMemory},
    {CKR_DEVICE_MEMORY, kKmCardFileSystem},
    {CKR_CRYPTOKI_NOT_INITIALIZED, kKmPkcs11NotInitialised},
};

constexpr struct {
    P11Result answer;
    KeyManagerResult result;
} kP11Results[] = {
    {kP11Ok, kKmOk},
    {kP11NoMemory, kKmNoMemory},
    {kP11LoadFailed, kKmPkcs11Init},
    {kP11NoInterface, kKmPkcs11Init},
    {kP11NotFound, kKmTokenKeyNotFound},
    {kP11NoToken, kKmCardNotFound},
    {kP11BadSlot, kKmCardNotFound},
};

/// After these the token may have been taken out, if only for a moment.
constexpr CK_RV kGone[] = {CKR_DEVICE_REMOVED,         CKR_TOKEN_NOT_PRESENT,    CKR_SESSION_CLOSED,
                           CKR_SESSION_HANDLE_INVALID, CKR_SESSION_COUNT,        CKR_OBJECT_HANDLE_INVALID,
                           CKR_KEY_HANDLE_INVALID,     CKR_USER_NOT_LOGGED_IN,   CKR_DEVICE_ERROR,
                           CKR_GENERAL_ERROR,          CKR_TOKEN_NOT_RECOGNIZED, CKR_SLOT_ID_INVALID};

bool mayBeGone(KeyManagerResult result, CK_RV rv) {
    return result == kKmTokenKeyNotFound || result == kKmCardNotFound ||
           (result == kKmCardError && std::ranges::find(kGone, rv) != std::end(kGone));
}

KeyManagerResult withoutPin(PinSlot slot) {
    return slot == PinSlot::DecryptionToken ? kKmNoDecryptionPin : kKmCancelled;
}

}  // namespace

KeyManagerResult tokenResult(ContextServices& context, const PKCS11Device& device, P11Result result) {
    for (const auto& row : kP11Results)
        if (row.answer == result) return row.result;
    context.setLastPkcs11Rv(device.lastRv());
    const auto* row =
        result == kP11ModuleError ? std::ranges::find(kRvResults, device.lastRv(), &RvRow::rv) : std::end(kRvResults);
    return row == std::end(kRvResults) ? kKmCardError : row->result;
}

TokenSession::TokenSession(ContextServices& context, FoundToken token, const TokenUse& use)
    : context_(context), token_(std::move(token)), use_(use) {}

TokenSession::~TokenSession() {
    close();
}

void TokenSession::close() noexcept {
    PKCS11Device& device = token_.device;
    if (device.hasSession() && loggedIn_) static_cast<void>(device.logout());
    if (device.hasSession()) device.closeSession();
    loggedIn_ = false;
}

bool TokenSession::hasPinPad() const {
    return use_.externalPin || (use_.detectExternal && (token_.info.flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0);
}

bool TokenSession::offers(CK_MECHANISM_TYPE mechanism, CK_FLAGS use) {
    const auto [known, added] = offers_.try_emplace({mechanism, use}, false);
    if (added) known->second = token_.device.offers(token_.slot, mechanism, use);
    return known->second;
}

bool TokenSession::isSame(const P11TokenInfo& other) const {
    return other.label == token_.info.label && other.serial == token_.info.serial;
}

KeyManagerResult TokenSession::perform(const Work& work, bool loggedIn) {
    for (bool again = false;; again = true) {
        // Nobody else waits for the module while the user types.
        KeyManagerResult result = loggedIn ? prepareLogin() : kKmOk;
        const auto together = token_.device.hold();
        if (result == kKmOk) result = enter(loggedIn);
        if (result == kKmOk) result = work(token_.device);
        const CK_RV rv = token_.device.lastRv();
        if (!use_.keepOpen && together_ == 0) close();
        if (again || !mayBeGone(result, rv)) return result;
        logLine(LogLevel::Info, "token \"" + token_.info.label + "\": looked for again after: " + resultText(result));
        close();
        if (const KeyManagerResult found = findAgain(); found != kKmOk) return found;
    }
}

KeyManagerResult TokenSession::enter(bool loggedIn) {
    PKCS11Device& device = token_.device;
    if (device.isSessionGone()) close();
    if (!device.hasSession()) {
        ++generation_;
        loggedIn_ = false;
        P11Result opened = device.openSession(token_.slot, true);
        if (opened == kP11ModuleError && device.lastRv() == CKR_TOKEN_WRITE_PROTECTED)
            opened = device.openSession(token_.slot, false);
        if (opened != kP11Ok) return resultOf(opened);
    }
    if (!loggedIn || loggedIn_) return kKmOk;
    const KeyManagerResult result = login();
    loggedIn_ = result == kKmOk;
    if (!loggedIn_) close();
    return result;
}

KeyManagerResult TokenSession::findAgain() {
    PKCS11Device& device = token_.device;
    if (const P11Result restarted = device.restart(); restarted != kP11Ok) return resultOf(restarted);
    if (const P11Result listed = device.initSlots(true); listed != kP11Ok) return resultOf(listed);
    for (int slot = 0; slot < device.slotCount(); ++slot) {
        P11TokenInfo info;
        if (device.getTokenInfo(slot, info) != kP11Ok || !isSame(info)) continue;
        token_.slot = slot;
        token_.info = info;
        return kKmOk;
    }
    return kKmCardNotFound;
}

KeyManagerResult TokenSession::recognise() {
    P11TokenInfo now;
    if (const P11Result read = token_.device.getTokenInfo(token_.slot, now); read != kP11Ok) return resultOf(read);
    // Another token in the reader gets no PIN of this one.
    if (!isSame(now)) return kKmCardNotFound;
    token_.info = now;
    return now.flags & CKF_USER_PIN_LOCKED ? kKmCardBlocked : kKmOk;
}

KeyManagerResult TokenSession::announce() {
    const KeyManagerResult known = recognise();
    if (known != kKmOk || announced_) return known;
    const P11TokenInfo& now = token_.info;
    if ((now.flags & CKF_USER_PIN_FINAL_TRY) && !context_.tokenNotice(TokenNotice::FinalTry, now.label))
        return kKmCancelled;
    const bool few = (now.flags & CKF_USER_PIN_COUNT_LOW) && !(now.flags & CKF_USER_PIN_FINAL_TRY);
    if (few) static_cast<void>(context_.tokenNotice(TokenNotice::FewTries, now.label));
    announced_ = true;
    return kKmOk;
}

KeyManagerResult TokenSession::prepareLogin() {
    const bool open = token_.device.hasSession() && !token_.device.isSessionGone();
    if (open && loggedIn_) return kKmOk;
    const KeyManagerResult may = announce();
    return may == kKmOk && !hasPinPad() ? askPin() : may;
}

KeyManagerResult TokenSession::askPin() {
    const PinResult answer = context_.getPIN(use_.pin, pin_, &pinFromCache_);
    if (answer == kPinWrong) return kKmWrongPassword;
    if (answer != kPinOk) return withoutPin(use_.pin);
    return fits(pin_) && !(pinFromCache_ && wasRefused(pin_)) ? kKmOk : kKmWrongPassword;
}

KeyManagerResult TokenSession::login() {
    announced_ = false;
    // The token may have been exchanged while the user typed.
    if (const KeyManagerResult known = recognise(); known != kKmOk) return known;
    if (!hasPinPad()) return loginTyped();
    static_cast<void>(context_.tokenNotice(TokenNotice::PinOnReader, token_.info.label));
    return resultOf(token_.device.login(nullptr, 0, CKU_USER, true));
}

KeyManagerResult TokenSession::loginTyped() {
    const SecretText pin = std::move(pin_);
    const KeyManagerResult result = resultOf(token_.device.login(pin.c_str(), pin.size(), CKU_USER, false));
    if (result == kKmWrongPassword) noteRefused(pin);
    if (result == kKmOk) refused_.reset();
    return result;
}

bool TokenSession::fits(const SecretText& pin) const {
    return pin.size() >= info().minPin && (info().maxPin == 0 || pin.size() <= info().maxPin);
}

Bytes TokenSession::digestOf(const SecretArray<16>& salt, const SecretText& pin) {
    SecretBytes salted(salt.begin(), salt.end());
    salted.insert(salted.end(), pin.bytes().begin(), pin.bytes().end());
    return hashOf(KcHashAlgo::Sha256, salted);
}

bool TokenSession::wasRefused(const SecretText& pin) const {
    return refused_ && digestOf(refused_->salt, pin) == refused_->digest;
}

void TokenSession::noteRefused(const SecretText& pin) {
    Refused refused;
    if (!systemRandom(refused.salt)) return;
    refused.digest = digestOf(refused.salt, pin);
    refused_ = refused;
}

KeyManagerResult TokenSession::changePin(const SecretText& oldPin, const SecretText& newPin) {
    if (!hasPinPad() && !fits(newPin)) return kKmWrongPassword;
    return run([&](PKCS11Device& device) { return resultOf(device.changePIN(oldPin, newPin, hasPinPad())); });
}

P11Result TokenSession::loginForKey(PKCS11Device& device, KeyManagerResult& why) {
    SecretText pin;
    const bool pad = hasPinPad();
    if (pad) static_cast<void>(context_.tokenNotice(TokenNotice::PinOnReader, info().label));
    if (!pad && context_.getPIN(PinSlot::SigningKey, pin) != kPinOk) {
        why = kKmNoSigningKeyPin;
        return kP11NoParameters;
    }
    const P11Result result = device.login(pin.c_str(), pin.size(), CKU_CONTEXT_SPECIFIC, pad);
    const KeyManagerResult meaning = resultOf(result);
    why = meaning == kKmWrongPassword ? kKmWrongSigningKeyPin : meaning;
    return result;
}

}  // namespace crv
