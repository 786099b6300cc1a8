#include "ops/installation.h"

#include <algorithm>
#include <ctime>
#include <iterator>

#include "asn/x509/signed_certificate.h"
#include "keystore/key_manager.h"
#include "keystore/key_pairing.h"

namespace crv {
namespace {

bool belongsToUser(const KeyManager& keys, const SignedCertificate& certificate) {
    const KeyId id = certificate.computeKeyIdentifierSha1Hash();
    return std::ranges::any_of(keys.keys(), [&](const StoredKey& stored) { return stored.key->keyId() == id; });
}

InstallDoubt doubtAbout(const KeyManager& keys, const SignedCertificate& certificate) {
    const int64_t now = std::time(nullptr);
    const auto from = certificate.tbs.validity.notBefore.seconds();
    if (!certificate.isValidAt(now)) return from && *from > now ? InstallDoubt::NotYetValid : InstallDoubt::Expired;
    const bool replaces = std::ranges::any_of(keys.userCerts(), [&](const CertPtr& old) {
        return old->isValidAt(now) && isNewer(certificate, *old) && old->subject() == certificate.subject() &&
               old->computeKeyIdentifierSha1Hash() == certificate.computeKeyIdentifierSha1Hash();
    });
    return replaces ? InstallDoubt::Replaces : InstallDoubt::None;
}

/// Those of the user, each once, the newest first; without any the first of the list, whose refusal says why.
CertList ownCertificates(const KeyManager& keys, const CertList& certificates) {
    CertList own;
    for (const CertPtr& one : certificates)
        if (belongsToUser(keys, *one) && !contains(own, *one)) own.push_back(one);
    if (own.empty() && !certificates.empty()) own.push_back(certificates.front());
    std::ranges::stable_sort(own, [](const CertPtr& a, const CertPtr& b) { return isNewer(*a, *b); });
    return own;
}

/// Without the database and the save.
Installation installOwn(KeyManager& keys, const CertList& own, const InstallHooks& hooks) {
    Installation done;
    for (const CertPtr& certificate : own) {
        const InstallDoubt doubt = doubtAbout(keys, *certificate);
        if (doubt != InstallDoubt::None && !hooks.confirm(doubt, *certificate)) continue;
        const KeyManagerResult result = keys.installUserCrt(certificate);
        if (result == kKmOk) done.certificates.push_back(certificate);
        if (done.refusal == kKmOk) done.refusal = result;
    }
    if (!done.certificates.empty()) done.refusal = kKmOk;
    return done;
}

}  // namespace

bool stillWaits(const KeyManager& keys, const SignedCertificate& certificate) {
    const KeyId id = certificate.computeKeyIdentifierSha1Hash();
    return std::ranges::any_of(keys.keys(),
                               [&](const StoredKey& key) { return key.key->keyId() == id && successorTo(key); });
}

Installation installCertificates(KeyManager& keys, const CertList& certificates, const InstallHooks& hooks) {
    try {
        Installation done = installOwn(keys, ownCertificates(keys, certificates), hooks);
        if (!done.certificates.empty()) {
            std::ranges::copy_if(certificates, std::back_inserter(done.certificates),
                                 [&](const CertPtr& one) { return one->isCaCrt() && !belongsToUser(keys, *one); });
            if (hooks.store(done.certificates) && hooks.save()) return done;
        }
        keys.undoInstallUserCrt();
        return {{}, done.refusal};
    } catch (...) {
        keys.undoInstallUserCrt();
        throw;
    }
}

}  // namespace crv
