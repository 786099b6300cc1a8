#include "ops/session.h"

#include <algorithm>
#include <chrono>

#include "crypto/random_bridge.h"
#include "keystore/file_history.h"
#include "keystore/security_file.h"
#include "misc/atomic_write.h"
#include "misc/memory_file.h"
#include "misc/whole_file.h"
#include "ops/database_copy.h"
#include "ops/database_files.h"
#include "ops/export_file.h"
#include "ops/op_error.h"
#include "ops/password_rules.h"

namespace crv {
namespace {

constexpr size_t kSeedSize = 64;

struct StatusRow {
    KeyManagerResult result;
    OpStatus status;
};
/// Results that are no failure of the store itself.
constexpr StatusRow kStatuses[] = {
    {kKmWrongPassword, OpStatus::Secret},
    {kKmCancelled, OpStatus::Secret},
    {kKmNoDecryptionPin, OpStatus::Secret},
    {kKmNoRootsPassword, OpStatus::Secret},
    {kKmNoSigningKeyPin, OpStatus::Secret},
    {kKmWrongRootsPassword, OpStatus::Secret},
    {kKmWrongSigningKeyPin, OpStatus::Secret},
    {kKmCardBlocked, OpStatus::Secret},
    {kKmBadFormat, OpStatus::No},
    {kKmRootsFormat, OpStatus::No},
    {kKmUnknownKeyAlgorithm, OpStatus::No},
    {kKmConfigurationSignature, OpStatus::No},
    {kKmOpenFailed, OpStatus::Io},
    {kKmWriteFailed, OpStatus::Io},
    {kKmReadFailed, OpStatus::Io},
    {kKmLockFailed, OpStatus::Io},
    {kKmHistoryFailed, OpStatus::Io},
    {kKmDeviceError, OpStatus::Io},
    {kKmCardError, OpStatus::Io},
    {kKmLockGivenUp, OpStatus::Locked},
    {kKmKeyNotFound, OpStatus::Missing},
    {kKmNoKeyForCertificate, OpStatus::Missing},
    {kKmCardNotFound, OpStatus::Missing},
    {kKmDeviceNotFound, OpStatus::Missing},
    {kKmDeviceLibrary, OpStatus::Missing},
    {kKmTokenKeyNotFound, OpStatus::Missing},
    {kKmNotOnThisMedium, OpStatus::Refused},
    {kKmReadOnly, OpStatus::Refused},
    {kKmForeignFile, OpStatus::Refused},
    {kKmNoCaCertificate, OpStatus::Refused},
    {kKmBadSignature, OpStatus::Refused},
    {kKmTrustPointExists, OpStatus::Refused},
    {kKmRoleTaken, OpStatus::Refused},
    {kKmKeyExists, OpStatus::Refused},
    {kKmTrustPointRefused, OpStatus::Refused},
    {kKmHashNotSupported, OpStatus::Refused},
    {kKmCertificateExists, OpStatus::Refused},
    {kKmKeyHasTwoNames, OpStatus::Refused},
    {kKmKeyTooShort, OpStatus::Refused},
    {kKmCurveTooSmall, OpStatus::Refused},
    {kKmAlgorithmNotSupported, OpStatus::Refused},
    {kKmDsaNotSupported, OpStatus::Refused},
};

}  // namespace

void demandKeys(KeyManagerResult result) {
    if (result == kKmOk) return;
    stopIfEnding();
    const auto* row = std::ranges::find(kStatuses, result, &StatusRow::result);
    const OpStatus status = row == std::end(kStatuses) ? OpStatus::Internal : row->status;
    const int code = libraryCode(result);
    throw OpError(OpFault::KeyStoreFailed, status, code, resultText(result));
}

std::vector<FormerFile> readableHistory(const std::string& file) {
    HistoryFailure failure;
    std::vector<FormerFile> history = historyOf(file, &failure);
    if (!failure.empty()) throw OpError(OpFault::FileUnreadable, failure.text());
    return history;
}

namespace {

FormerFile formerFile(const std::string& file, const std::string& name) {
    const auto history = readableHistory(file);
    const auto former = std::ranges::find(history, name, &FormerFile::name);
    if (former == history.end()) throw OpError(OpFault::ObjectMissing, historyFolder(file) + name);
    return *former;
}

}  // namespace

KeysNotIn keysNotIn(const std::string& file, const std::string& name, const SecretText& password) {
    const FormerFile former = formerFile(file, name);
    KeysNotIn answer;
    LoadedSecurityFile then, now;
    const auto goOn = [] { return !processEnding(); };
    demandKeys(readSecurityFile(importFile(former.path), password, false, then, goOn));
    if (!fileExists(file)) return answer;
    answer.known = readSecurityFile(importFile(file), password, false, now, goOn) == kKmOk;
    for (const LoadedSecurityFile::Key& key : now.keys) {
        const KeyId id = key.key.keyId();
        const auto same = [&](const LoadedSecurityFile::Key& one) { return one.key.keyId() == id; };
        if (answer.known && std::ranges::none_of(then.keys, same)) answer.keys.push_back(id);
    }
    return answer;
}

void restoreFormerFile(const std::string& file, const std::string& name, const SecretText& password, bool write) {
    const FormerFile former = formerFile(file, name);
    const Bytes octets = importFile(former.path);
    MemoryFile memory(octets);
    demandKeys(checkPasswdGF(memory, password));
    if (!write) return;
    if (fileExists(file)) {
        const HistoryFailure failure = keepFormer(file, importFile(file), std::nullopt);
        if (!failure.empty()) throw HistoryError(failure);
    }
    if (!writeFileAtomically(file, octets, {.mode = WriteMode::Secret})) demandKeys(kKmWriteFailed);
}

Session::Session(FoundProfile found, const OpMode& mode) : mode_(mode), context_(std::make_unique<CRVctx>()) {
    context_->setProfile(std::move(found.profile));
}

KeyStoreAccess Session::access() {
    using Clock = std::chrono::steady_clock;
    const auto end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(mode_.waitSeconds));
    return {configuration(), keys(), {{}, [end] { return Clock::now() < end && !processEnding(); }}};
}

