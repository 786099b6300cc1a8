// The user's keys and certificates.
#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "crypto/private_key.h"
#include "keystore/key_manager.h"
#include "keystore/key_pairing.h"
#include "keystore/key_store_media.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

const Signer* keyOf(const StoredKey* stored) {
    return stored ? stored->key.get() : nullptr;
}

}  // namespace

bool KeyManager::hasKey(KeyType use) const {
    for (const StoredKey& key : contents_.keys)
        if (shares(key.role, roleOf(use))) return true;
    return false;
}

const Signer* KeyManager::signingKey() const {
    return keyOf(contents_.keyInRole(KeyRole::Signing));
}

const Signer* KeyManager::encryptionKey() const {
    return keyOf(contents_.keyInRole(KeyRole::Encryption));
}

KeyScheme KeyManager::signingKeyType() const {
    const Signer* key = signingKey();
    if (!key || key->scheme() != KeyScheme::Rsa) return key ? key->scheme() : KeyScheme::None;
    const auto chosen = configuration().record().getSignatureAlgorithmIdentifier();
    return chosen && chosen->algorithm == OID_RSA_PSS ? KeyScheme::RsaPss : KeyScheme::Rsa;
}

KeyScheme KeyManager::schemeOf(const StoredKey& stored) const {
    return shares(stored.role, KeyRole::Signing) ? signingKeyType() : stored.key->scheme();
}

KeyManagerResult KeyManager::addNewKey(KeyType use, SignerPtr key, Bytes bagAttributes) {
    demand({State::Open});
    VTEST(!hasKey(use), kKeyManagerPlace);
    if (!media().hasSecurityFile() && !media().keyLimits(use)) return kKmNotOnThisMedium;
    Undo undo(*this);
    contents_.keys.push_back({std::move(key), roleOf(use), {}, std::move(bagAttributes)});
    sortByRole(contents_.keys);
    return undo.keep(saveConfiguration());
}

const StoredKey* KeyManager::successorOf(KeyType use) const {
    const StoredKey* inUse = contents_.keyInRole(roleOf(use));
    return inUse ? waitingFor(inUse->key->keyId()) : nullptr;
}

const StoredKey* KeyManager::waitingFor(const KeyId& id) const {
    const auto waits = [&](const StoredKey& key) { return successorTo(key) == id; };
    const auto found = std::ranges::find_if(contents_.keys, waits);
    return found == contents_.keys.end() ? nullptr : &*found;
}

KeyManager::Undo::Undo(KeyManager& keys)
    : keys_(keys),
      contents_(keys.contents_),
      record_(keys.configuration().sharedRecord()),
      changed_(keys.configuration().isRecordChanged()) {}

KeyManager::Undo::~Undo() {
    keys_.historyDemanded_ = false;
    if (kept_) return;
    keys_.contents_ = std::move(contents_);
    ConfigurationManager& configuration = keys_.context_->configuration();
    configuration.setRecord(std::move(record_));
    configuration.setRecordChanged(changed_);
}

KeyManagerResult KeyManager::Undo::keep(KeyManagerResult result) noexcept {
    kept_ = result == kKmOk;
    return result;
}

KeyManagerResult KeyManager::deleteKey(const KeyId& id) {
    demand({State::Open});
    if (!media().hasSecurityFile()) return kKmNotOnThisMedium;
    if (!contents_.findKey(id)) return kKmKeyNotFound;
    Undo undo(*this);
    auto deleted = configuration().record().getDeletedKeys();
    deleted.push_back(toBytes(ByteView(id)));
    const StoredKey* successor = waitingFor(id);
    const auto algorithm = successor ? successorAlgorithm(*successor) : std::nullopt;
    const bool signs = shares(contents_.findKey(id)->role, KeyRole::Signing);
    configuration().editRecord().setDeletedKeys(deleted);
    dropDeleted(contents_, configuration().record());
    if (algorithm && signs) configuration().editRecord().setSignaturaAlgorithmIdentifier(*algorithm);
    historyDemanded_ = true;
    return undo.keep(saveConfiguration());
}

KeyManagerResult KeyManager::importKey(const PrivateKey& key, KeyRole role, const CertList& certificates) {
    demand({State::Open});
    if (!media().hasSecurityFile()) return kKmNotOnThisMedium;
    if (contents_.findKey(key.keyId())) return kKmKeyExists;
    Undo undo(*this);
    const KeyId id = key.keyId();
    auto deleted = configuration().record().getDeletedKeys();
    if (std::erase_if(deleted, [&](const Bytes& one) { return std::ranges::equal(one, id); }) != 0)
        configuration().editRecord().setDeletedKeys(deleted);
    for (const StoredKey& other : contents_.keys) role = without(role, other.role);
    contents_.keys.push_back({std::make_shared<PrivateKey>(key), role});
    sortByRole(contents_.keys);
    for (const CertPtr& one : certificates) {
        if (one->computeKeyIdentifierSha1Hash() == id && !contains(contents_.userCerts, *one))
            contents_.userCerts.push_back(one);
    }
    return undo.keep(saveConfiguration());
}

CertPtr KeyManager::certificateOf(const StoredKey& key) const {
    return contents_.certificateOf(key.key->keyId());
}

CertPtr KeyManager::signingCertificate() const {
    const StoredKey* key = contents_.keyInRole(KeyRole::Signing);
    return key ? certificateOf(*key) : nullptr;
}

CertPtr KeyManager::encryptionCertificate() const {
    const StoredKey* key = contents_.keyInRole(KeyRole::Encryption);
    return key ? certificateOf(*key) : nullptr;
}

DistinguishedName KeyManager::requestSubject() const {
    for (const CertPtr& certificate : {signingCertificate(), encryptionCertificate()})
        if (certificate) return certificate->subject();
    DistinguishedName name;
    name.add(OID_AT_COMMON_NAME, configuration().profileName());
    return name;
}

KeyManagerResult KeyManager::installUserCrt(const CertPtr& certificate) {
    demand({State::Unseeded, State::Open});
    Undo undo(*this);
    auto before = std::make_unique<KeyStoreContents>(contents_);
    const auto record = configuration().sharedRecord();
    const StoredKey* own = contents_.findKey(certificate->computeKeyIdentifierSha1Hash());
    const auto algorithm = own && successorTo(*own) ? successorAlgorithm(*own) : std::nullopt;
    const KeyManagerResult result = pairCertificate(contents_, certificate, recertificationAllowed());
    if (result != kKmOk) return result;
    const StoredKey* now = contents_.findKey(certificate->computeKeyIdentifierSha1Hash());
    const bool signs = algorithm && shares(now->role, KeyRole::Signing);
    if (signs) configuration().editRecord().setSignaturaAlgorithmIdentifier(*algorithm);
    if (!beforeInstall_) beforeInstall_ = std::move(before);
    if (signs && !recordBeforeInstall_) recordBeforeInstall_ = record;
    return undo.keep(kKmOk);
}

void KeyManager::undoInstallUserCrt() {
    if (!beforeInstall_) return;
    contents_.keys = std::move(beforeInstall_->keys);
    contents_.userCerts = std::move(beforeInstall_->userCerts);
    if (recordBeforeInstall_) configuration().setRecord(recordBeforeInstall_);
    recordBeforeInstall_.reset();
    beforeInstall_.reset();
}

}  // namespace crv
