// Module, slots and session.
#include "pkcs11/p11_device.h"

#include <unistd.h>

#include <utility>

#include "misc/exceptions.h"
#include "misc/logger.h"
#include "pkcs11/ckr_name.h"
#include "pkcs11/p11_device_call.h"

namespace crv {
namespace {

constexpr const char* kPlace = "src/src/p11dev";
constexpr int kListTries = 5;

template <size_t N>
std::string textOf(const unsigned char (&text)[N]) {
    return p11Text(text, N);
}

std::string versionOf(const CK_VERSION& version) {
    return std::to_string(version.major) + "." + std::to_string(version.minor);
}

CK_UTF8CHAR* charsOf(const char* text) {
    // Modules only read it.
    return reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(text));
}

}  // namespace

PKCS11Device::PKCS11Device(PKCS11Device&& other) noexcept
    : path_(std::exchange(other.path_, {})),
      library_(std::exchange(other.library_, nullptr)),
      lock_(std::move(other.lock_)),
      slots_(std::move(other.slots_)),
      slot_(std::exchange(other.slot_, -1)),
      session_(std::exchange(other.session_, kNoSession)),
      epoch_(other.epoch_),
      lastRv_(other.lastRv_) {}

PKCS11Device::~PKCS11Device() {
    if (library_) static_cast<void>(initLibMap());
}

P11Result PKCS11Device::check(const char* function, const char* name, CK_RV rv) {
    return rv == CKR_OK ? kP11Ok : reportError(function, name, kP11ModuleError, rv);
}

P11Result PKCS11Device::reportError(const char* function, const char* name, P11Result code, CK_RV rv) {
    lastRv_ = rv;
    if (logEnabled(LogLevel::Error)) {
        logLine(LogLevel::Error, std::string("PKCS11Device::reportError. ") + function + ": " + name +
                                     " zwróciła błąd: " + getP11DErrTxt(code) +
                                     (code == kP11ModuleError ? " " + ckrName(rv) : ""));
    }
    return code;
}

P11Result PKCS11Device::initLibMap(const std::string& path, bool osLocking) {
    auto& manager = Pkcs11LibraryManager::instance();
    if (library_) {
        logLine(LogLevel::Info, "Run PKCS11Device::initLibMap deinit library");
        if (hasSession()) closeSession();
        slots_.clear();
        lock_.reset();
        library_.reset();
        manager.decrementCount(path_);
    }
    if (path.empty()) return kP11Ok;
    logLine(LogLevel::Info, "Run PKCS11Device::initLibMap init library: " + path);
    P11LoadFailure failure;
    library_ = manager.load(path, osLocking, failure);
    if (!library_) return reportError("initLibMap", failure.call, failure.result, failure.rv);
    path_ = path;
    manager.incrementCount(path);
    lock_ = std::make_unique<P11Lock>(*library_);
    return kP11Ok;
}

PKCS11Device PKCS11Device::cloneDevice() const {
    PKCS11Device clone;
    if (library_ && clone.initLibMap(path_, library_->osLocking) == kP11Ok) clone.slots_ = slots_;
    return clone;
}

P11Result PKCS11Device::initSlots(bool tokenPresent) {
    const CK_BBOOL withToken = tokenPresent ? CK_TRUE : CK_FALSE;
    const CK_C_GetSlotList CK_FUNCTION_LIST::*list = &CK_FUNCTION_LIST::C_GetSlotList;
    CK_RV rv = CKR_BUFFER_TOO_SMALL;
    std::vector<CK_SLOT_ID> slots;
    for (int i = 0; i < kListTries && rv == CKR_BUFFER_TOO_SMALL; ++i) {
        CK_ULONG count = 0;
        rv = call(list, withToken, static_cast<CK_SLOT_ID*>(nullptr), &count);
        if (rv == CKR_OK && count > kMaxP11Objects) return reportError("initSlots", "C_GetSlotList", kP11TooMany);
        slots.resize(rv == CKR_OK ? count : 0);
        if (rv == CKR_OK && count > 0) rv = call(list, withToken, slots.data(), &count);
        if (rv == CKR_OK && count > slots.size()) return reportError("initSlots", "C_GetSlotList", kP11BadData);
        if (rv == CKR_OK) slots.resize(count);
    }
    if (rv != CKR_OK) return check("initSlots", "C_GetSlotList", rv);
    slots_ = std::move(slots);
    logLine(LogLevel::Info, "PKCS11Device::initSlots. Number of slots: " + std::to_string(slots_.size()));
    return kP11Ok;
}