bool Session::hasFile() {
    return configuration().keyMedium() == KeyMedium::File;
}

void Session::demandFileProfile() {
    if (!hasFile()) throw OpError(OpFault::WrongKind, profile().name());
}

void Session::storePassword(const Secrets& secrets) {
    if (configuration().keyMedium() != KeyMedium::Token)
        context_->state.storePIN(PinSlot::SigningToken, secrets.password);
}

void Session::lock() {
    access_ = std::make_unique<KeyStoreAccess>(access());
    lock_ = std::make_unique<KeyStoreLock>(*access_);
    demandKeys(lock_->take());
}

void Session::openForReading(const Secrets& secrets) {
    if (!hasFile()) {
        storePassword(secrets);
        demandKeys(keys().deviceInit());
        return demandKeys(openKeyStore(access(), OpenMode::LogIn, false));
    }
    const std::string file = configuration().securityFileName();
    if (!fileExists(file)) throw OpError(OpFault::StoreMissing, file);
    shared_ = std::make_unique<TimedLock>(configuration().securityFileLockName(), OpMode{true, mode_.waitSeconds});
    demandKeys(keys().loadKey(secrets.password));
    context_->state.storePIN(PinSlot::SigningToken, secrets.password);
    if (!secrets.roots) return;
    context_->state.storePIN(PinSlot::Roots, *secrets.roots);
    demandKeys(keys().readAdditionalTrustedCA());
}

