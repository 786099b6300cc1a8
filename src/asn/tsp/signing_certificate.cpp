#include "asn/tsp/signing_certificate.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"

namespace crv {

namespace {

bool isIdentified(KcHashAlgo hash, ByteView digest, const std::optional<IssuerSerial>& issuerSerial,
                  const SignedCertificate& certificate) {
    if (!isHash(hash) || !std::ranges::equal(digest, certificate.fingerprint(hash))) return false;
    if (!issuerSerial) return true;
    return issuerSerial->serialNumber == certificate.serialNumber() &&
           std::ranges::any_of(issuerSerial->issuer, [&](const GeneralName& one) {
               return one.name() && *one.name() == certificate.issuer();
           });
}

}  // namespace

MemberTable IssuerSerial::members() const {
    static constexpr Member kMembers[] = {member<&IssuerSerial::issuer>, member<&IssuerSerial::serialNumber>};
    return kMembers;
}

MemberTable EssCertId::members() const {
    static constexpr Member kMembers[] = {member<&EssCertId::certHash>, member<&EssCertId::issuerSerial>};
    return kMembers;
}

MemberTable EssCertIdV2::members() const {
    static constexpr Member kMembers[] = {member<&EssCertIdV2::hashAlgorithm>, member<&EssCertIdV2::certHash>,
                                          member<&EssCertIdV2::issuerSerial>};
    return kMembers;
}

bool namesCertificate(const EssCertId& id, const SignedCertificate& certificate) {
    return isIdentified(KcHashAlgo::Sha1, id.certHash.value(), id.issuerSerial, certificate);
}

bool namesCertificate(const EssCertIdV2& id, const SignedCertificate& certificate) {
    return isIdentified(id.hashAlgorithm ? hashAlgoOf(*id.hashAlgorithm) : KcHashAlgo::Sha256, id.certHash.value(),
                        id.issuerSerial, certificate);
}

std::optional<bool> namedBy(const Attributes& attributes, const SignedCertificate& certificate) {
    std::optional<bool> named;
    SigningCertificateV2Attr second;
    SigningCertificateAttr first;
    if (attributes.find(OID_AA_SIGNING_CERTIFICATE_V2))
        named = attributes.get(OID_AA_SIGNING_CERTIFICATE_V2, second) && second.isOf(certificate);
    if (named != false && attributes.find(OID_AA_SIGNING_CERTIFICATE))
        named = attributes.get(OID_AA_SIGNING_CERTIFICATE, first) && first.isOf(certificate);
    return named;
}

}  // namespace crv
