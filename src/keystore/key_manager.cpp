// Opening and closing of the key store.
#include "keystore/key_manager.h"

#include <algorithm>
#include <new>

#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crvprofile.h"
#include "keystore/key_pairing.h"
#include "keystore/key_store_media.h"
#include "keystore/signed_configuration.h"
#include "keystore/stored_file.h"
#include "misc/exceptions.h"
#include "misc/logger.h"

namespace crv {

KeyManager::KeyManager(uint64_t generatorCycle)
    : generators_(generatorCycle), random_([this](std::span<uint8_t> out) {
          // A medium that nobody asks for random octets leaves the buffer as it is: never use that.
          return media_ && media_->randomSource() != RandomSource::Nobody && rbgFill(out) == kKmOk;
      }) {}

KeyManager::~KeyManager() = default;

void KeyManager::init(ContextServices& context) {
    VTEST(!context_, kKeyManagerPlace);
    context_ = &context;
}

void KeyManager::demand(std::initializer_list<State> states) const {
    VTEST(std::ranges::find(states, state_) != states.end(), kKeyManagerPlace);
}

bool KeyManager::wasCutOff() const {
    return media_ && media_->wasCutOff();
}

ConfigurationManager& KeyManager::configuration() const {
    VTEST(context_, kKeyManagerPlace);
    return context_->configuration();
}

KeyStoreMedia& KeyManager::media() const {
    VTEST(media_, kKeyManagerPlace);
    return *media_;
}

void KeyManager::selectMedia() {
    VTEST(context_, kKeyManagerPlace);
    if (!media_) media_ = KeyStoreMedia::create(*context_);
}

void KeyManager::forget() noexcept {
    try {
        if (media_) media_->logout();
    } catch (...) {  // a token that cannot be told is closed with its session
    }
    contents_ = {};
    media_.reset();
    startedFor_ = nullptr;
    trust_.clearAdditional();
    stored_.reset();
    deviceRecord_.reset();
    deviceStored_.clear();
    beforeInstall_.reset();
    recordBeforeInstall_.reset();
    historyFailure_ = {};
    unsaved_.reset();
    wipe(signedConfiguration_);
    generators_.clear();
    state_ = State::Closed;
    mode_ = OpenMode::LogIn;
    foreign_ = false;
    if (recordTaken_) context_->configuration().setRecord(nullptr);
    recordTaken_ = false;
}

void KeyManager::deinitProfile() noexcept {
    if (state_ == State::Open) context_->removePINs();
    forget();
}

void KeyManager::beginNewProfile() {
    forget();
    selectMedia();
    state_ = State::Creating;
}

KeyManagerResult KeyManager::deviceInit() {
    forget();
    selectMedia();
    const KeyManagerResult started = media().start();
    if (started == kKmOk) startedFor_ = configuration().profile();
    return started;
}

KeyManagerResult KeyManager::announceTokens() {
    demand({State::Closed});
    return media().announce();
}

bool KeyManager::wantsTypedPin(PinSlot slot) const {
    return !media_ || media_->wantsTypedPin(slot);
}

std::string KeyManager::tokenLabel(PinSlot slot) const {
    return media_ ? media_->tokenLabel(slot) : std::string();
}

std::vector<std::pair<std::string, std::string>> KeyManager::mediumDetails() {
    if (!media_) return {};
    return media_->details();
}

KeyManagerResult KeyManager::initProfile(int mode, bool readAdditional) {
    VTEST(mode >= static_cast<int>(OpenMode::LogIn) && mode <= static_cast<int>(OpenMode::ReadOnly), kKeyManagerPlace);
    // The token that was started is the one that the PIN is meant for.
    const bool started = startedFor_ && startedFor_ == configuration().profile();
    if (!started) forget();
    startedFor_ = nullptr;
    mode_ = static_cast<OpenMode>(mode);
    selectMedia();
    KeyManagerResult result = kKmNoMemory;
    try {
        result = openContents(readAdditional);
    } catch (const std::bad_alloc&) {
    } catch (...) {
        forget();
        throw;
    }
    if (result == kKmOk) state_ = State::Open;
    if (result != kKmOk && result != kKmNoSeed) forget();
    logLine(LogLevel::Info, "KeyManager::initProfile. END " + std::to_string(result));
    if (result != kKmOk) {
        logLine(LogLevel::Error, "log-in to profile \"" + configuration().profileName() + "\", file \"" +
                                     configuration().securityFileName() + "\": " + resultText(result));
    }
    return result;
}

KeyManagerResult KeyManager::openContents(bool readAdditional) {
    SecretText pin;
    if (const KeyManagerResult ready = media().announce(); ready != kKmOk) return ready;
    const auto together = media().together(false);
    KeyManagerResult result = media().needsPin() ? askPin(pin) : kKmOk;
    if (result == kKmOk) result = media().hasSecurityFile() ? readKeyFile(pin) : openDevice(pin);
    if (result == kKmOk && media().needsPin()) result = verifyConfiguration();
    if (result != kKmOk) return result;
    result = initRBGFromTheSeed();
    if (result != kKmOk) {
        logLine(LogLevel::Error, "KeyManager::initProfile. initRBGFromTheSeed return: " + std::to_string(result));
        return result;
    }
    if (!isReadOnly()) result = saveNewSeed();
    return result == kKmOk && readAdditional ? readAdditionalTrustedCA() : result;
}

KeyManagerResult KeyManager::askPin(SecretText& pin) {
    const PinResult answer = context_->getPIN(PinSlot::SigningToken, pin);
    if (answer == kPinWrong) return kKmWrongPassword;
    if (answer == kPinCancelled) return kKmCancelled;
    VTEST(answer == kPinOk, kKeyManagerPlace);
    return kKmOk;
}

bool KeyManager::ignoresSecurityFile() const {
    long ignore = 0;
    const bool read = configuration().profile()->getAttr(CRVPROFILE_ATTR_IGNORE_SFT_FILE, ignore) == kAttrOk;
    VTEST(read, kKeyManagerPlace);
    return ignore != 0;
}

bool KeyManager::recertificationAllowed() const {
    return configuration().record().allowsRecertification();
}

KeyManagerResult KeyManager::loadKey(const SecretText& password) {
    KeyManagerResult result = readKeyFile(password);
    if (result != kKmOk) return result;
    try {
        result = takeSignedConfiguration();
    } catch (...) {
        forget();
        throw;
    }
    if (result != kKmOk) forget();
    return result;
}

KeyManagerResult KeyManager::readKeyFile(const SecretText& password) {
    demand({State::Closed});
    selectMedia();
    VTEST(media().hasSecurityFile(), kKeyManagerPlace);
    Bytes octets;
    bool missing = false;
    if (const KeyManagerResult read = media().readFile(octets, missing); read != kKmOk) {
        const std::string path = configuration().securityFileName();
        if (read == kKmOpenFailed) {
            logLine(LogLevel::Error, path.empty() ? "KeyManager::loadKey. parameter ATTR_PKCS12_FILE not defined"
                                                  : "KeyManager::loadKey. Could not open file " + path);
        }
        return read;
    }
    if (media().wasCutOff()) logLine(LogLevel::Warning, "a write was cut off: " + configuration().securityFileName());
    const bool withSecrets = !ignoresSecurityFile();
    LoadedSecurityFile loaded;
    if (const KeyManagerResult read = readSecurityFile(octets, password, withSecrets, loaded, progress_); read != kKmOk)
        return read;
    const CRVCfgFile& record = loaded.configuration ? *loaded.configuration : configuration().record();
    KeyStoreContents contents;
    // What a signed record allows is known when it is verified.
    const bool recertification = !loaded.signedConfiguration.empty() || record.allowsRecertification();
    const KeyManagerResult paired = analyzeKeysAndCerts(loaded, recertification, contents);
    if (paired != kKmOk) return paired;
    stored_ = std::make_unique<StoredFile>(StoredFile{octets, contents});
    contents_ = std::move(contents);
    state_ = State::Unseeded;
    foreign_ = loaded.foreign;
    signedConfiguration_ = std::move(loaded.signedConfiguration);
    if (withSecrets) takeRecord(contents_.configuration);
    copyUserUnqualifiedTrustedCA();
    return kKmOk;
}

KeyManagerResult KeyManager::openDevice(const SecretText& pin) {
    KeyManagerResult result = media().login(pin);
    if (result == kKmOk) result = media().readKeys(contents_);
    Bytes encoding;
    if (result == kKmOk) result = readRecord(encoding);
    if (result != kKmOk) return result;
    state_ = State::Unseeded;
    if (encoding.empty()) return kKmOk;
    const auto record = CRVCfgFile::decodeRecord(encoding);
    if (!record) return kKmBadFormat;
    deviceRecord_ = record;
    takeRecord(record);
    copyUserUnqualifiedTrustedCA();
    return kKmOk;
}

KeyManagerResult KeyManager::readRecord(Bytes& encoding) {
    const Signer* key = signingKey();
    const RecordCheck check = [&](ByteView stored, Bytes& content) {
        // What was accepted before the user had a key stays good until the key signs.
        const bool known = deviceRecord_ && std::ranges::equal(stored, deviceStored_);
        const bool plain = known || !key;
        content = known ? toBytes(deviceRecord_->encoded()) : toBytes(stored);
        const KeyManagerResult good = plain ? kKmOk : verifySignedData(stored, key->publicKey(), content);
        if (good != kKmOk || !CRVCfgFile::decodeRecord(content)) return kKmBadSignature;
        deviceStored_ = toBytes(stored);
        return kKmOk;
    };
    return media().readConfiguration(check, encoding);
}

KeyManagerResult KeyManager::verifyConfiguration() {
    SecretText pin;
    const PinResult answer = context_->getPIN(PinSlot::SigningToken, pin);
    if (answer == kPinWrong) return kKmWrongPassword;
    if (answer != kPinOk) return kKmOk;
    if (pin.empty()) logLine(LogLevel::Info, "KeyManager::initProfile. crvCtx->getPIN sgnPIN is empty ");
    return takeSignedConfiguration();
}

KeyManagerResult KeyManager::takeSignedConfiguration() {
    if (signedConfiguration_.empty()) return kKmOk;
    const Signer* key = signingKey();
    Bytes content;
    const KeyManagerResult verified =
        key ? verifySignedData(signedConfiguration_, key->publicKey(), content) : kKmBadSignature;
    if (verified != kKmOk) return verified == kKmBadSignature ? kKmConfigurationSignature : verified;
    const auto record = CRVCfgFile::decodeRecord(content);
    if (!record) return kKmBadFormat;
    if (!record->allowsRecertification() && hasTwoNames(contents_)) return kKmKeyHasTwoNames;
    takeRecord(record);
    copyUserUnqualifiedTrustedCA();
    wipe(signedConfiguration_);
    return kKmOk;
}

void KeyManager::takeRecord(const std::shared_ptr<const CRVCfgFile>& record) {
    configuration().setRecord(record);
    recordTaken_ = true;
}

}  // namespace crv