P11Result PKCS11Device::getSlotInfo(int slot, P11SlotInfo& info) {
    if (!isSlot(slot)) return reportError("getSlotInfo", "C_GetSlotInfo", kP11BadSlot);
    CK_SLOT_INFO raw{};
    const P11Result result =
        check("getSlotInfo", "C_GetSlotInfo", call(&CK_FUNCTION_LIST::C_GetSlotInfo, slotId(slot), &raw));
    info = {textOf(raw.slotDescription), textOf(raw.manufacturerID), (raw.flags & CKF_TOKEN_PRESENT) != 0};
    return result;
}

P11Result PKCS11Device::getTokenInfo(int slot, P11TokenInfo& info) {
    if (!isSlot(slot)) return reportError("getTokenInfo", "C_GetTokenInfo", kP11BadSlot);
    CK_TOKEN_INFO raw{};
    const CK_RV rv = call(&CK_FUNCTION_LIST::C_GetTokenInfo, slotId(slot), &raw);
    if (rv == CKR_TOKEN_NOT_PRESENT) return reportError("getTokenInfo", "C_GetTokenInfo", kP11NoToken);
    info = {textOf(raw.label),
            textOf(raw.manufacturerID),
            textOf(raw.model),
            textOf(raw.serialNumber),
            versionOf(raw.firmwareVersion),
            raw.flags,
            raw.ulMinPinLen,
            raw.ulMaxPinLen,
            std::nullopt};
    if (raw.ulFreePrivateMemory != CK_UNAVAILABLE_INFORMATION) info.freePrivate = raw.ulFreePrivateMemory;
    return check("getTokenInfo", "C_GetTokenInfo", rv);
}

P11Result PKCS11Device::getLibInfo(P11LibInfo& info) {
    CK_INFO raw{};
    const P11Result result = check("getLibInfo", "C_GetInfo", call(&CK_FUNCTION_LIST::C_GetInfo, &raw));
    info = {textOf(raw.manufacturerID), textOf(raw.libraryDescription), versionOf(raw.libraryVersion)};
    return result;
}

bool PKCS11Device::offers(int slot, CK_MECHANISM_TYPE mechanism, CK_FLAGS use) {
    CK_MECHANISM_INFO raw{};
    return isSlot(slot) && call(&CK_FUNCTION_LIST::C_GetMechanismInfo, slotId(slot), mechanism, &raw) == CKR_OK &&
           (raw.flags & use) == use;
}

P11Result PKCS11Device::getKeyMechanisms(int slot, std::span<const CK_MECHANISM_TYPE> uses,
                                         CK_MECHANISM_TYPE generation, P11KeyMechanisms& info) {
    if (!isSlot(slot)) return reportError("getMechanismInfo", "C_GetMechanismInfo", kP11BadSlot);
    info = {};
    CK_MECHANISM_INFO raw{};
    if (call(&CK_FUNCTION_LIST::C_GetMechanismInfo, slotId(slot), generation, &raw) == CKR_OK &&
        (raw.flags & CKF_GENERATE_KEY_PAIR))
        info = {.generates = true, .minBits = raw.ulMinKeySize, .maxBits = raw.ulMaxKeySize};
    for (const CK_MECHANISM_TYPE use : uses) {
        info.signs = info.signs || offers(slot, use, CKF_SIGN);
        info.decrypts = info.decrypts || offers(slot, use, CKF_DECRYPT);
    }
    return kP11Ok;
}

P11Result PKCS11Device::getRSAMechanismInfo(int slot, P11KeyMechanisms& info) {
    constexpr CK_MECHANISM_TYPE kUses[] = {CKM_RSA_PKCS, CKM_RSA_X_509, CKM_SHA256_RSA_PKCS, CKM_RSA_PKCS_OAEP};
    return getKeyMechanisms(slot, kUses, CKM_RSA_PKCS_KEY_PAIR_GEN, info);
}

