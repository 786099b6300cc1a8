#include "messages/signature_check.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/pkcs/signature_policy.h"
#include "asn/tlv_view.h"
#include "asn/tsp/signing_certificate.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "misc/hex.h"

namespace crv {

namespace {

constexpr uint8_t kAttributesTag = 0x31, kAttributeTag = 0x30;

struct SignatureFault {
    SignatureCheck check = SignatureCheck::Bad;
    int code = ECRV_MSGSIGN;
    const char* text = nullptr;
};

/// Attributes that must stand there once with one value at most (RFC 5652 11, RFC 5035 5.4).
constexpr const KnownOid* kSingle[] = {&OID_PKCS9_CONTENT_TYPE,        &OID_PKCS9_MESSAGE_DIGEST,
                                       &OID_PKCS9_SIGNING_TIME,        &OID_AA_SIGNING_CERTIFICATE,
                                       &OID_AA_SIGNING_CERTIFICATE_V2, &OID_AA_SIGNATURE_POLICY};

bool standsOnce(const Attributes& attributes, const KnownOid& type) {
    size_t values = 0, count = 0;
    for (const Attribute& one : attributes) {
        if (!(one.type == type)) continue;
        ++count;
        values += one.values.size();
    }
    return count <= 1 && values == count;
}

/// Whether the octets are elements of definite lengths in their shortest form and every SET OF is in order: what our
/// writer would make of them.
bool isDer(ByteView octets, int depth = 0) {
    while (!octets.empty()) {
        const auto one = takeTlv(octets);
        if (!one) return false;
        const size_t header = one->whole.size() - one->body.size();
        const size_t shortest = one->body.size() < 0x80    ? 2
                                : one->body.size() < 0x100 ? 3
                                : one->body.size() >> 16   ? 5
                                                           : 4;
        if (header != shortest) return false;
        if ((one->tag & ASN_CONSTRUCTED_BIT) == 0) continue;
        if (depth == GenericFile::kMaxNesting || !isDer(one->body, depth + 1)) return false;
        if (one->tag != kAttributesTag) continue;
        ByteView rest = one->body, before;
        while (!rest.empty()) {
            const ByteView next = takeTlv(rest)->whole;
            if (std::ranges::lexicographical_compare(next, before)) return false;
            before = next;
        }
    }
    return true;
}

/// What was signed: the attributes in DER with the tag of a SET (RFC 5652 5.4).
Bytes signedOctets(const Attributes& attributes) {
    Bytes kept = toBytes(attributes.keptEncoding());
    if (!kept.empty()) {
        kept[0] = kAttributesTag;
        if (isDer(kept)) return kept;
    }
    Attributes copy;
    for (const Attribute& one : attributes) static_cast<void>(copy.add().copyObject(one));
    return copy.encoded();
}

/// A content that is a SET of attributes may be the attributes of another signature, taken for its content.
bool looksLikeAttributes(ByteView beginning) {
    const auto skipHeader = [&](uint8_t tag) {
        if (beginning.size() < 2 || beginning[0] != tag) return false;
        const size_t more = beginning[1] > 0x80 ? beginning[1] & 0x7FU : 0U;
        beginning = beginning.subspan(std::min(beginning.size(), 2 + more));
        return true;
    };
    return skipHeader(kAttributesTag) && skipHeader(kAttributeTag) && skipHeader(ASNobjectId::kTag);
}

SignatureFault faultOfAttributes(const Attributes& attributes, const SignedContent& content, KcHashAlgo hash) {
    for (const KnownOid* type : kSingle) {
        if (!standsOnce(attributes, *type))
            return {SignatureCheck::Bad, ECRV_MSGSIGN_STR, "a signed attribute stands there more than once"};
    }
    ASNobjectId type;
    ASNoctstr digest;
    if (!attributes.get(OID_PKCS9_CONTENT_TYPE, type) || !attributes.get(OID_PKCS9_MESSAGE_DIGEST, digest))
        return {SignatureCheck::Bad, ECRV_MSGSIGN_STR, "the signed attributes lack the content's type or digest"};
    if (!(type == content.type))
        return {SignatureCheck::Bad, ECRV_MSGSIGN_STR, "the content is of another type than what was signed"};
    if (!std::ranges::equal(digest.value(), content.digests.at(hash)))
        return {SignatureCheck::Bad, ECRV_MSGSIGN, "the content is not what was signed"};
    return {};
}

SignatureFault faultWithoutAttributes(const SignedContent& content) {
    if (!(content.type == OID_PKCS7_DATA))
        return {SignatureCheck::Bad, ECRV_MSGSIGN_STR, "a content of that type needs signed attributes"};
    if (looksLikeAttributes(content.beginning))
        return {SignatureCheck::Bad, ECRV_MSGSIGN_STR, "the content could be the attributes of another signature"};
    return {};
}

void fail(SignerVerdict& verdict, const SignatureFault& fault) {
    verdict.signature = fault.check;
    verdict.code = fault.code;
    verdict.fault = fault.text;
}

void nameSigner(const SignerInfo& signer, SignerVerdict& verdict) {
    if (const auto* id = signer.sid.chosenAs<IssuerAndSerialNumber>()) {
        verdict.issuer = id->issuer.text();
        verdict.serial = toHex(id->serialNumber.contents());
    } else if (const auto* keyId = signer.sid.chosenAs<ASNoctstr>()) {
        verdict.keyId = toBytes(keyId->value());
    }
}

void noteUnsigned(const SignerInfo& signer, SignerVerdict& verdict) {
    if (!signer.signedAttrs) verdict.notSigned.emplace_back("attributes");
    if (!verdict.claimedTime) verdict.notSigned.emplace_back("signing-time");
    if (!verdict.bindsCertificate) verdict.notSigned.emplace_back("signing-certificate");
    if (!signer.unsignedAttrs) return;
    for (const Attribute& one : *signer.unsignedAttrs)
        if (!(one.type == OID_AA_TIME_STAMP_TOKEN)) verdict.notSigned.push_back("unsigned:" + one.type.name());
}

void readClaims(const SignerInfo& signer, SignerVerdict& verdict) {
    if (!signer.signedAttrs) return;
    verdict.claimedTime = signer.signingTime();
    SignaturePolicyId policy;
    if (signer.signedAttrs->get(OID_AA_SIGNATURE_POLICY, policy)) verdict.policy = policy.sigPolicyId;
}

/// Looks for the certificate that goes with the signature. The first fault that was met, when none does.
SignatureFault findSigner(const SignerInfo& signer, const SignatureAlgorithm& algorithm, ByteView digest,
                          const CertList& candidates, SignerVerdict& verdict) {
    SignatureFault fault{SignatureCheck::NoCertificate, ECRV_NO_SENDR_CRT, "the signer's certificate is not there"};
    for (const CertPtr& one : candidates) {
        const auto named = signer.signedAttrs ? namedBy(*signer.signedAttrs, *one) : std::nullopt;
        if (named == false) {
            fault = {SignatureCheck::Bad, ECRV_MSGSIGN, "the signature was made with another certificate"};
            continue;
        }
        verdict.certificate = one;
        verdict.bindsCertificate = named == true;
        try {
            if (isRightSignature(one->keyInfo().publicKey(), algorithm, digest, signer.signature.value())) return {};
            fault = {SignatureCheck::Bad, ECRV_MSGSIGN, "the signature is wrong"};
        } catch (const CryptoError& error) {
            if (error.failure() != CryptoFailure::BadKey && error.failure() != CryptoFailure::Unsupported) throw;
            fault = {SignatureCheck::Unsupported, ECRV_UNSUPPORTED_KEY_ALGO, "the signer's key cannot be used here"};
        }
    }
    return fault;
}

}  // namespace

SignerVerdict checkSignature(const SignerInfo& signer, const SignedContent& content,
                             const CandidateSource& candidates) {
    SignerVerdict verdict;
    nameSigner(signer, verdict);
    readClaims(signer, verdict);
    verdict.algorithm = signAlgorithmName(signer.signatureAlgorithm);
    verdict.hash = hashAlgoOf(signer.digestAlgorithm);
    const auto algorithm = signatureAlgorithmOf(signer);
    SignatureFault fault;
    if (!isHash(verdict.hash)) {
        fault = {SignatureCheck::Unsupported, ECRV_DIGALG, "the digest algorithm is unknown here"};
    } else if (!algorithm || !isHash(algorithm->hash)) {
        fault = {SignatureCheck::Unsupported, ECRV_DIGALG, "the signature algorithm is unknown here"};
    } else if (!content.digests.contains(verdict.hash)) {
        fault = {SignatureCheck::Bad, ECRV_MSGSIGN_STR, "the message does not announce the signer's digest algorithm"};
    } else if (algorithm->hash != verdict.hash) {  // RFC 8933 3.1
        fault = {SignatureCheck::Bad, ECRV_MSGSIGN_STR, "the signature uses another digest than the signer says"};
    } else {
        fault = signer.signedAttrs ? faultOfAttributes(*signer.signedAttrs, content, verdict.hash)
                                   : faultWithoutAttributes(content);
    }
    if (!fault.text) {
        const Bytes digest = signer.signedAttrs ? hashOf(verdict.hash, signedOctets(*signer.signedAttrs))
                                                : content.digests.at(verdict.hash);
        fault = findSigner(signer, *algorithm, digest, candidates(signer), verdict);
    }
    verdict.signature = SignatureCheck::Good;
    if (fault.text) fail(verdict, fault);
    noteUnsigned(signer, verdict);
    return verdict;
}

}  // namespace crv
