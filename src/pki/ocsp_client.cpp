#include "pki/ocsp_client.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "asn/x509/signed_part.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "crypto/random_bridge.h"

namespace crv {

namespace {

/// Certificates that come along are looked at up to this number.
constexpr size_t kMostCertificates = 8;

bool hasUnknownCritical(const std::optional<Explicit<1, Extensions>>& extensions) {
    return extensions && std::ranges::any_of(*extensions, [](const Extension& one) {
               return one.critical.value() && !(one.extnId == OID_OCSP_NONCE);
           });
}

bool maySignOcsp(const CertificateFacts& facts) {
    return facts.extendedUsages &&
           std::ranges::any_of(*facts.extendedUsages,
                               [](const ASNobjectId& one) { return one == OID_KP_OCSP_SIGNING; }) &&
           facts.allows(KeyUsage::kDigitalSignature);
}

/// Whether what is signed so may be relied on; an answer signed with SHA-1 is not, whatever the policy.
std::string faultOfAlgorithm(const AlgorithmIdentifier& signature, const AlgorithmPolicy* policy, int64_t time) {
    const auto algorithm = readSignAlgorithm(signature);
    if (!algorithm) return "unknown signature algorithm";
    if (!policy) return "the algorithm policy of the configuration cannot be read";
    if (algorithm->hash == KcHashAlgo::Md5 || algorithm->hash == KcHashAlgo::Sha1 ||
        policy->hash(algorithm->hash, time).refused) {
        return "signed with a hash that is not relied on";
    }
    return {};
}

std::string faultOfTimes(const OcspSingleResponse& single, int64_t now) {
    const auto from = single.thisUpdate.seconds();
    if (!from) return "no time of the answer";
    if (*from > now + OcspClient::kClockSkew) return "an answer from the future";
    if (!single.nextUpdate)
        return now - *from > OcspClient::kLongestWithoutEnd ? "an old answer that names no end" : std::string();
    const auto end = single.nextUpdate->seconds();
    return !end || *end + OcspClient::kClockSkew < now ? "an answer that is out of date" : std::string();
}

CrtStatus statusOf(const OcspSingleResponse& single, const std::string& signer, int64_t now) {
    CrtStatus status;
    status.source.ocsp = true;
    status.source.issuer = signer;
    status.source.thisUpdate = single.thisUpdate.seconds().value_or(0);
    status.source.age = now - status.source.thisUpdate;
    switch (single.certStatus.getChosenIndex()) {
        case OcspCertStatus::kGood:
            status.state = CrtStatus::State::Good;
            break;
        case OcspCertStatus::kRevoked: {
            const auto* revoked = single.certStatus.chosenAs<OcspRevokedInfo>();
            status.state = CrtStatus::State::Revoked;
            status.revokedAt = revoked->revocationTime.seconds().value_or(0);
            if (revoked->revocationReason)
                status.reason = static_cast<CrlReason>(revoked->revocationReason->valueOr(0));
            break;
        }
        default:
            status.code = ECRV_CRL_NOT_FOUND;
            status.text = "the OCSP responder does not know the certificate";
    }
    return status;
}

}  // namespace

void OcspClient::init(CertificateManager& certificates, RevocationManager& revocation) {
    certificates_ = &certificates;
    revocation_ = &revocation;
}

OcspQuestion OcspClient::question(const CertPtr& certificate, const WorkingKey& issuerKey, const CertPtr& issuer,
                                  int64_t time, bool fresh) const {
    OcspQuestion question{certificate, issuer, issuerKey.key};
    question.id.set(*certificate, *issuer);
    question.time = time;
    if (!fresh) return question;
    question.nonce.resize(kNonceSize);
    if (!systemRandom(question.nonce)) throw CryptoError(CryptoFailure::NoRandom, "no random octets for a nonce");
    return question;
}

NetObject OcspClient::object(const OcspQuestion& question) {
    NetObject object{kOcspLimits};
    OcspRequest request;
    request.build(question.id, question.nonce);
    object.body = request.encoded();
    object.contentType = "application/ocsp-request";
    return object;
}

/// RFC 6960 4.2.2.2, and whether the delegate itself is still to be believed (4.2.2.2.1).
std::string OcspClient::faultOfDelegate(const OcspQuestion& question, const SignedCertificate& delegate) const {
    const CertPtr kept = certificates_->cache().certificate(encodingOf(delegate));
    const FactsPtr facts = certificates_->cache().facts(kept);
    const AlgorithmPolicy* policy = certificates_->algorithms();
    if (facts->fault || !facts->unknownCritical.empty()) return "the responder's certificate is malformed";
    if (!(delegate.issuer() == question.issuer->subject()) || !isKnownSignedBy(delegate, *question.issuerKey))
        return "the responder's certificate is not of the authority";
    if (!maySignOcsp(*facts)) return "the responder's certificate is not for OCSP";
    if (std::string why = faultOfAlgorithm(delegate.signatureAlgorithm, policy, question.time); !why.empty())
        return "the responder's certificate: " + why;
    if (question.time < facts->notBefore || question.time > facts->notAfter)
        return "the responder's certificate is not valid now";
    if (!facts->key() || policy->key(*facts->key(), question.time).refused) return "the responder's key is too weak";
    if (delegate.extensions().find(OID_OCSP_NO_CHECK)) return {};
    const CrtStatus status = revocation_->status(*kept, *question.issuer, question.time);
    return status.state == CrtStatus::State::Good ? "" : "no CRL tells that the responder's certificate is good";
}

/// A trust point that the user chose to answer for authorities: one for OCSP alone, no authority itself.
bool OcspClient::isResponder(const CertificateFacts& facts, int64_t time) const {
    const AlgorithmPolicy* policy = certificates_->algorithms();
    return maySignOcsp(facts) && !facts.isAuthority && !facts.fault && facts.unknownCritical.empty() &&
           time >= facts.notBefore && time <= facts.notAfter && policy && facts.key() &&
           !policy->key(*facts.key(), time).refused;
}

std::string OcspClient::faultOfSigner(const OcspQuestion& question, const OcspBasicResponse& basic,
                                      std::string& signer) const {
    const OcspResponderId& id = basic.tbs.responderId;
    std::string fault = "nobody signed it who may";
    if (id.matches(*question.issuer) && isKnownSignedBy(basic, *question.issuerKey)) {
        signer = question.issuer->subject().text();
        return {};
    }
    CertList delegates = basic.certificates();
    if (delegates.size() > kMostCertificates) delegates.resize(kMostCertificates);
    for (const CertPtr& one : delegates) {
        const FactsPtr facts = certificates_->cache().facts(one);
        if (!id.matches(*one) || !facts->key() || !isKnownSignedBy(basic, *facts->key())) continue;
        signer = one->subject().text();
        fault = faultOfDelegate(question, *one);
        if (fault.empty()) return {};
    }
    for (const CertPtr& one : certificates_->trustPoints()) {
        const FactsPtr facts = certificates_->cache().facts(one);
        if (!id.matches(*one) || !isResponder(*facts, question.time) || !isKnownSignedBy(basic, *facts->key()))
            continue;
        signer = one->subject().text();
        return {};
    }
    return fault;
}

NetVerdict OcspClient::judge(const OcspQuestion& question, ByteView octets, OcspAnswer& answer) const {
    const auto refuse = [](std::string why) { return NetVerdict{ECRV_TCP_PROT, "OCSP: " + std::move(why)}; };
    OcspResponse response;
    OcspBasicResponse basic;
    if (!question.issuerKey) return refuse("the authority's key cannot be used");
    if (!response.readExactly(octets)) return refuse("what came is no answer");
    if (!response.isSuccessful())
        return refuse("the responder answers with status " + response.responseStatus.decimal());
    if (!response.getBasic(basic)) return refuse("an answer of an unknown kind");
    const AlgorithmPolicy* policy = certificates_->algorithms();
    if (std::string why = faultOfAlgorithm(basic.signatureAlgorithm, policy, question.time); !why.empty())
        return refuse(why);
    if (hasUnknownCritical(basic.tbs.extensions)) return refuse("an unknown critical extension");
    if (const auto nonce = basic.tbs.nonce(); nonce && !question.nonce.empty() && *nonce != question.nonce)
        return refuse("the nonce is another one");
    const auto isOurs = [&](const OcspSingleResponse& one) { return one.certId == question.id; };
    if (std::ranges::count_if(basic.tbs.responses, isOurs) != 1) return refuse("not about the certificate asked about");
    const OcspSingleResponse& single = *std::ranges::find_if(basic.tbs.responses, isOurs);
    if (hasUnknownCritical(single.extensions)) return refuse("an unknown critical extension");
    if (std::string why = faultOfTimes(single, question.time); !why.empty()) return refuse(why);
    std::string signer;
    if (std::string why = faultOfSigner(question, basic, signer); !why.empty()) return refuse(why);
    answer.status = statusOf(single, signer, question.time);
    answer.keeps = single.nextUpdate.has_value();
    return {};
}

}  // namespace crv
