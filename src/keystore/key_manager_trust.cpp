// Trust points: the user's, the key store's, the configuration's qualified ones, those of the additional store.
#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crvprofile.h"
#include "crypto/crypto_error.h"
#include "keystore/key_manager_state.h"
#include "keystore/security_file.h"
#include "misc/exceptions.h"
#include "misc/path.h"

namespace crv {
namespace {

constexpr unsigned kLeastRsaBits = 2048;

CertList certificatesOf(const CRVCfgFile::Certificates& encodings) {
    CertList list;
    for (const Bytes& encoding : encodings)
        if (CertPtr certificate = makeCert(encoding)) list.push_back(std::move(certificate));
    return list;
}

/// Whether it is signed with its own key.
bool isSelfSigned(const SignedCertificate& certificate) {
    try {
        return certificate.isSignedBy(certificate.keyInfo().publicKey());
    } catch (const CryptoError&) {
        return false;
    }
}

/// Only for a certificate whose signature was found right, so that key and algorithm are known.
bool isWeak(const SignedCertificate& certificate) {
    const auto algorithm = readSignAlgorithm(certificate.signatureAlgorithm);
    const PublicKey key = certificate.keyInfo().publicKey();
    return (algorithm && algorithm->hash == KcHashAlgo::Md5) || (isRsa(key.scheme()) && key.bits() < kLeastRsaBits);
}

}  // namespace

std::shared_ptr<const CRVCfgFile> decodeRecord(ByteView encoding) {
    const auto record = std::make_shared<CRVCfgFile>();
    if (!record->readExactly(encoding)) return nullptr;
    try {
        (void)record->getTrustedCAs();
        (void)record->getQualifiedTrustedCAs();
    } catch (const VtestException&) {
        return nullptr;
    }
    return record;
}

void KeyManager::copyUserUnqualifiedTrustedCA() {
    const CRVCfgFile& record = configuration().record();
    const CertList qualified = certificatesOf(record.getQualifiedTrustedCAs());
    for (CertPtr& certificate : certificatesOf(record.getTrustedCAs())) {
        if (!contains(qualified, *certificate) && !contains(contents_.trustedCerts, *certificate))
            contents_.trustedCerts.push_back(std::move(certificate));
    }
}

std::vector<TrustPoint> KeyManager::trustedPoints() const {
    const CRVCfgFile& record = configuration().record();
    const std::pair<TrustPointFlag, CertList> sources[] = {
        {TrustPointFlag::User, certificatesOf(record.getTrustedCAs())},
        {TrustPointFlag::KeyStore, contents_.trustedCerts},
        {TrustPointFlag::Qualified, certificatesOf(record.getQualifiedTrustedCAs())},
        {TrustPointFlag::Additional, additionalCerts_},
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

KeyManagerResult KeyManager::addTrustedCA(const CertPtr& certificate) {
    if (!certificate->isCaCrt() || !certificate->isSelfIssued()) return kKmNoCaCertificate;
    if (!isSelfSigned(*certificate)) return kKmBadSignature;
    const auto same = [&](const TrustPoint& point) {
        return std::ranges::equal(encodingOf(*point.certificate), encodingOf(*certificate));
    };
    if (std::ranges::any_of(trustedPoints(), same)) return kKmTrustPointExists;
    if (isWeak(*certificate)) return kKmTrustPointRefused;

    CRVCfgFile& record = configuration().editRecord();
    CRVCfgFile::Certificates list = record.getTrustedCAs();
    list.push_back(toBytes(encodingOf(*certificate)));
    record.setTrustedCAs(list);
    contents_.trustedCerts.push_back(certificate);
    saved_ = false;
    return kKmOk;
}

KeyManagerResult KeyManager::delTrustedCA(const CertPtr& certificate, int flag) {
    VTEST(flag == static_cast<int>(TrustPointFlag::User), kKeyManagerPlace);
    const Bytes encoding = toBytes(encodingOf(*certificate));
    CRVCfgFile::Certificates list = configuration().record().getTrustedCAs();
    if (std::erase(list, encoding) == 0) {
        const auto same = [&](const TrustPoint& point) {
            return std::ranges::equal(encodingOf(*point.certificate), encoding);
        };
        return std::ranges::any_of(trustedPoints(), same) ? kKmNotOnThisMedium : kKmOk;
    }
    configuration().editRecord().setTrustedCAs(list);
    removeFrom(contents_.trustedCerts, *certificate);
    saved_ = false;
    return kKmOk;
}

KeyManagerResult KeyManager::readAdditionalTrustedCA() {
    additionalCerts_.clear();
    const CrvProfile& profile = *configuration().profile();
    std::string path;
    profile.getAttr(CRVPROFILE_ATTR_ROOTS_FILE, path);
    if (path.empty()) return kKmOk;
    Bytes octets;
    bool missing = false;
    const KeyManagerResult read = readKeyFile(expandHome(path), octets, missing);
    if (missing) return kKmOk;
    if (read != kKmOk) return kKmRootsFormat;

    long emptyPassword = 0;
    profile.getAttr(CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, emptyPassword);
    SecretText password;
    if (emptyPassword == 0) {
        const int answer = context_->getPIN(PinSlot::Roots, password);
        if (answer == kPinWrong) return kKmWrongRootsPassword;
        if (answer != kPinOk) return kKmNoRootsPassword;
    }
    LoadedSecurityFile store;
    const KeyManagerResult opened = readSecurityFile(octets, password, false, store);
    if (opened == kKmWrongPassword) return kKmWrongRootsPassword;
    if (opened == kKmNoMemory) return opened;
    if (opened != kKmOk || !store.keys.empty()) return kKmRootsFormat;
    std::ranges::copy_if(store.certificates, std::back_inserter(additionalCerts_),
                         [](const CertPtr& certificate) { return certificate->isCaCrt(); });
    return kKmOk;
}

}  // namespace crv
