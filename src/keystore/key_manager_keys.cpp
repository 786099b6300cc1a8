// The user's keys and certificates.
#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
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
    const std::vector<StoredKey> before = contents_.keys;
    contents_.keys.push_back({std::move(key), roleOf(use), {}, std::move(bagAttributes)});
    sortByRole(contents_.keys);
    KeyManagerResult result = kKmNoMemory;
    try {
        result = saveConfiguration();
    } catch (...) {
        contents_.keys = before;
        throw;
    }
    if (result != kKmOk) contents_.keys = before;
    return result;
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
    auto before = std::make_unique<KeyStoreContents>(contents_);
    const KeyManagerResult result = pairCertificate(contents_, certificate, recertificationAllowed());
    if (result == kKmOk && !beforeInstall_) beforeInstall_ = std::move(before);
    return result;
}

void KeyManager::undoInstallUserCrt() {
    if (!beforeInstall_) return;
    contents_.keys = std::move(beforeInstall_->keys);
    contents_.userCerts = std::move(beforeInstall_->userCerts);
    beforeInstall_.reset();
}

}  // namespace crv
