#include "pki/time_stamp_client.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/pkcs/signed_data.h"
#include "asn/tsp/signing_certificate.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "crypto/random_bridge.h"

namespace crv {

namespace {

constexpr size_t kNonceOctets = 16;

SignatureCheck checkSignature(const SignedData& data) {
    try {
        return data.verify();
    } catch (const CryptoError&) {
        return SignatureCheck::Unsupported;
    }
}

/// RFC 3161 2.4.2, RFC 5816 2.2.1: the signed attributes name the certificate, by either hash.
bool namesSigner(const SignerInfo& signer, const SignedCertificate& certificate) {
    SigningCertificateV2Attr newer;
    SigningCertificateAttr older;
    if (!signer.signedAttrs) return false;
    if (signer.signedAttrs->find(OID_AA_SIGNING_CERTIFICATE_V2))
        return signer.signedAttrs->get(OID_AA_SIGNING_CERTIFICATE_V2, newer) && newer.isOf(certificate);
    return signer.signedAttrs->get(OID_AA_SIGNING_CERTIFICATE, older) && older.isOf(certificate);
}

/// RFC 3161 2.3.
bool isOnlyForStamps(const SignedCertificate& certificate) {
    const Extension* extension = certificate.extensions().find(OID_CE_EXT_KEY_USAGE);
    const auto usages = certificate.extensions().get<ExtKeyUsage>(OID_CE_EXT_KEY_USAGE);
    return extension && extension->critical.value() && usages && usages->size() == 1 &&
           (*usages)[0] == OID_KP_TIME_STAMPING;
}

NetVerdict unverified(std::string why) {
    return {ECRV_TS_VERIF, "time stamp: " + std::move(why)};
}

/// A token taken apart.
struct Token {
    ContentInfo outer;
    SignedData data;
    TstInfo info;
    CertList certificates;
    CertPtr signer;

    NetVerdict read(ByteView der) {
        if (!outer.readExactly(der) || !outer.get(OID_PKCS7_SIGNED_DATA, data, ASN_FLAG_CONST | ASN_FLAG_COPY))
            return {ECRV_TCP_PROT, "time stamp: no signed data"};
        const auto content = data.content();
        if (!(data.encapContentInfo.contentType == OID_CT_TST_INFO) || !content || !info.readExactly(*content))
            return {ECRV_TCP_PROT, "time stamp: it holds no stamp"};
        if (data.signerInfos.size() != 1) return unverified("not signed exactly once");
        for (const SignedCertificate& one : data.certificateList())
            if (CertPtr kept = makeCert(encodingOf(one))) certificates.push_back(std::move(kept));
        for (const CertPtr& one : certificates)
            if (!signer && data.signerInfos[0].sid.matches(*one)) signer = one;
        return signer ? NetVerdict() : unverified("the signer's certificate is missing");
    }
};

}  // namespace

TimeStampReq TimeStampClient::request(KcHashAlgo hash, ByteView digest) {
    TimeStampReq request;
    Bytes nonce(kNonceOctets);
    if (!systemRandom(nonce)) throw CryptoError(CryptoFailure::NoRandom, "no random octets for a nonce");
    request.messageImprint.set(hash, digest);
    request.nonce.emplace().setUnsigned(nonce);
    request.certReq.setValue(true);
    return request;
}

NetObject TimeStampClient::object(const TimeStampReq& request) {
    NetObject object{kTimeStampLimits};
    object.body = request.encoded();
    object.contentType = "application/timestamp-query";
    return object;
}

NetVerdict TimeStampClient::judgeToken(ByteView der, const MessageImprint& imprint, int64_t now,
                                       TimeStampFacts& facts) const {
    Token token;
    if (NetVerdict bad = token.read(der); bad.code != 0) return bad;
    const TstInfo& info = token.info;
    const auto time = info.genTime.seconds();
    if (!(info.messageImprint == imprint)) return unverified("it stamps something else");
    if (!time) return unverified("it names no time");
    if (info.extensions && std::ranges::any_of(*info.extensions, [](const Extension& e) { return e.critical.value(); }))
        return unverified("an unknown critical extension");
    const AlgorithmPolicy* policy = certificates_->algorithms();
    const SignerInfo& signer = token.data.signerInfos[0];
    const auto algorithm = readSignAlgorithm(signer.signatureAlgorithm);
    std::vector<KcHashAlgo> hashes{hashAlgoOf(imprint.hashAlgorithm), hashAlgoOf(signer.digestAlgorithm)};
    if (algorithm) hashes.push_back(algorithm->hash);
    if (!policy || std::ranges::any_of(hashes, [&](KcHashAlgo hash) { return policy->hash(hash, now).refused; }))
        return unverified("a hash that the algorithm policy refuses");
    if (checkSignature(token.data) != SignatureCheck::Good) return unverified("the signature is wrong");
    if (!namesSigner(signer, *token.signer)) return unverified("it names another signer");
    if (!isOnlyForStamps(*token.signer)) return unverified("the signer's certificate is not only for time stamps");
    PathOptions options{now};
    options.extendedUsages.emplace_back(OID_KP_TIME_STAMPING);
    const PathVerdict path = certificates_->buildPath(token.signer, options, token.certificates);
    if (!path.good()) return unverified("path of the signer: " + path.reason);
    facts.genTime = *time;
    if (info.accuracy) facts.accuracy = info.accuracy->microseconds();
    facts.difference = now - *time;
    facts.policy = info.policy.text();
    facts.serial = info.serialNumber.decimal();
    facts.authority = token.signer->subject().text();
    facts.token = toBytes(der);
    return {};
}

NetVerdict TimeStampClient::judge(const TimeStampReq& request, ByteView octets, int64_t now,
                                  TimeStampFacts& facts) const {
    TimeStampResp response;
    if (!response.readExactly(octets, ASN_FLAG_CONST)) return {ECRV_TCP_PROT, "time stamp: what came is no answer"};
    if (!response.status.granted()) return {ECRV_TS_REJECTED, "time stamp: " + response.status.text()};
    if (!response.timeStampToken) return {ECRV_TCP_PROT, "time stamp: granted, but there is none"};
    const Bytes der = response.timeStampToken->encoded();
    Token token;
    if (NetVerdict bad = token.read(der); bad.code != 0) return bad;
    if (request.nonce && (!token.info.nonce || !(*token.info.nonce == *request.nonce)))
        return unverified("the nonce is another one");
    if (request.reqPolicy && !(token.info.policy == *request.reqPolicy)) return unverified("the policy is another one");
    return judgeToken(der, request.messageImprint, now, facts);
}

}  // namespace crv