void Session::openForChange(const Secrets& secrets) {
    if (mode_.dryRun) return openForReading(secrets);
    const std::string file = configuration().securityFileName();
    if (hasFile() && !fileExists(file)) throw OpError(OpFault::StoreMissing, file);
    storePassword(secrets);
    if (secrets.roots) context_->state.storePIN(PinSlot::Roots, *secrets.roots);
    lock();
    if (!hasFile()) demandKeys(keys().deviceInit());
    logIn(secrets.roots.has_value());
}

void Session::logIn(bool withRoots) {
    KeyManagerResult result = openKeyStore(*access_, OpenMode::LogIn, withRoots);
    if (result == kKmNoSeed) {
        seed();
        demandKeys(saveKeyStore(*access_));
        result = openKeyStore(*access_, OpenMode::LogIn, withRoots);
    }
    demandKeys(result);
}

void Session::seed() {
    SecretArray<kSeedSize> material;
    if (!systemRandom(material)) throw OpError(OpFault::LibraryFailed, "getrandom");
    demandKeys(keys().rbgInit(material));
}

void Session::save() {
    if (!mode_.dryRun) demandKeys(saveKeyStore(*access_));
}

void Session::create(const SecretText& password, bool strong) {
    demandFileProfile();
    const std::string file = configuration().securityFileName();
    demandGoodPassword(password);
    if (!mode_.dryRun && !createDirectoryPath(folderOf(file), 0700))
        throw OpError(OpFault::FolderFailed, folderOf(file));
    if (!mode_.dryRun) lock();
    if (fileExists(file)) throw OpError(OpFault::StoreExists, file);
    if (mode_.dryRun) return;
    keys().beginNewProfile();
    keys().protectStrongly(strong);
    seed();
    configuration().resetRecord();
    context_->state.storePIN(PinSlot::SigningToken, password);
    save();
}

void Session::changePassword(const SecretText& password) {
    if (configuration().keyMedium() == KeyMedium::Token) return changePin(password);
    demandFileProfile();
    demandGoodPassword(password);
    if (!mode_.dryRun) demandKeys(changeKeyStorePassword(*access_, password));
}

void Session::protect(bool strong) {
    demandFileProfile();
    const bool before = keys().isStronglyProtected();
    keys().protectStrongly(strong);
    try {
        save();
    } catch (...) {
        keys().protectStrongly(before);
        throw;
    }
}

void Session::restoreFormer(const std::string& name, const SecretText& password) {
    demandFileProfile();
    if (!mode_.dryRun) lock();
    restoreFormerFile(configuration().securityFileName(), name, password, !mode_.dryRun);
}

void Session::clearHistory() {
    demandFileProfile();
    if (mode_.dryRun) return;
    lock();
    if (!crv::clearHistory(configuration().securityFileName()))
        throw OpError(OpFault::FileUnwritable, historyFolder(configuration().securityFileName()));
}

void Session::changePin(const SecretText& pin) {
    SecretText old;
    static_cast<void>(context_->state.getPIN(PinSlot::SigningToken, old, nullptr, false));
    if (!mode_.dryRun) demandKeys(keys().changePin(old, pin));
}

void Session::demandDatabase() {
    waitForDatabase(profile(), mode_);
    switch (context_->dbManager.isDbCreated()) {
        case DbState::Complete:
            return;
        case DbState::Missing:
            throw OpError(OpFault::DatabaseMissing, databaseName(profile()));
        default:
            failDatabase();
    }
}

void Session::storeFetched() {
    NetworkManager& network = context_->networkManager;
    if (mode_.dryRun) network.clearNetStore();
    if (!network.isNetStoreEmpty()) {
        // What came before somebody stopped it is as good as the rest.
        if (!processEnding()) demandDatabase();
        context_->state.warnings.clear();
        context_->moveFromNetStoreToDB();
        if (!context_->state.warnings.empty()) failDatabase();
    }
    stopIfEnding();
}

void Session::failDatabase() {
    stopIfEnding();
    const std::string& text = context_->dbManager.lastFailure();
    throw OpError(OpFault::DatabaseFailed, text.empty() ? databaseName(profile()) : text);
}

}  // namespace crv
