#include "pki/certificate_facts.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "asn/x509/ext_policies.h"
#include "corvane/crverrors.h"
#include "crypto/kc_hash.h"

namespace crv {

namespace {

using Facts = CertificateFacts;

/// Path lengths and the like beyond this mean no limit, whatever their size.
constexpr size_t kNoLimit = 1'000'000;

/// A number that is not negative; nothing for one that is.
std::optional<size_t> countOf(const ASNinteger& number) {
    if (number.isNegative()) return std::nullopt;
    return static_cast<size_t>(std::min(number.valueOr(kNoLimit), static_cast<long>(kNoLimit)));
}

bool takeCount(const ASNinteger& number, std::optional<size_t>& count) {
    count = countOf(number);
    return count.has_value();
}

template <class List>
std::optional<std::vector<ASNobjectId>> identifiersOf(const List& list) {
    std::vector<ASNobjectId> all;
    for (const auto& one : list) all.emplace_back(one);
    return all;
}

bool takeBasicConstraints(const Extension& extension, Facts& facts) {
    BasicConstraints basic;
    if (!extension.decode(basic) || !isDerBool(basic.cA)) return false;
    facts.hasBasicConstraints = true;
    facts.isAuthority = basic.cA.value();
    return !basic.pathLenConstraint || takeCount(*basic.pathLenConstraint, facts.pathLength);
}

bool takeKeyUsage(const Extension& extension, Facts& facts) {
    KeyUsage usage;
    if (!extension.decode(usage)) return false;
    facts.keyUsage = usage.namedBits();
    return facts.keyUsage != 0;  // RFC 5280 4.2.1.3: one bit at least
}

bool takeExtendedUsages(const Extension& extension, Facts& facts) {
    ExtKeyUsage usages;
    if (!extension.decode(usages) || usages.empty()) return false;
    facts.extendedUsages = identifiersOf(usages);
    return true;
}

bool takeAlternativeNames(const Extension& extension, Facts& facts) {
    return extension.decode(facts.alternativeNames.emplace()) && !facts.alternativeNames->empty();
}

/// Distances other than 0 and infinity must not be used (4.2.1.10).
template <class Trees>
bool isWhole(const std::optional<Trees>& trees) {
    return !trees || (!trees->empty() && std::ranges::all_of(*trees, [](const GeneralSubtree& tree) {
        return tree.minimum.valueOr(1) == 0 && !tree.maximum;
    }));
}

bool takeNameConstraints(const Extension& extension, Facts& facts) {
    NameConstraints& names = facts.constraints.emplace();
    return extension.decode(names) && (names.permittedSubtrees || names.excludedSubtrees) &&
           isWhole(names.permittedSubtrees) && isWhole(names.excludedSubtrees);
}

/// A policy must not stand twice (4.2.1.4).
bool takePolicies(const Extension& extension, Facts& facts) {
    CertificatePolicies policies;
    if (!extension.decode(policies) || policies.empty()) return false;
    std::set<ASNobjectId> seen;
    auto& all = facts.policies.emplace();
    for (const PolicyInformation& policy : policies) {
        if (!seen.insert(policy.policyIdentifier).second) return false;
        all.push_back(policy.policyIdentifier);
    }
    return true;
}

bool takeMappings(const Extension& extension, Facts& facts) {
    PolicyMappings mappings;
    if (!extension.decode(mappings) || mappings.empty()) return false;
    for (const PolicyMapping& one : mappings)
        facts.mappings.push_back({one.issuerDomainPolicy, one.subjectDomainPolicy});
    return true;
}

bool takePolicyConstraints(const Extension& extension, Facts& facts) {
    PolicyConstraints limits;
    if (!extension.decode(limits)) return false;
    if (!limits.requireExplicitPolicy && !limits.inhibitPolicyMapping) return false;
    return (!limits.requireExplicitPolicy || takeCount(*limits.requireExplicitPolicy, facts.requireExplicit)) &&
           (!limits.inhibitPolicyMapping || takeCount(*limits.inhibitPolicyMapping, facts.inhibitMapping));
}

bool takeInhibitAny(const Extension& extension, Facts& facts) {
    ASNinteger skip;
    return extension.decode(skip) && takeCount(skip, facts.inhibitAny);
}

bool takeDistributionPoints(const Extension& extension, Facts& facts) {
    return extension.decode(facts.distributionPoints.emplace()) && !facts.distributionPoints->empty();
}

/// Key identifiers are hints: a malformed one is none.
bool takeSubjectKeyId(const Extension& extension, Facts& facts) {
    SubjectKeyIdentifier id;
    if (extension.decode(id)) facts.subjectKeyId = toBytes(id.value());
    return true;
}

bool takeAuthorityKeyId(const Extension& extension, Facts& facts) {
    AuthorityKeyIdentifier id;
    if (extension.decode(id) && id.keyIdentifier) facts.authorityKeyId = toBytes(id.keyIdentifier->value());
    return true;
}

/// Extensions that are looked at here; a critical one that is not among them is unknown.
struct ExtensionRow {
    const KnownOid& type;
    bool (*take)(const Extension&, Facts&);
    const char* clause;
};

constexpr ExtensionRow kExtensions[] = {
    {OID_CE_BASIC_CONSTRAINTS, takeBasicConstraints, "4.2.1.9"},
    {OID_CE_KEY_USAGE, takeKeyUsage, "4.2.1.3"},
    {OID_CE_EXT_KEY_USAGE, takeExtendedUsages, "4.2.1.12"},
    {OID_CE_SUBJECT_ALT_NAME, takeAlternativeNames, "4.2.1.6"},
    {OID_CE_NAME_CONSTRAINTS, takeNameConstraints, "4.2.1.10"},
    {OID_CE_CERTIFICATE_POLICIES, takePolicies, "4.2.1.4"},
    {OID_CE_POLICY_MAPPINGS, takeMappings, "4.2.1.5"},
    {OID_CE_POLICY_CONSTRAINTS, takePolicyConstraints, "4.2.1.11"},
    {OID_CE_INHIBIT_ANY_POLICY, takeInhibitAny, "4.2.1.14"},
    {OID_CE_CRL_DISTRIBUTION_POINTS, takeDistributionPoints, "4.2.1.13"},
    {OID_CE_SUBJECT_KEY_ID, takeSubjectKeyId, "4.2.1.2"},
    {OID_CE_AUTHORITY_KEY_ID, takeAuthorityKeyId, "4.2.1.1"},
};

void takeExtension(const Extension& extension, Facts& facts) {
    const auto* row =
        std::ranges::find_if(kExtensions, [&](const ExtensionRow& one) { return extension.extnId == one.type; });
    if (row == std::end(kExtensions)) {
        if (extension.critical.value()) facts.unknownCritical.push_back(extension.extnId);
    } else if (!row->take(extension, facts) && !facts.fault) {
        facts.fault = {ECRV_PATH_VER_ERR, row->clause, "malformed extension " + extension.extnId.name()};
    }
}

PathFault faultOfBody(const SignedCertificate& certificate, Facts& facts) {
    const TbsCertificate& tbs = certificate.tbs;
    const auto begin = tbs.validity.notBefore.seconds(), end = tbs.validity.notAfter.seconds();
    if (!begin || !end) return {ECRV_INV_CRT_FMT, "4.1.2.5", "malformed validity"};
    facts.notBefore = *begin;
    facts.notAfter = *end;
    if (tbs.issuer.empty()) return {ECRV_INV_CRT_FMT, "4.1.2.4", "the issuer has no name"};
    if (tbs.extensions && (tbs.version.value() != 2 || tbs.extensions->empty()))
        return {ECRV_INV_CRT_FMT, "4.1.2.9", "extensions that the version does not have, or none"};
    return faultOfExtensions(certificate.extensions(), ECRV_PATH_VER_ERR);
}

}  // namespace

Digest digestOf(ByteView octets) {
    Digest digest;
    hashInto(KcHashAlgo::Sha256, octets, digest);
    return digest;
}

Bytes nameKey(const DistinguishedName& name) {
    return name.normalizedEncoding();
}

bool isDerBool(const ASNbool& value) {
    return !value.value() || value.contents()[0] == 0xFF;
}

PathFault faultOfExtensions(const Extensions& extensions, int code) {
    std::set<std::string_view> seen;
    for (const Extension& extension : extensions) {
        if (!seen.insert(asText(extension.extnId.contents())).second)
            return {code, "4.2", "extension " + extension.extnId.name() + " stands twice"};
        if (!isDerBool(extension.critical)) return {code, "4.1", "BOOLEAN that is not in DER"};
    }
    return {};
}

const std::shared_ptr<const PublicKey>& CertificateFacts::key() const {
    if (keyTried_) return key_;
    if (auto key = certificate->keyInfo().usableKey()) key_ = std::make_shared<PublicKey>(*std::move(key));
    keyTried_ = true;
    return key_;
}

const Digest& CertificateFacts::keyDigest() const {
    if (!keyHashed_) keyDigest_ = digestOf(certificate->keyInfo().keptEncoding());
    keyHashed_ = true;
    return keyDigest_;
}

FactsPtr factsOf(const CertPtr& certificate) {
    auto facts = std::make_shared<CertificateFacts>();
    facts->certificate = certificate;
    facts->digest = digestOf(encodingOf(*certificate));
    facts->subject = nameKey(certificate->subject());
    facts->issuer = nameKey(certificate->issuer());
    facts->selfIssued = facts->subject == facts->issuer;
    facts->fault = faultOfBody(*certificate, *facts);
    for (const Extension& extension : certificate->extensions()) takeExtension(extension, *facts);
    return facts;
}

}  // namespace crv
