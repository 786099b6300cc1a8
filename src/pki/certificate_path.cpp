#include "pki/certificate_path.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "asn/x509/ext_distribution.h"
#include "asn/x509/ext_policies.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "pki/certificate_cache.h"
#include "pki/name_constraints.h"

namespace crv {

namespace {

/// Verdicts tried and signatures looked at at most, so that a web of cross-certificates cannot keep us for ever,
/// whether or not it leads to a trust point.
constexpr int kMaxVerdicts = 200;
constexpr int kMaxSignatures = 2000;

struct Verdict {
    int code = 0;
    const char* reason = "";
    explicit operator bool() const { return code != 0; }
};

template <class T>
bool decodes(const Extension& extension) {
    T value;
    return extension.decode(value, ASN_FLAG_CONST);
}

/// Extensions that this check looks at, or that may be passed over without harm to it. Policies are not constrained
/// here, so the policy extensions must not be critical except certificatePolicies itself.
bool isUnderstood(const Extension& extension) {
    struct Row {
        const KnownOid* type;
        bool (*decodes)(const Extension&);
    };
    static constexpr std::array<Row, 7> kUnderstood{
        {{&OID_CE_BASIC_CONSTRAINTS, decodes<BasicConstraints>},
         {&OID_CE_KEY_USAGE, decodes<KeyUsage>},
         {&OID_CE_EXT_KEY_USAGE, decodes<ExtKeyUsage>},
         {&OID_CE_SUBJECT_ALT_NAME, decodes<GeneralNames>},
         {&OID_CE_NAME_CONSTRAINTS, decodes<NameConstraints>},
         {&OID_CE_CERTIFICATE_POLICIES, decodes<CertificatePolicies>},
         {&OID_CE_CRL_DISTRIBUTION_POINTS, decodes<CrlDistributionPoints>}}};
    return std::ranges::any_of(kUnderstood,
                               [&](const Row& row) { return extension.extnId == *row.type && row.decodes(extension); });
}

Verdict checkValidity(const SignedCertificate& certificate, int64_t time) {
    const Validity& validity = certificate.tbs.validity;
    const std::optional<int64_t> begin = validity.notBefore.seconds(), end = validity.notAfter.seconds();
    if (!begin || !end) return {ECRV_INV_CRT_FMT, "malformed validity"};
    if (time < *begin) return {ECRV_CRTBEFORE, "not yet valid"};
    if (time > *end) return {ECRV_CRTAFTER, "expired"};
    return {};
}

Verdict checkExtensions(const SignedCertificate& certificate) {
    for (const Extension& extension : certificate.extensions()) {
        if (extension.critical.value() && !isUnderstood(extension)) {
            return {ECRV_PATH_VER_ERR, "unknown or malformed critical extension"};
        }
    }
    return {};
}

/// What an issuer must be: only a trust point may be one without saying so. `below` counts the certificates under it on
/// the path that are not self-issued, without the last one.
Verdict checkIssuer(const SignedCertificate& issuer, size_t below, bool trusted) {
    const bool says = issuer.extensions().find(OID_CE_BASIC_CONSTRAINTS) != nullptr;
    if (!issuer.isCaCrt() || (!says && !trusted)) return {ECRV_PATH_VER_ERR, "issuer is no authority"};
    const auto basic = issuer.extensions().get<BasicConstraints>(OID_CE_BASIC_CONSTRAINTS);
    if (basic && basic->pathLenConstraint) {
        const long limit = basic->pathLenConstraint->valueOr(0);
        if (limit < 0 || below > static_cast<size_t>(limit)) return {ECRV_PATH_VER_ERR, "path too long"};
    }
    return {};
}

Verdict checkUse(const SignedCertificate& certificate, uint32_t wanted) {
    const std::optional<KeyUsage> usage = certificate.keyUsage();
    if (wanted != 0 && usage && (usage->namedBits() & wanted) != wanted) {
        return {ECRV_PATH_VER_ERR, "key usage does not allow it"};
    }
    return {};
}

}  // namespace

struct PathBuilder::Search {
    const PathOptions& options;
    CertList certs;
    CertPath best;
    int verdicts = 0;
    int signatures = 0;

