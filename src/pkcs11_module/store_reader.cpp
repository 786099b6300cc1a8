#include "pkcs11_module/store_reader.h"

#include <algorithm>

#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crvprofile.h"
#include "crypto/self_test.h"
#include "db_sql/db_layout.h"
#include "keystore/key_store_door.h"
#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/logger.h"
#include "misc/utf8.h"
#include "ops/database_files.h"
#include "ops/lock_wait.h"
#include "ops/op_error.h"
#include "ops/password_rules.h"
#include "pkcs11_module/refusal.h"
#include "profiles/crv_profile.h"

namespace crv::p11 {
namespace {

constexpr size_t kSeedSize = 64;

/// What a key manager knows of its user here: one password, nobody to ask.
class ModuleContext final : public ContextServices {
  public:
    ModuleContext(std::unique_ptr<CrvProfile> profile, const SecretText& password) : password_(password) {
        configuration_.setProfile(std::move(profile));
    }

    ConfigurationManager& configuration() override { return configuration_; }
    PinResult getPIN(PinSlot slot, SecretText& pin, bool* fromCache, bool) override {
        const bool known = slot == PinSlot::SigningToken;
        if (fromCache) *fromCache = known;
        pin = known ? password_ : SecretText();
        return known ? kPinOk : kPinCancelled;
    }
    void storePIN(PinSlot slot, const SecretText& pin) override {
        if (slot == PinSlot::SigningToken) password_ = pin;
    }
    bool tokenNotice(TokenNotice, const std::string&) override { return true; }
    void removePINs() override { password_.clear(); }
    void report(std::string_view) override {}
    void addWarning(int) override {}
    void setDiagnosticText(std::string_view) override {}
    void setLastDeviceError(unsigned) override {}
    void setLastPkcs11Rv(unsigned long) override {}

  private:
    ConfigurationManager configuration_;
    SecretText password_;
};

/// A profile with its key manager for the time of one call.
struct OpenProfile {
    OpenProfile(const ListedProfile& listed, const SecretText& password)
        : context(recordOf(listed), password), access{context.configuration(), keys, {{}, [] { return false; }}} {
        keys.init(context);
        demand(FileStamp::of(listed.keyFile).there, CKR_DEVICE_REMOVED);
    }

    /// What is needed of the list's record; the list itself may be unreadable by now.
    static std::unique_ptr<CrvProfile> recordOf(const ListedProfile& listed) {
        auto profile = CrvProfile::create(static_cast<long>(ProfileKind::Pkcs12));
        demand(profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, listed.keyFile) == kAttrOk, CKR_DEVICE_ERROR);
        if (listed.rootsFile.empty()) return profile;
        demand(profile->setAttr(CRVPROFILE_ATTR_ROOTS_FILE, listed.rootsFile) == kAttrOk, CKR_DEVICE_ERROR);
        demand(profile->setAttr(CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, 1) == kAttrOk, CKR_DEVICE_ERROR);
        return profile;
    }

