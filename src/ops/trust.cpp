#include "ops/trust.h"

#include <ctime>

#include "asn/x509/signed_certificate.h"

namespace crv {

bool mayAddTrust(const KeyStoreAccess& access) {
    return access.keys.signingKey() && access.keys.signingCertificate();
}

KeyManagerResult addTrustPoint(const KeyStoreAccess& access, const CertPtr& certificate,
                               const std::function<bool()>& confirm) {
    const auto end = certificate->tbs.validity.notAfter.seconds();
    if (end && *end < std::time(nullptr) && !confirm()) return kKmCancelled;
    return access.keys.addTrustedCA(certificate);
}

bool isRemovable(const TrustPoint& point) {
    return point.flag == TrustPointFlag::User;
}

KeyManagerResult removeTrustPoint(const KeyStoreAccess& access, const TrustPoint& point) {
    if (!isRemovable(point)) return kKmNotOnThisMedium;
    return access.keys.delTrustedCA(point.certificate, static_cast<int>(TrustPointFlag::User));
}

}  // namespace crv
