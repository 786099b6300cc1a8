#include "messages/signature_parts.h"

#include "asn/known_oids.h"
#include "asn/pkcs/signature_policy.h"
#include "asn/tsp/signing_certificate.h"
#include "asn/x509/sign_algo.h"
#include "asn/x509/time.h"
#include "corvane/crverrors.h"
#include "crypto/sign_algo_map.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

SignaturePolicyId policyAttribute(const SignaturePolicy& policy) {
    SignaturePolicyId id;
    id.sigPolicyId = policy.identifier;
    if (isHash(policy.hash)) {
        OtherHashAlgAndValue& hash = id.sigPolicyHash.emplace();
        hash.hashAlgorithm = hashAlgorithm(policy.hash);
        hash.hashValue.build(policy.digest);
    }
    return id;
}

/// Of the second version, by SHA-256, which DER leaves out, issuer and number.
SigningCertificateV2Attr certificateAttribute(const SignedCertificate& certificate) {
    SigningCertificateV2Attr attribute;
    EssCertIdV2& id = attribute.certs.add();
    id.certHash.build(certificate.fingerprint(KcHashAlgo::Sha256));
    IssuerSerial& issuer = id.issuerSerial.emplace();
    issuer.issuer.add().setName(certificate.issuer());
    issuer.serialNumber = certificate.serialNumber();
    return attribute;
}

Attributes signedAttributes(const SignatureOrder& order) {
    Attributes attributes;
    attributes.set(OID_PKCS9_CONTENT_TYPE, order.contentType);
    attributes.set(OID_PKCS9_MESSAGE_DIGEST, ASNoctstr(order.contentDigest));
    attributes.set(OID_AA_SIGNING_CERTIFICATE_V2, certificateAttribute(*order.signer.certificate));
    if (order.params.time) attributes.set(OID_PKCS9_SIGNING_TIME, Time(*order.params.time));
    if (order.params.policy) attributes.set(OID_AA_SIGNATURE_POLICY, policyAttribute(*order.params.policy));
    return attributes;
}

}  // namespace

void demandFit(const MessageSignerKey& signer) {
    if (!signer.key || !signer.certificate) throw CrvApiException(ECRV_SKEYS_NOT_PRES);
    const KeyScheme own = signer.key->scheme();
    const bool scheme = own == signer.scheme || (own == KeyScheme::Rsa && signer.scheme == KeyScheme::RsaPss);
    if (!scheme || !isHashSupported(signer.scheme, signer.hash) ||
        !isSignAlgoValidForKeyLength(signer.scheme, signer.hash, signer.key->bits()))
        throw CrvApiException(ECRV_SIG_WITH_DIG_NOT_SUPPORTED);
}

MadeSigner makeSignerInfo(const SignatureOrder& order, RandomBridge& random) {
    const MessageSignerKey& who = order.signer;
    SignerInfo info;
    info.version.setValue(1);
    info.sid.set(*who.certificate);
    info.digestAlgorithm = hashAlgorithm(who.hash);
    info.signatureAlgorithm = *signAlgorithm(who.scheme, who.hash);
    const Attributes attributes = signedAttributes(order);
    info.signedAttrs.emplace(attributes);
    info.signature.build(who.key->signMessage(who.scheme, who.hash, attributes.encoded(), random));
    MadeSigner made;
    if (order.params.timeStamp) {
        // EN 319 122-1 5.3: of the octets of the signature.
        SignatureStamp stamp = order.params.timeStamp(who.hash, hashOf(who.hash, info.signature.value()));
        ASNany any;
        if (!any.build(stamp.token)) throw CrvApiException(ECRV_TS_VERIF, "the time stamp is malformed");
        info.unsignedAttrs.emplace().set(OID_AA_TIME_STAMP_TOKEN, any);
        made.proofs = std::move(stamp.proofs);
    }
    made.encoding = info.encoded();
    return made;
}

}  // namespace crv
