#include "asn/x509/signed_certificate.h"

#include <algorithm>
#include <set>

#include "asn/x509/signed_part.h"
#include "misc/exceptions.h"

namespace crv {

MemberTable TbsCertificate::members() const {
    using T = TbsCertificate;
    static constexpr Member kMembers[] = {defaulted<&T::version, 0>,
                                          member<&T::serialNumber>,
                                          member<&T::signature>,
                                          member<&T::issuer>,
                                          member<&T::validity>,
                                          member<&T::subject>,
                                          member<&T::subjectPublicKeyInfo>,
                                          member<&T::issuerUniqueId>,
                                          member<&T::subjectUniqueId>,
                                          member<&T::extensions>};
    return kMembers;
}

MemberTable SignedCertificate::members() const {
    static constexpr Member kMembers[] = {member<&SignedCertificate::tbs>,
                                          member<&SignedCertificate::signatureAlgorithm>,
                                          member<&SignedCertificate::signature>};
    return kMembers;
}

MemberTable SignedCertificateWithDesc::members() const {
    static constexpr Member kMembers[] = {member<&SignedCertificateWithDesc::certificate>,
                                          member<&SignedCertificateWithDesc::description>};
    return kMembers;
}

const Extensions& SignedCertificate::extensions() const {
    static const Extensions kNone;
    return tbs.extensions ? static_cast<const Extensions&>(*tbs.extensions) : kNone;
}

bool SignedCertificate::isCaCrt() const {
    if (!extensions().find(OID_CE_BASIC_CONSTRAINTS))
        return tbs.version.value() == 0 && !tbs.extensions && isSelfIssued();
    const auto constraints = extensions().get<BasicConstraints>(OID_CE_BASIC_CONSTRAINTS);
    if (!constraints || !constraints->cA.value()) return false;
    if (!extensions().find(OID_CE_KEY_USAGE)) return true;
    const auto usage = keyUsage();
    return usage && usage->bit(KeyUsage::kKeyCertSign);
}

std::vector<std::string> SignedCertificate::emails() const {
    std::vector<std::string> out;
    if (const auto names = extensions().get<GeneralNames>(OID_CE_SUBJECT_ALT_NAME))
        out = names->values(GeneralName::kRfc822Name);
    for (const RelativeDistinguishedName& set : tbs.subject) {
        for (const AttributeTypeAndValue& attribute : set)
            if (attribute.type == OID_PKCS9_EMAIL) out.push_back(attribute.valueUtf8());
    }
    std::set<std::string> seen;
    std::erase_if(out, [&](const std::string& address) { return !seen.insert(address).second; });
    return out;
}

std::string SignedCertificate::email() const {
    const std::vector<std::string> all = emails();
    return all.empty() ? std::string() : all.front();
}

Bytes SignedCertificate::getKeyIdFromCert() const {
    const auto id = extensions().get<SubjectKeyIdentifier>(OID_CE_SUBJECT_KEY_ID);
    if (id && !id->value().empty() && id->value().size() <= kMaxKeyIdLength) return toBytes(id->value());
    const KeyId hash = computeKeyIdentifierSha1Hash();
    return {hash.begin(), hash.end()};
}

Bytes SignedCertificate::authorityKeyId() const {
    const auto id = extensions().get<AuthorityKeyIdentifier>(OID_CE_AUTHORITY_KEY_ID);
    return id && id->keyIdentifier ? toBytes(id->keyIdentifier->value()) : Bytes();
}

Bytes SignedCertificate::fingerprint(KcHashAlgo algo) const {
    Bytes digest(hashLength(algo));
    VTEST(computeDigest(algo, digest.data(), static_cast<long>(digest.size())), "src/asn/x509/signed_certificate");
    return digest;
}

bool SignedCertificate::isSignedBy(const PublicKey& key) const {
    return signatureAlgorithm == tbs.signature && isPartSigned(tbs, signatureAlgorithm, signature, key);
}

}  // namespace crv
