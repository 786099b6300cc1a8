#include "asn/ocsp/ocsp_request.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"

namespace crv {

MemberTable OcspCertId::members() const {
    static constexpr Member kMembers[] = {member<&OcspCertId::hashAlgorithm>, member<&OcspCertId::issuerNameHash>,
                                          member<&OcspCertId::issuerKeyHash>, member<&OcspCertId::serialNumber>};
    return kMembers;
}

MemberTable OcspSingleRequest::members() const {
    static constexpr Member kMembers[] = {member<&OcspSingleRequest::reqCert>, member<&OcspSingleRequest::extensions>};
    return kMembers;
}

MemberTable OcspTbsRequest::members() const {
    static constexpr Member kMembers[] = {defaulted<&OcspTbsRequest::version, 0>,
                                          member<&OcspTbsRequest::requestorName>, member<&OcspTbsRequest::requestList>,
                                          member<&OcspTbsRequest::extensions>};
    return kMembers;
}

MemberTable OcspRequest::members() const {
    static constexpr Member kMembers[] = {member<&OcspRequest::tbs>, member<&OcspRequest::signature>};
    return kMembers;
}

void OcspCertId::set(const SignedCertificate& certificate, const SignedCertificate& issuer, KcHashAlgo hash) {
    hashAlgorithm = crv::hashAlgorithm(hash);
    issuerNameHash.build(ByteView(hashOf(hash, certificate.issuer().encoded())));
    issuerKeyHash.build(ByteView(hashOf(hash, issuer.keyInfo().subjectPublicKey.octets())));
    serialNumber = certificate.serialNumber();
}

bool operator==(const OcspCertId& a, const OcspCertId& b) {
    return a.hashAlgorithm == b.hashAlgorithm && a.issuerNameHash == b.issuerNameHash &&
           a.issuerKeyHash == b.issuerKeyHash && a.serialNumber == b.serialNumber;
}

void OcspRequest::build(const OcspCertId& id, ByteView nonce) {
    static_cast<void>(tbs.requestList.add().reqCert.copyObject(id));
    if (!nonce.empty()) tbs.extensions.emplace().set(OID_OCSP_NONCE, ASNoctstr(nonce));
}

}  // namespace crv
