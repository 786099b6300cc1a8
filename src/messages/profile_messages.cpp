#include "messages/profile_messages.h"

#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "corvane/crverrors.h"
#include "keystore/key_manager.h"
#include "misc/exceptions.h"

namespace crv {

MessageSignerKey signerOf(const KeyManager& keys, const ConfigurationManager& configuration) {
    for (const StoredKey& stored : keys.keys()) {
        if (!shares(stored.role, KeyRole::Signing)) continue;
        const KeyScheme scheme = keys.schemeOf(stored);
        CertPtr certificate = keys.certificateOf(stored);
        if (!certificate) break;
        return {stored.key, std::move(certificate), scheme, configuration.record().getHashAlgo(scheme)};
    }
    throw CrvApiException(ECRV_SKEYS_NOT_PRES);
}

std::vector<DecryptionKey> decryptionKeysOf(const KeyManager& keys) {
    std::vector<DecryptionKey> list;
    const auto take = [&](bool further) {
        for (const StoredKey& stored : keys.keys()) {
            if (shares(stored.role, KeyRole::Encryption) == further) continue;
            DecryptionKey& one = list.emplace_back(DecryptionKey{stored.key});
            for (const CertPtr& certificate : keys.userCerts()) {
                if (certificate->computeKeyIdentifierSha1Hash() == stored.key->keyId())
                    one.certificates.push_back(certificate);
            }
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
        CertPtr own = keys.encryptionCertificate();
        if (!own) throw CrvApiException(ECRV_EKEYS_NOT_PRES);
        if (!contains(params.recipients, *own)) params.recipients.push_back(std::move(own));
    }
    return params;
}

}  // namespace crv