    [[nodiscard]] bool over() const { return best.good() || verdicts >= kMaxVerdicts || signatures >= kMaxSignatures; }
};

PathBuilder::PathBuilder(CertificateCache& cache, CertList trustPoints, IssuerSource issuers, StatusSource status)
    : cache_(&cache), trustPoints_(std::move(trustPoints)), issuers_(std::move(issuers)), status_(std::move(status)) {}

bool PathBuilder::isTrustPoint(const SignedCertificate& certificate) const {
    return contains(trustPoints_, certificate);
}

/// Possible issuers of the last certificate, the likely ones first: trust points, then those whose key identifier is
/// the one that the certificate names.
CertList PathBuilder::candidates(const Search& search) const {
    const SignedCertificate& last = *search.certs.back();
    CertList list;
    std::set<Bytes> seen;
    for (const CertPtr& one : search.certs) seen.insert(one->encoded());
    const auto add = [&](const CertPtr& one) {
        if (one && one->subject() == last.issuer() && seen.insert(one->encoded()).second) list.push_back(one);
    };
    std::ranges::for_each(trustPoints_, add);
    std::ranges::for_each(issuers_(last), add);
    const Bytes keyId = last.authorityKeyId();
    const auto rank = [&](const CertPtr& one) {
        const bool other = !keyId.empty() && one->getKeyIdFromCert() != keyId;
        return std::pair(other, !one->isValidAt(search.options.time));
    };
    std::ranges::stable_sort(list, {}, rank);
    return list;
}

int PathBuilder::checkSignature(const SignedCertificate& certificate, const SignedCertificate& issuer) {
    try {
        return cache_->isSignedBy(certificate, issuer) ? 0 : ECRV_CRTSIGN;
    } catch (const CryptoError&) {
        return ECRV_CRTALG;
    }
}

int PathBuilder::checkStatus(const SignedCertificate& certificate, const SignedCertificate& issuer,
                             const PathOptions& options) {
    if (options.revocation == RevocationCheck::None || !status_) return 0;
    const CrtStatus status = status_(certificate, issuer, options.time);
    switch (status.state) {
        case CrtStatus::State::Good:
            return 0;
        case CrtStatus::State::Revoked:
            return status.reason == CrlReason::CertificateHold ? ECRV_CRTHANG : ECRV_CRTREV;
        case CrtStatus::State::Unknown:
            break;
    }
    return options.revocation == RevocationCheck::Required ? status.code : 0;
}

/// Judges a complete path, whose signatures are right, from the trust point down.
CertPath PathBuilder::verdict(const CertList& certs, const PathOptions& options) {
    const auto bad = [&](Verdict verdict) { return CertPath{verdict.code, verdict.reason, certs}; };
    NameConstraintsState names;
    for (size_t i = certs.size(); i-- > 0;) {
        const SignedCertificate& certificate = *certs[i];
        const bool last = i == 0;
        if (const Verdict v = checkValidity(certificate, options.time)) return bad(v);
        if (const Verdict v = checkExtensions(certificate)) return bad(v);
        if (i + 1 < certs.size()) {
            if (const int code = checkStatus(certificate, *certs[i + 1], options)) return bad({code, "revocation"});
            const bool exempt = !last && certificate.isSelfIssued();
            if (!exempt && !names.allows(certificate)) return bad({ECRV_PATH_VER_ERR, "name not permitted"});
        }
        if (last) continue;
        const auto below =
            static_cast<size_t>(std::count_if(certs.begin() + 1, certs.begin() + static_cast<std::ptrdiff_t>(i),
                                              [](const CertPtr& one) { return !one->isSelfIssued(); }));
        if (const Verdict v = checkIssuer(certificate, below, i + 1 == certs.size())) return bad(v);
        if (!names.add(certificate)) return bad({ECRV_PATH_VER_ERR, "malformed name constraints"});
    }
    if (const Verdict v = checkUse(*certs.front(), options.keyUsage)) return bad(v);
    return {0, {}, certs};
}

void PathBuilder::judge(Search& search) {
    CertPath found = verdict(search.certs, search.options);
    ++search.verdicts;
    // Among bad paths the first one counts: its issuers are the likeliest.
    if (found.good() || search.verdicts == 1) search.best = std::move(found);
}

void PathBuilder::extend(Search& search) {
    if (isTrustPoint(*search.certs.back())) return judge(search);
    if (search.certs.size() == kMaxLength) return;
    CertPath misfit;
    bool anySigned = false;
    for (const CertPtr& issuer : candidates(search)) {
        const int code = checkSignature(*search.certs.back(), *issuer);
        ++search.signatures;
        search.certs.push_back(issuer);
        if (code == 0) {
            anySigned = true;
            extend(search);
        } else if (misfit.good()) {
            misfit = {code, "signature", search.certs};
        }
        search.certs.pop_back();
        if (search.over()) return;
    }
    // Only when no issuer of that name fits is the signature what is wrong.
    if (!anySigned && !misfit.good() && search.best.code == ECRV_CRTNOTFOUND) search.best = std::move(misfit);
}

CertPath PathBuilder::build(const CertPtr& certificate, const PathOptions& options) {
    Search search{options, {certificate}, {ECRV_CRTNOTFOUND, "no path to a trust point", {certificate}}, 0};
    extend(search);
    return std::move(search.best);
}

}  // namespace crv