    ModuleContext context;
    KeyManager keys;
    KeyStoreAccess access;
};

struct RvRow {
    KeyManagerResult result;
    CK_RV rv;
};
constexpr RvRow kRvRows[] = {
    {kKmWrongPassword, CKR_PIN_INCORRECT},
    {kKmPasswordNotText, CKR_PIN_INCORRECT},
    {kKmNoMemory, CKR_HOST_MEMORY},
    {kKmReadOnly, CKR_TOKEN_WRITE_PROTECTED},
    {kKmWriteFailed, CKR_DEVICE_ERROR},
    {kKmForeignFile, CKR_TOKEN_WRITE_PROTECTED},
    {kKmLockFailed, CKR_TOKEN_WRITE_PROTECTED},
    {kKmLockGivenUp, kBusy},
};

void demandKeys(KeyManagerResult result, const ListedProfile& profile) {
    if (result == kKmOk) return;
    const auto* row = std::ranges::find(kRvRows, result, &RvRow::result);
    const CK_RV rv = row == std::end(kRvRows) ? CKR_DEVICE_ERROR : row->rv;
    // Another program may have deleted it a moment ago.
    demand(FileStamp::of(profile.keyFile).there, CKR_DEVICE_REMOVED);
    if (rv == CKR_DEVICE_ERROR) logLine(LogLevel::Error, profile.keyFile + ": " + resultText(result));
    throw Refusal{rv};
}

CK_RV faultOf(const SecretText& password) {
    if (password.size() > 254) return CKR_PIN_LEN_RANGE;
    if (password.view().find('\0') != std::string_view::npos || !isUtf8(password.view())) return CKR_PIN_INVALID;
    const int fault = passTest(password.c_str());
    return fault == kPasswordGood ? CKR_OK : fault == kPasswordTooShort ? CKR_PIN_LEN_RANGE : CKR_PIN_INVALID;
}

void logIn(OpenProfile& open, const ListedProfile& profile) {
    KeyManagerResult result = openKeyStore(open.access, OpenMode::LogIn, false);
    if (result == kKmNoSeed) {
        SecretArray<kSeedSize> material;
        demand(systemRandom(material), CKR_DEVICE_ERROR);
        demandKeys(open.keys.rbgInit(material), profile);
        demandKeys(saveKeyStore(open.access), profile);
        result = openKeyStore(open.access, OpenMode::LogIn, false);
    }
    demandKeys(result, profile);
}

}  // namespace

ReadStore readStore(const ListedProfile& profile, const SecretText& password) try {
    requireSelfTests();  // before the first key, as in the library
    OpenProfile open(profile, password);
    const TimedLock lock(open.context.configuration().securityFileLockName(), OpMode{true, 0});
    demandKeys(open.keys.loadKey(password), profile);
    // The keys do not need the additional trust points.
    if (const KeyManagerResult roots = open.keys.readAdditionalTrustedCA(); roots != kKmOk)
        logLine(LogLevel::Error, "PKCS#11 module: " + profile.rootsFile + ": " + resultText(roots));
    ReadStore store;
    store.contents.keys.assign(open.keys.keys().begin(), open.keys.keys().end());
    store.contents.userCerts = open.keys.userCerts();
    for (TrustPoint& point : open.keys.trustedPoints()) store.trusted.push_back(std::move(point.certificate));
    return store;
} catch (const OpError& error) {
    throw Refusal{error.fault() == OpFault::LockBusy ? kBusy : CKR_DEVICE_ERROR};
}

void readDatabase(const ListedProfile& profile, const std::function<void(ByteView der)>& visit) {
    const auto refuse = [&](const std::string& why) {
        logLine(LogLevel::Error, "PKCS#11 module: no certificates of the database " + profile.dbLock + ": " + why);
        throw Refusal{CKR_DEVICE_ERROR};
    };
    try {
        DatabaseFiles files(folderOf(profile.dbLock), OpMode{true, 0});
        if (!files.isWhole()) refuse("it needs mending, which the console does when it opens it");
        const auto take = [&](const DbRecordView& record) {
            if (record.live) visit(record.body);
        };
        files.records(std::string(crtTb.file), take, false);
    } catch (const OpError& error) {
        if (error.fault() == OpFault::LockBusy) throw Refusal{kBusy};
        if (error.fault() != OpFault::DatabaseMissing) refuse(error.what());
    } catch (const StoreError& error) {
        refuse(error.what());
    }
}

void changePassword(const ListedProfile& profile, const SecretText& password, const SecretText& newPassword) {
    requireSelfTests();  // before the first key, as in the library
    demand(faultOf(newPassword) == CKR_OK, faultOf(newPassword));
    OpenProfile open(profile, password);
    KeyStoreLock lock(open.access);
    demandKeys(lock.take(), profile);
    logIn(open, profile);
    const KeyManagerResult changed = lock.release(changeKeyStorePassword(open.access, newPassword));
    // A lock that cannot be given back does not undo what was saved.
    if (changed == kKmLockFailed && open.keys.opensWith(newPassword)) return;
    demandKeys(changed, profile);
}

}  // namespace crv::p11