P11Result PKCS11Device::getDSAMechanismInfo(int slot, P11KeyMechanisms& info) {
    constexpr CK_MECHANISM_TYPE kUses[] = {CKM_DSA, CKM_DSA_SHA1};
    return getKeyMechanisms(slot, kUses, CKM_DSA_KEY_PAIR_GEN, info);
}

P11Result PKCS11Device::restart() {
    forgetSession();
    const P11Lock::Hold together(*lock_);
    return check("restart", "C_Initialize", Pkcs11LibraryManager::instance().restart(*library_));
}

P11Result PKCS11Device::openSession(int slot, bool readWrite) {
    if (hasSession()) failAssertion("isSession != -1", kPlace, __LINE__);
    if (!isSlot(slot)) failAssertion("slotIdx < 0 || slotIdx >= slotNum", kPlace, __LINE__);
    logLine(LogLevel::Info, "Run PKCS11Device::openSession");
    CK_SESSION_HANDLE opened = kNoSession;
    const CK_FLAGS flags = CKF_SERIAL_SESSION | (readWrite ? CKF_RW_SESSION : 0);
    const CK_RV rv = call(&CK_FUNCTION_LIST::C_OpenSession, slotId(slot), flags, static_cast<void*>(nullptr),
                          CK_NOTIFY{nullptr}, &opened);
    if (rv != CKR_OK) return check("openSession", "C_OpenSession", rv);
    session_ = opened;
    slot_ = slot;
    epoch_ = library_->epoch;
    logLine(LogLevel::Info, "PKCS11Device::openSession. Opened session handle: " + std::to_string(opened) +
                                " for slot: " + std::to_string(slotId(slot)));
    return kP11Ok;
}

P11Result PKCS11Device::closeSession() {
    if (!hasSession()) return reportError("closeSession", "C_CloseSession", kP11NoSession);
    const CK_RV rv = callSession(&CK_FUNCTION_LIST::C_CloseSession);
    forgetSession();
    return check("closeSession", "C_CloseSession", rv);
}

void PKCS11Device::forgetSession() {
    session_ = kNoSession;
    slot_ = -1;
}

bool PKCS11Device::isSessionGone() const {
    return hasSession() && (library_->pid != getpid() || epoch_ != library_->epoch);
}

P11Result PKCS11Device::login(const char* pin, size_t length, CK_USER_TYPE user, bool externalPin) {
    logLine(LogLevel::Info, "Run PKCS11Device::login BEGIN");
    if (!hasSession()) failAssertion("isSession == -1", kPlace, __LINE__);
    CK_UTF8CHAR* const given = externalPin ? nullptr : charsOf(pin);
    const CK_ULONG size = externalPin ? 0 : length;
    const CK_RV rv = callSession(&CK_FUNCTION_LIST::C_Login, user, given, size);
    const char* const name = externalPin ? "C_Login external PIN" : "C_Login PIN";
    const P11Result result = rv == CKR_USER_ALREADY_LOGGED_IN ? kP11Ok : check("login", name, rv);
    logLine(LogLevel::Info, "Run PKCS11Device::login END ");
    return result;
}

P11Result PKCS11Device::logout() {
    if (!hasSession()) return reportError("logout", "C_Logout", kP11NoSession);
    return check("logout", "C_Logout", callSession(&CK_FUNCTION_LIST::C_Logout));
}

P11Result PKCS11Device::changePIN(const SecretText& oldPin, const SecretText& newPin, bool externalPin) {
    if (!hasSession()) return reportError("changePIN", "C_SetPIN", kP11NoSession);
    const auto chars = [&](const SecretText& pin) { return externalPin ? nullptr : charsOf(pin.c_str()); };
    const auto size = [&](const SecretText& pin) { return externalPin ? CK_ULONG{0} : CK_ULONG{pin.size()}; };
    return check("changePIN", "C_SetPIN",
                 callSession(&CK_FUNCTION_LIST::C_SetPIN, chars(oldPin), size(oldPin), chars(newPin), size(newPin)));
}

}  // namespace crv
