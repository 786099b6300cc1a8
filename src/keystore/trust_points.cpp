#include "keystore/trust_points.h"

#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "config/crv_cfg_file.h"
#include "crypto/crypto_error.h"
#include "keystore/security_file.h"

namespace crv {
namespace {

constexpr unsigned kLeastRsaBits = 2048;

CertList certificatesOf(const CRVCfgFile::Certificates& encodings) {
    CertList list;
    for (const Bytes& encoding : encodings)
        if (CertPtr certificate = makeCert(encoding)) list.push_back(std::move(certificate));
    return list;
}

/// Whether it is signed with its own key. A signature that cannot be checked here is no wrong one.
KeyManagerResult checkSelfSigned(const SignedCertificate& certificate) {
    try {
        return certificate.isSignedBy(certificate.keyInfo().publicKey()) ? kKmOk : kKmBadSignature;
    } catch (const CryptoError& error) {
        if (!error.isOfInput()) throw;
        return error.failure() == CryptoFailure::Unsupported ? kKmAlgorithmNotSupported : kKmBadSignature;
    }
}

/// Only for a certificate whose signature was found right, so that key and algorithm are known.
bool isWeak(const SignedCertificate& certificate) {
    const auto algorithm = readSignAlgorithm(certificate.signatureAlgorithm);
    const PublicKey key = certificate.keyInfo().publicKey();
    return (algorithm && algorithm->hash == KcHashAlgo::Md5) || (isRsa(key.scheme()) && key.bits() < kLeastRsaBits);
}

}  // namespace

KeyManagerResult checkTrustPoint(const SignedCertificate& certificate) {
    if (!certificate.isCaCrt() || !certificate.isSelfIssued()) return kKmNoCaCertificate;
    if (const KeyManagerResult checked = checkSelfSigned(certificate); checked != kKmOk) return checked;
    return isWeak(certificate) ? kKmTrustPointRefused : kKmOk;
}

std::vector<TrustPoint> TrustPoints::list(const CRVCfgFile& record, const CertList& kept) const {
    const std::pair<TrustPointFlag, CertList> sources[] = {
        {TrustPointFlag::User, certificatesOf(record.getTrustedCAs())},
        {TrustPointFlag::KeyStore, kept},
        {TrustPointFlag::Qualified, certificatesOf(record.getQualifiedTrustedCAs())},
        {TrustPointFlag::Additional, additional_},
    };
    std::vector<TrustPoint> points;
    CertList seen;
    for (const auto& [flag, list] : sources) {
        for (const CertPtr& certificate : list) {
            if (contains(seen, *certificate)) continue;
            seen.push_back(certificate);
            points.push_back({certificate, flag});
        }
    }
    return points;
}

bool TrustPoints::holds(const CRVCfgFile& record, const CertList& kept, const SignedCertificate& certificate) const {
    return std::ranges::any_of(list(record, kept), [&](const TrustPoint& point) {
        return std::ranges::equal(encodingOf(*point.certificate), encodingOf(certificate));
    });
}

KeyManagerResult TrustPoints::readAdditional(ByteView store, const SecretText& password,
                                             const std::function<bool()>& progress) {
    LoadedSecurityFile loaded;
    const KeyManagerResult opened = readSecurityFile(store, password, false, loaded, progress);
    if (opened == kKmWrongPassword) return kKmWrongRootsPassword;
    if (opened == kKmNoMemory || opened == kKmStopped || opened == kKmProtectionNotSupported) return opened;
    if (opened != kKmOk || !loaded.keys.empty()) return kKmRootsFormat;
    std::ranges::copy_if(loaded.certificates, std::back_inserter(additional_),
                         [](const CertPtr& certificate) { return certificate->isCaCrt(); });
    return kKmOk;
}

void copyUserTrust(const CRVCfgFile& record, CertList& kept) {
    const CertList qualified = certificatesOf(record.getQualifiedTrustedCAs());
    for (CertPtr& certificate : certificatesOf(record.getTrustedCAs())) {
        if (!contains(qualified, *certificate) && !contains(kept, *certificate)) kept.push_back(std::move(certificate));
    }
}

}  // namespace crv
