#include "messages/profile_messages.h"

#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "corvane/crverrors.h"
#include "keystore/key_manager.h"
#include "misc/exceptions.h"
#include "pki/certificate_manager.h"

namespace crv {

namespace {

/// Stored certificates of the key, by its identifier and by the names that it has in the others.
void addStored(CertificateManager& certificates, DecryptionKey& key) {
    const KeyId id = key.key->keyId();
    CrtItemList items;
    static_cast<void>(certificates.database().findCertsByKeyIdHash(items, id));
    for (const CertPtr& own : CertList(key.certificates))
        static_cast<void>(certificates.db().findBySubject(items, own->subject()));
    for (const CrtItem& item : items) {
        CertPtr one = certificates.cache().certificate(item.der);
        if (one && one->computeKeyIdentifierSha1Hash() == id && !contains(key.certificates, *one))
            key.certificates.push_back(std::move(one));
    }
}

MessageSignerKey signerWith(const KeyManager& keys, const ConfigurationManager& configuration, const StoredKey& key,
                            CertPtr certificate) {
    const KeyScheme scheme = keys.schemeOf(key);
    return {key.key, std::move(certificate), scheme, configuration.record().getHashAlgo(scheme)};
}

bool canReceive(const SignedCertificate& certificate) {
    const auto usage = certificate.keyUsage();
    const bool rsa = certificate.keyInfo().publicKey().scheme() == KeyScheme::Rsa;
    return !usage || usage->bit(rsa ? KeyUsage::kKeyEncipherment : KeyUsage::kKeyAgreement);
}

/// The certificate that the profile encrypts for itself with; null when there is none.
CertPtr ownRecipient(const KeyManager& keys) {
    CertPtr found = keys.encryptionCertificate();
    if (found && canReceive(*found)) return found;
    for (const StoredKey& stored : keys.keys()) {
        CertPtr one = keys.certificateOf(stored);
        if (one && canReceive(*one)) return one;
    }
    return found;  // the encryptor tells what is wrong with it
}

}  // namespace

MessageSignerKey signerOf(const KeyManager& keys, const ConfigurationManager& configuration) {
    for (const StoredKey& stored : keys.keys()) {
        if (!shares(stored.role, KeyRole::Signing)) continue;
        if (CertPtr certificate = keys.certificateOf(stored))
            return signerWith(keys, configuration, stored, std::move(certificate));
        break;
    }
    throw CrvApiException(ECRV_SKEYS_NOT_PRES);
}

MessageSignerKey signerOf(const KeyManager& keys, const ConfigurationManager& configuration, const StoredKey& key) {
    CertPtr certificate = keys.certificateOf(key);
    if (!certificate) throw CrvApiException(ECRV_UNP_KEY_CRT, "the key has no certificate");
    return signerWith(keys, configuration, key, std::move(certificate));
}

MessageSignerKey signerOf(const KeyManager& keys, const ConfigurationManager& configuration,
                          const CertPtr& certificate) {
    const KeyId id = certificate->computeKeyIdentifierSha1Hash();
    for (const StoredKey& stored : keys.keys())
        if (stored.key->keyId() == id) return signerWith(keys, configuration, stored, certificate);
    throw CrvApiException(ECRV_UNP_KEY_CRT, certificate->subject().text());
}

std::vector<DecryptionKey> decryptionKeysOf(const KeyManager& keys, CertificateManager& certificates) {
    std::vector<DecryptionKey> list;
    const auto take = [&](bool further) {
        for (const StoredKey& stored : keys.keys()) {
            if (shares(stored.role, KeyRole::Encryption) == further) continue;
            DecryptionKey& one = list.emplace_back(DecryptionKey{stored.key});
            for (const CertPtr& certificate : keys.userCerts()) {
                if (certificate->computeKeyIdentifierSha1Hash() == stored.key->keyId())
                    one.certificates.push_back(certificate);
            }
            addStored(certificates, one);
        }
    };
    take(false);
    take(true);
    if (list.empty()) throw CrvApiException(ECRV_EKEYS_NOT_PRES);
    return list;
}

EncryptParams encryptParamsOf(const KeyManager& keys, const ConfigurationManager& configuration, CertList recipients,
                              bool self) {
    EncryptParams params{std::move(recipients), configuration.record().getSymAlgo()};
    if (self) {
        CertPtr own = ownRecipient(keys);
        if (!own) throw CrvApiException(ECRV_EKEYS_NOT_PRES);
        if (!contains(params.recipients, *own)) params.recipients.push_back(std::move(own));
    }
    return params;
}

}  // namespace crv
