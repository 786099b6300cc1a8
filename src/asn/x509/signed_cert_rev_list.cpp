#include "asn/x509/signed_cert_rev_list.h"

#include <algorithm>
#include <span>

#include "asn/known_oids.h"
#include "asn/x509/ext_key.h"
#include "asn/x509/signed_part.h"

namespace crv {

namespace {

constexpr const KnownOid* kListExtensions[] = {
    &OID_CE_CRL_NUMBER,       &OID_CE_DELTA_CRL_INDICATOR, &OID_CE_ISSUING_DISTRIBUTION_POINT,
    &OID_CE_AUTHORITY_KEY_ID, &OID_CE_ISSUER_ALT_NAME,     &OID_CE_FRESHEST_CRL,
};
constexpr const KnownOid* kEntryExtensions[] = {
    &OID_CE_CRL_REASON,
    &OID_CE_INVALIDITY_DATE,
    &OID_CE_CERTIFICATE_ISSUER,
    &OID_CE_HOLD_INSTRUCTION,
};

bool allUnderstood(const Extensions& extensions, std::span<const KnownOid* const> known) {
    return std::ranges::all_of(extensions, [&](const Extension& extension) {
        return !extension.critical.value() ||
               std::ranges::any_of(known, [&](const KnownOid* oid) { return extension.extnId == *oid; });
    });
}

/// Whether the entry, and those behind it, belong to the issuer; nothing when the entry does not say.
std::optional<bool> belongsTo(const RevokedCertificate& entry, const DistinguishedName& issuer) {
    const auto names = entry.certificateIssuer();
    if (!names) return std::nullopt;
    return std::ranges::any_of(*names, [&](const GeneralName& name) { return name.name() && *name.name() == issuer; });
}

}  // namespace

MemberTable TbsCertList::members() const {
    static constexpr Member kMembers[] = {member<&TbsCertList::version>,      member<&TbsCertList::signature>,
                                          member<&TbsCertList::issuer>,       member<&TbsCertList::thisUpdate>,
                                          member<&TbsCertList::nextUpdate>,   member<&TbsCertList::revokedCertificates>,
                                          member<&TbsCertList::crlExtensions>};
    return kMembers;
}

MemberTable SignedCertRevList::members() const {
    static constexpr Member kMembers[] = {member<&SignedCertRevList::tbs>,
                                          member<&SignedCertRevList::signatureAlgorithm>,
                                          member<&SignedCertRevList::signature>};
    return kMembers;
}

const Extensions& SignedCertRevList::extensions() const {
    static const Extensions kNone;
    return tbs.crlExtensions ? static_cast<const Extensions&>(*tbs.crlExtensions) : kNone;
}

std::optional<int64_t> SignedCertRevList::nextUpdate() const {
    return tbs.nextUpdate ? tbs.nextUpdate->seconds() : std::nullopt;
}

std::optional<ASNinteger> SignedCertRevList::crlNumber() const {
    return extensions().get<ASNinteger>(OID_CE_CRL_NUMBER);
}

std::optional<ASNinteger> SignedCertRevList::baseCrlNumber() const {
    return extensions().get<ASNinteger>(OID_CE_DELTA_CRL_INDICATOR);
}

Bytes SignedCertRevList::authorityKeyId() const {
    const auto id = extensions().get<AuthorityKeyIdentifier>(OID_CE_AUTHORITY_KEY_ID);
    return id && id->keyIdentifier ? toBytes(id->keyIdentifier->value()) : Bytes();
}

std::optional<IssuingDistributionPoint> SignedCertRevList::issuingDistributionPoint() const {
    return extensions().get<IssuingDistributionPoint>(OID_CE_ISSUING_DISTRIBUTION_POINT);
}

bool SignedCertRevList::hasUnknownCriticalExtension() const {
    const auto malformed = [](const Extensions& all, const KnownOid& oid, const auto& value) {
        return !value && all.find(oid) != nullptr;
    };
    if (!allUnderstood(extensions(), kListExtensions) ||
        malformed(extensions(), OID_CE_ISSUING_DISTRIBUTION_POINT, issuingDistributionPoint()) ||
        malformed(extensions(), OID_CE_DELTA_CRL_INDICATOR, baseCrlNumber())) {
        return true;
    }
    auto cursor = entries();
    while (const RevokedCertificate* entry = cursor.next()) {
        if (!entry->crlEntryExtensions) continue;
        const Extensions all = entry->extensions();
        const auto issuers = all.get<GeneralNames>(OID_CE_CERTIFICATE_ISSUER);
        if (all.empty() || !allUnderstood(all, kEntryExtensions) || malformed(all, OID_CE_CERTIFICATE_ISSUER, issuers))
            return true;
    }
    return false;
}

RevokedCertificates::Cursor SignedCertRevList::entries() const {
    return tbs.revokedCertificates ? tbs.revokedCertificates->entries() : RevokedCertificates::Cursor({});
}

size_t SignedCertRevList::entryCount() const {
    return tbs.revokedCertificates ? tbs.revokedCertificates->count() : 0;
}

std::optional<RevokedCertificate> SignedCertRevList::find(const ASNinteger& serialNumber,
                                                          const DistinguishedName& certificateIssuer) const {
    const auto point = issuingDistributionPoint();
    const bool indirect = point && point->indirectCrl.value();
    bool sameIssuer = issuer() == certificateIssuer;
    if (!indirect && !sameIssuer) return std::nullopt;
    auto cursor = entries();
    while (const RevokedCertificate* entry = cursor.next()) {
        if (indirect) sameIssuer = belongsTo(*entry, certificateIssuer).value_or(sameIssuer);
        if (sameIssuer && entry->userCertificate == serialNumber) return *entry;
    }
    return std::nullopt;
}

bool SignedCertRevList::isSignedBy(const PublicKey& key) const {
    return signatureAlgorithm == tbs.signature && isPartSigned(tbs, signatureAlgorithm, signature, key);
}

}  // namespace crv
