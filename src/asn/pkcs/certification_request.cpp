#include "asn/pkcs/certification_request.h"

#include "asn/known_oids.h"
#include "asn/x509/sign_algo.h"
#include "asn/x509/signed_part.h"
#include "crypto/crypto_error.h"
#include "crypto/signer.h"

namespace crv {

MemberTable CertificationRequestInfo::members() const {
    using Info = CertificationRequestInfo;
    static constexpr Member kMembers[] = {member<&Info::version>, member<&Info::subject>,
                                          member<&Info::subjectPublicKeyInfo>, member<&Info::attributes>};
    return kMembers;
}

MemberTable CertificationRequest::members() const {
    static constexpr Member kMembers[] = {member<&CertificationRequest::info>,
                                          member<&CertificationRequest::signatureAlgorithm>,
                                          member<&CertificationRequest::signature>};
    return kMembers;
}

Extensions CertificationRequest::requestedExtensions() const {
    Extensions extensions;
    if (!info.attributes || !info.attributes->get(OID_PKCS9_EXTENSION_REQUEST, extensions)) return {};
    return extensions;
}

void CertificationRequest::setRequestedExtensions(const Extensions& extensions) {
    assertChangeable();
    if (!info.attributes) info.attributes.emplace();
    info.attributes->set(OID_PKCS9_EXTENSION_REQUEST, extensions);
}

void CertificationRequest::sign(const Signer& key, KeyScheme scheme, KcHashAlgo hash, RandomBridge& random) {
    const auto algorithm = signAlgorithm(scheme, hash);
    if (!algorithm) throw CryptoError(CryptoFailure::BadParameter, "no such signature algorithm");
    if (!info.attributes) info.attributes.emplace();
    signatureAlgorithm = *algorithm;
    signature.build(key.signMessage(scheme, hash, info.encoded(), random));
}

bool CertificationRequest::isSigned() const {
    return isPartSigned(info, signatureAlgorithm, signature, info.subjectPublicKeyInfo.publicKey());
}

}  // namespace crv
