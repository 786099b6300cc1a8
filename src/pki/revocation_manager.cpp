#include "pki/revocation_manager.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "misc/exceptions.h"
#include "misc/whole_file.h"
#include "pki/cert_file_reader.h"

namespace crv {

/// A stored CRL of the issuer in question. What it is, it says itself: after a change that was cut off the index row
/// may be that of another one.
struct RevocationManager::Loaded {
    Bytes der;
    std::unique_ptr<SignedCertRevList> crl;
    std::optional<IssuingDistributionPoint> point;
    int code = 0;  // of the check

    [[nodiscard]] bool isDelta() const { return crl->baseCrlNumber().has_value(); }
};

namespace {

bool isCurrent(const SignedCertRevList& crl, int64_t time) {
    const std::optional<int64_t> begin = crl.thisUpdate(), end = crl.nextUpdate();
    return begin && *begin <= time && (!end || time <= *end);
}

/// Whether a distribution point of the certificate has a name that the CRL's point has.
bool namesMeet(const DistributionPointName& point, const SignedCertificate& certificate) {
    const auto points = certificate.extensions().get<CrlDistributionPoints>(OID_CE_CRL_DISTRIBUTION_POINTS);
    const GeneralNames* wanted = point.fullName();
    if (!points || !wanted) return false;
    for (const DistributionPoint& one : *points) {
        const GeneralNames* names = one.distributionPoint ? one.distributionPoint->fullName() : nullptr;
        if (!names) continue;
        for (const GeneralName& name : *names) {
            if (std::ranges::any_of(*wanted, [&](const auto& other) { return name.encoded() == other.encoded(); })) {
                return true;
            }
        }
    }
    return false;
}

/// Whether the certificate is within the scope of a CRL with that issuing distribution point (RFC 5280 6.3.3 (b) (2)).
bool covers(const IssuingDistributionPoint& point, const SignedCertificate& certificate) {
    if (point.onlyContainsAttributeCerts.value()) return false;
    if (point.onlyContainsUserCerts.value() && certificate.isCaCrt()) return false;
    if (point.onlyContainsCaCerts.value() && !certificate.isCaCrt()) return false;
    return !point.distributionPoint || namesMeet(*point.distributionPoint, certificate);
}

ByteView scopeOf(const SignedCertRevList& crl) {
    const Extension* point = crl.extensions().find(OID_CE_ISSUING_DISTRIBUTION_POINT);
    return point ? point->extnValue.value() : ByteView();
}

/// Whether the delta completes that CRL (RFC 5280 5.2.4): the same key and scope, and numbers that fit.
bool completes(const SignedCertRevList& delta, const SignedCertRevList& base) {
    const auto from = delta.baseCrlNumber(), to = delta.crlNumber(), number = base.crlNumber();
    return from && to && number && compareNumbers(*number, *from) >= 0 && compareNumbers(*to, *number) > 0 &&
           delta.authorityKeyId() == base.authorityKeyId() && std::ranges::equal(scopeOf(delta), scopeOf(base));
}

/// Takes over what an entry says; true when there is one.
bool apply(const SignedCertRevList& crl, const SignedCertificate& certificate, CrtStatus& status) {
    const std::optional<RevokedCertificate> entry = crl.find(certificate.serialNumber(), certificate.issuer());
    if (!entry) return false;
    const CrlReason reason = entry->reason();
    if (reason == CrlReason::RemoveFromCrl) {
        status = {CrtStatus::State::Good, CrlReason::Unspecified, 0, 0};
    } else {
        status = {CrtStatus::State::Revoked, reason, entry->revokedAt().value_or(0), 0};
    }
    return true;
}

bool sameKeyId(const std::optional<Implicit<3, ASNoctstr>>& a, ByteView keyId) {
    return !a || keyId.empty() || std::ranges::equal(a->value(), keyId);
}

}  // namespace

void RevocationManager::init(CertificateManager& certificates) {
    certificates_ = &certificates;
    certificates.setStatusSource([this](const SignedCertificate& certificate, const SignedCertificate& issuer,
                                        int64_t time) { return status(certificate, issuer, time); });
}

bool RevocationManager::readCrl(const std::string& path, Bytes& der) {
    try {
        der = crlFromFile(readFile(path)).value_or(Bytes());
        return true;
    } catch (const StoreError&) {
        return false;
    }
}

/// Checks the CRL under one certificate of its issuer.
int RevocationManager::checkIssuer(const SignedCertRevList& crl, const CertPtr& issuer, int64_t time) {
    const std::optional<KeyUsage> usage = issuer->keyUsage();
    const bool restricted = issuer->extensions().find(OID_CE_KEY_USAGE) != nullptr;
    if (restricted && (!usage || !usage->bit(KeyUsage::kCRlSign))) return ECRV_CRTNOTFOUND;
    try {
        if (!certificates_->cache().isSignedBy(crl, *issuer)) return ECRV_CRTSIGN;
    } catch (const CryptoError&) {
        return ECRV_CRTALG;
    }
    // Without a look at revocation, which would go round in a circle.
    return certificates_->buildPath(issuer, {time, 0, RevocationCheck::None}).code;
}

/// 0 as soon as one of the issuer's certificates is good for it. With `known` given, CRLs of its key only: another
/// authority may bear the same name under another trust point (RFC 5280 6.3.3 (f)).
int RevocationManager::check(const SignedCertRevList& crl, int64_t time, const SignedCertificate* known) {
    if (crl.hasUnknownCriticalExtension()) return ECRV_INV_CRL_FMT;
    if (!isCurrent(crl, time)) return ECRV_CRL_EXPIRED;
    const Bytes keyId = crl.authorityKeyId();
    int code = ECRV_CRTNOTFOUND;
    CertList issuers = certificates_->findBySubject(crl.issuer());
    if (known) {
        if (CertPtr one = makeCert(known->encoded()); one && one->subject() == crl.issuer()) issuers.push_back(one);
    }
    for (const CertPtr& issuer : issuers) {
        if (!keyId.empty() && issuer->getKeyIdFromCert() != keyId) continue;
        if (known && issuer->keyInfo().encoded() != known->keyInfo().encoded()) continue;
        const int found = checkIssuer(crl, issuer, time);
        if (found == 0) return 0;
        if (code == ECRV_CRTNOTFOUND) code = found;
    }
    return code;
}

int RevocationManager::verify(ByteView der, int64_t time) {
    SignedCertRevList crl;
    if (!crl.readExactly(der, ASN_FLAG_CONST)) return ECRV_INV_CRL_FMT;
    return check(crl, time, nullptr);
}

/// Whether the CRL verifies, one that has been replaced since at its own time. The store keeps others apart.
bool RevocationManager::isGenuine(const SignedCertRevList& crl, int64_t now) {
    const int64_t issued = crl.thisUpdate().value_or(INT64_MAX);
    return issued <= now && check(crl, isCurrent(crl, now) ? now : issued, nullptr) == 0;
}

CrlInsertResult RevocationManager::insert(ByteView der) {
    SignedCertRevList crl;
    if (!crl.readExactly(der, ASN_FLAG_CONST) || !crl.thisUpdate()) return kCrlFormat;
    CrlInsert result{};
    DbManager& database = certificates_->database();
    if (!database.insertCrl(der, isGenuine(crl, std::time(nullptr)), result))
        return database.outOfMemory() ? kCrlNoMemory : kCrlDatabase;
    if (result == CrlInsert::Older) return kCrlOlder;
    deviceError_ = deviceUpdate_ ? deviceUpdate_(der) : 0;
    return deviceError_ == 0 ? kCrlInserted : kCrlDevice;
}

/// The stored CRLs that could tell about the certificate: those of its issuer's name and key.
bool RevocationManager::load(const SignedCertificate& certificate, std::vector<Loaded>& crls) {
    DbManager& database = certificates_->database();
    CrlIndex index;
    if (!database.getCrlIndex(index)) return false;
    const Bytes keyId = certificate.authorityKeyId();
    for (const CrlIndexEntry& entry : index) {
        if (!(entry.issuer == certificate.issuer()) || !sameKeyId(entry.authorityKeyId, keyId)) continue;
        Loaded one{{}, std::make_unique<SignedCertRevList>(), {}, 0};
        if (!database.getCrlByFileNum(entry.fileNumber(), one.der)) continue;
        if (!one.crl->readExactly(one.der, ASN_FLAG_CONST)) continue;
        one.point = one.crl->issuingDistributionPoint();
        if (!one.point || covers(*one.point, certificate)) crls.push_back(std::move(one));
    }
    return true;
}

CrtStatus RevocationManager::status(const SignedCertificate& certificate, const SignedCertificate& issuer,
                                    int64_t time) {
    CrtStatus status;
    std::vector<Loaded> crls;
    status.code = load(certificate, crls) ? ECRV_CRL_NOT_FOUND : ECRV_DB;
    for (Loaded& one : crls) one.code = check(*one.crl, time, &issuer);
    for (const Loaded& base : crls) {
        if (base.isDelta()) continue;
        const auto delta = std::ranges::find_if(
            crls, [&](const Loaded& one) { return one.code == 0 && completes(*one.crl, *base.crl); });
        // A delta that is current keeps a complete CRL going that is not.
        const bool usable = base.code == 0 || (base.code == ECRV_CRL_EXPIRED && delta != crls.end() &&
                                               check(*base.crl, base.crl->thisUpdate().value_or(0), &issuer) == 0);
        if (!usable) {
            if (status.state == CrtStatus::State::Unknown) status.code = base.code;
            continue;
        }
        CrtStatus found{CrtStatus::State::Good, CrlReason::Unspecified, 0, 0};
        if (delta == crls.end() || !apply(*delta->crl, certificate, found)) apply(*base.crl, certificate, found);
        if (found.state == CrtStatus::State::Revoked) return found;
        // A CRL for some reasons only cannot say that all is well.
        if (!base.point || !base.point->onlySomeReasons) status = found;
    }
    return status;
}

CrtStatus RevocationManager::status(const CertPtr& certificate, int64_t time) {
    for (const CertPtr& issuer : certificates_->findBySubject(certificate->issuer())) {
        try {
            if (certificates_->cache().isSignedBy(*certificate, *issuer)) return status(*certificate, *issuer, time);
        } catch (const CryptoError&) {  // a key of another kind: not this one
        }
    }
    CrtStatus unknown;
    unknown.code = ECRV_CRTNOTFOUND;
    return unknown;
}

bool RevocationManager::lastCrls(const SignedCertificate& authority, AuthorityCrls& crls) {
    CrlIndex index;
    if (!certificates_->database().getCrlIndex(index)) return false;
    const Bytes keyId = authority.getKeyIdFromCert();
    for (const CrlIndexEntry& entry : index) {
        if (!(entry.issuer == authority.subject()) || !sameKeyId(entry.authorityKeyId, keyId)) continue;
        std::optional<CrlIndexEntry>& last = entry.isDelta() ? crls.delta : crls.complete;
        // Anybody can make a list of the year 2099; only a genuine one counts as the last where there is one.
        const auto rank = [](const CrlIndexEntry& of) { return std::pair(of.isVerified(), of.issued()); };
        if (!last || rank(entry) > rank(*last)) last = entry;
    }
    return true;
}

}  // namespace crv
