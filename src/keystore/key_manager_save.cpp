// Saving, and merging with what another session saved.
#include <algorithm>
#include <ctime>
#include <new>

#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "crypto/sign_algo_map.h"
#include "keystore/key_manager.h"
#include "keystore/key_pairing.h"
#include "keystore/key_store_media.h"
#include "keystore/signed_configuration.h"
#include "keystore/stored_file.h"
#include "misc/exceptions.h"

namespace crv {

KeyStoreContents KeyManager::currentContents() const {
    KeyStoreContents contents = contents_;
    contents.configuration = ignoresSecurityFile() ? nullptr : configuration().sharedRecord();
    return contents;
}

KeyManagerResult KeyManager::saveKey(const SecretText& password, int flags) {
    demand({State::Creating, State::Unseeded, State::Open});
    VTEST(media().hasSecurityFile(), kKeyManagerPlace);
    if (isReadOnly()) return kKmReadOnly;
    // A record that was not verified yet would be lost.
    if (!signedConfiguration_.empty()) return kKmConfigurationSignature;
    const bool newPassword = (flags & kSaveNewPassword) != 0;
    try {
        if (stored_ && !newPassword && !stored_->opensWith(password)) return kKmWrongPassword;
        KeyStoreContents contents = currentContents();
        if (const KeyManagerResult merged = mergeWithDisk(newPassword ? nullptr : &password, contents); merged != kKmOk)
            return merged;
        const CRVCfgFile& record = contents.configuration ? *contents.configuration : configuration().record();
        dropDeleted(contents, record);
        // Such a file would let nobody log in again.
        if (!record.allowsRecertification() && hasTwoNames(contents)) return kKmKeyHasTwoNames;
        return writeContents(std::move(contents), password);
    } catch (const std::bad_alloc&) {
        return kKmNoMemory;
    }
}

/// `password`: the one to save with; null when it is a new one, so that the file still has the one in the PIN cache.
KeyManagerResult KeyManager::mergeWithDisk(const SecretText* password, KeyStoreContents& contents) {
    Bytes octets;
    bool missing = false;
    const KeyManagerResult read = media().readFile(octets, missing);
    if (missing) return kKmOk;
    if (read != kKmOk) return read;
    if (stored_ && octets == stored_->octets) return kKmOk;
    SecretText current;
    if (!password && askPin(current) != kKmOk) return kKmWriteFailed;
    bool foreign = false;
    const KeyManagerResult merged =
        mergeWithFile(stored_.get(), octets, password ? *password : current, !ignoresSecurityFile(), contents, foreign);
    if (merged != kKmOk || !foreign) return merged;
    // Nobody was asked about this file: the next log-in does.
    if (!foreign_) return kKmForeignFile;
    return media().keepOriginal(octets) ? kKmOk : kKmWriteFailed;
}

KeyManagerResult KeyManager::writeContents(KeyStoreContents contents, const SecretText& password) {
    SecretArray<20> salt;
    if (const KeyManagerResult filled = rbgFill(salt); filled != kKmOk) return filled;
    Bytes octets;
    if (const KeyManagerResult built = buildSecurityFile(contents, password, salt, octets); built != kKmOk)
        return built;
    if (foreign_ && !media().keepOriginal(stored_->octets)) return kKmWriteFailed;
    if (const KeyManagerResult kept = keepHistory(contents, password); kept != kKmOk) return kept;
    // Everything that may fail comes before the write, so that memory and file never disagree.
    auto state = std::make_unique<StoredFile>(StoredFile{octets, contents});
    if (const KeyManagerResult written = media().writeFile(octets); written != kKmOk) return written;
    stored_ = std::move(state);
    foreign_ = false;
    if (contents.configuration) takeRecord(contents.configuration);
    configuration().setRecordChanged(false);
    contents_ = std::move(contents);
    beforeInstall_.reset();
    recordBeforeInstall_.reset();
    noteSaved();
    return kKmOk;
}

/// A save that only renews the seed, under the same password, loses nothing.
KeyManagerResult KeyManager::keepHistory(const KeyStoreContents& contents, const SecretText& password) {
    historyFailure_ = {};
    const CRVCfgFile& record = contents.configuration ? *contents.configuration : configuration().record();
    // What a deletion takes away is kept once even where no history is wanted.
    const long most = std::max(record.getStoreHistory(), historyDemanded_ ? 1L : 0L);
    Bytes now;
    bool missing = false;
    const KeyManagerResult read = media().readFile(now, missing);
    if (missing && state_ == State::Creating) historyFailure_ = media().sealHistory();
    if (most <= 0 || read != kKmOk) return kKmOk;
    const bool untouched = stored_ && now == stored_->octets;
    if (untouched && sameButSeed(contents, stored_->contents) && stored_->opensWith(password)) return kKmOk;
    historyFailure_ = media().keepInHistory(now, static_cast<size_t>(most));
    return historyFailure_.empty() || !historyDemanded_ ? kKmOk : kKmHistoryFailed;
}

void KeyManager::noteSaved() {
    if (state_ == State::Creating) state_ = State::Open;
}

KeyManagerResult KeyManager::saveNewSeed() {
    demand({State::Creating, State::Unseeded, State::Open});
    if (!media().hasSecurityFile() || ignoresSecurityFile() || !generatorsReady()) return kKmOk;
    RbgSeed seed;
    if (const KeyManagerResult filled = rbgFill(seed); filled != kKmOk) return filled;
    const auto before = contents_.seed;
    contents_.seed = seed;
    SecretText pin;
    KeyManagerResult result = askPin(pin);
    if (result == kKmOk) result = saveKey(pin, 0);
    if (result != kKmOk) contents_.seed = before;
    return result;
}

KeyManagerResult KeyManager::saveConfiguration() {
    demand({State::Creating, State::Unseeded, State::Open});
    if (media().hasSecurityFile()) {
        SecretText pin;
        const KeyManagerResult asked = askPin(pin);
        return asked == kKmOk ? saveKey(pin, 0) : asked;
    }
    return isReadOnly() ? kKmReadOnly : saveOnDevice();
}

KeyManagerResult KeyManager::saveOnDevice() {
    const auto together = media().together(true);
    if (!together) return kKmLockFailed;
    const auto record = configuration().sharedRecord();
    KeyStoreContents contents;
    contents.configuration = record;
    KeyManagerResult written = media().writeCertificates(contents_.userCerts);
    if (written == kKmOk) written = mergeWithDevice(contents);
    Bytes stored;
    if (written == kKmOk) written = signedRecord(*contents.configuration, stored);
    if (written == kKmOk) written = media().writeConfiguration(stored);
    if (written != kKmOk) return written;
    beforeInstall_.reset();
    recordBeforeInstall_.reset();
    deviceRecord_ = contents.configuration;
    deviceStored_ = std::move(stored);
    if (deviceRecord_ != record) {
        takeRecord(deviceRecord_);
        contents_.trustedCerts.clear();
        copyUserUnqualifiedTrustedCA();
    }
    configuration().setRecordChanged(false);
    noteSaved();
    return kKmOk;
}

/// As the medium keeps it.
KeyManagerResult KeyManager::signedRecord(const CRVCfgFile& record, Bytes& stored) {
    const Bytes encoding = toBytes(record.encoded());
    const Signer* key = media().signsConfiguration() ? signingKey() : nullptr;
    stored = encoding;
    if (!key) return kKmOk;
    const KeyScheme scheme = signingKeyType();
    const KcHashAlgo chosen = record.getHashAlgo(scheme);
    const KcHashAlgo hash = isHashSupported(scheme, chosen) ? chosen : CRVCfgFile().getHashAlgo(scheme);
    const CertPtr certificate = signingCertificate();
    return signData(encoding, {*key, certificate.get(), scheme, hash, std::time(nullptr)}, random_, stored);
}

KeyManagerResult KeyManager::mergeWithDevice(KeyStoreContents& contents) {
    Bytes encoding;
    KeyManagerResult read = readRecord(encoding);
    // Another session may have made the key that signed it.
    if (read == kKmConfigurationSignature && readKeysAgain() == kKmOk) read = readRecord(encoding);
    if (read != kKmOk) return read;
    if (encoding.empty()) return kKmOk;
    KeyStoreContents base, theirs;
    base.configuration = deviceRecord_;
    theirs.configuration = CRVCfgFile::decodeRecord(encoding);
    if (!theirs.configuration) return kKmDeviceError;
    contents = mergeContents(base, contents, theirs);
    return kKmOk;
}

KeyManagerResult KeyManager::readKeysAgain() {
    KeyStoreContents now;
    KeyManagerResult read = media().login({});
    if (read == kKmOk) read = media().readKeys(now);
    if (read == kKmOk) contents_.keys = std::move(now.keys);
    return read;
}

bool KeyManager::opensWith(const SecretText& password) const {
    return stored_ && stored_->opensWith(password);
}

KeyManagerResult KeyManager::changePin(const SecretText& oldPassword, const SecretText& newPassword) {
    demand({State::Open});
    const KeyManagerResult result = media().hasSecurityFile() ? saveKey(newPassword, kSaveNewPassword)
                                                              : media().changePin(oldPassword, newPassword);
    // From now on the old one opens nothing: it must not stay anywhere.
    if (result == kKmOk) context_->storePIN(PinSlot::SigningToken, newPassword);
    return result;
}

}  // namespace crv
