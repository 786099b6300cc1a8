#include "asn/ocsp/ocsp_response.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "asn/x509/signed_part.h"

namespace crv {

MemberTable OcspRevokedInfo::members() const {
    static constexpr Member kMembers[] = {member<&OcspRevokedInfo::revocationTime>,
                                          member<&OcspRevokedInfo::revocationReason>};
    return kMembers;
}

MemberTable OcspSingleResponse::members() const {
    using T = OcspSingleResponse;
    static constexpr Member kMembers[] = {member<&T::certId>, member<&T::certStatus>, member<&T::thisUpdate>,
                                          member<&T::nextUpdate>, member<&T::extensions>};
    return kMembers;
}

MemberTable OcspResponseData::members() const {
    using T = OcspResponseData;
    static constexpr Member kMembers[] = {defaulted<&T::version, 0>, member<&T::responderId>, member<&T::producedAt>,
                                          member<&T::responses>, member<&T::extensions>};
    return kMembers;
}

MemberTable OcspBasicResponse::members() const {
    using T = OcspBasicResponse;
    static constexpr Member kMembers[] = {member<&T::tbs>, member<&T::signatureAlgorithm>, member<&T::signature>,
                                          member<&T::certs>};
    return kMembers;
}

MemberTable OcspResponseBytes::members() const {
    static constexpr Member kMembers[] = {member<&OcspResponseBytes::responseType>,
                                          member<&OcspResponseBytes::response>};
    return kMembers;
}

MemberTable OcspResponse::members() const {
    static constexpr Member kMembers[] = {member<&OcspResponse::responseStatus>, member<&OcspResponse::responseBytes>};
    return kMembers;
}

bool OcspResponderId::matches(const SignedCertificate& certificate) const {
    if (const auto* name = chosenAs<DistinguishedName>()) return *name == certificate.subject();
    const auto* key = chosenAs<ASNoctstr>();
    return key && std::ranges::equal(key->value(), certificate.computeKeyIdentifierSha1Hash());
}

std::optional<Bytes> OcspResponseData::nonce() const {
    ASNoctstr octets;
    const Extension* found = extensions ? extensions->find(OID_OCSP_NONCE) : nullptr;
    if (!found) return std::nullopt;
    // Responders before RFC 6960 4.4.1 put the bare octets there.
    return toBytes(found->decode(octets) ? octets.value() : found->extnValue.value());
}

bool OcspBasicResponse::isSignedBy(const PublicKey& key) const {
    return isPartSigned(tbs, signatureAlgorithm, signature, key);
}

CertList OcspBasicResponse::certificates() const {
    CertList list;
    if (!certs) return list;
    for (const ASNany& any : *certs)
        if (CertPtr one = makeCert(any.getMemory())) list.push_back(std::move(one));
    return list;
}

bool OcspResponse::getBasic(OcspBasicResponse& basic) const {
    return responseBytes && responseBytes->responseType == OID_OCSP_BASIC &&
           basic.readExactly(responseBytes->response.value(), ASN_FLAG_CONST | ASN_FLAG_COPY);
}

}  // namespace crv
