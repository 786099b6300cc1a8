#include "asn/pkcs/signed_data.h"

#include <algorithm>

#include "asn/known_oids.h"
#include "asn/x509/sign_algo.h"
#include "crypto/crypto_error.h"
#include "crypto/sign_algo_map.h"
#include "crypto/signer.h"

namespace crv {

namespace {

/// Of SignedData and SignerInfo where a key identifier names the signer (RFC 5652 5.1, 5.3).
constexpr int kKeyIdVersion = 3;

}  // namespace

std::optional<SignatureAlgorithm> signatureAlgorithmOf(const SignerInfo& signer) {
    if (auto algorithm = readSignAlgorithm(signer.signatureAlgorithm)) return algorithm;
    const SignAlgo* row = findSignAlgo(signer.signatureAlgorithm.algorithm.text());
    if (!row || row->scheme == KeyScheme::None || row->hash != KcHashAlgo::None) return std::nullopt;
    return SignatureAlgorithm{row->scheme, hashAlgoOf(signer.digestAlgorithm), {}};
}

bool isRightSignature(const PublicKey& key, const SignatureAlgorithm& algorithm, ByteView digest, ByteView signature) {
    try {
        return key.verify(algorithm.scheme, algorithm.hash, digest, signature, algorithm.pss);
    } catch (const CryptoError& error) {
        if (error.failure() == CryptoFailure::BadParameter) return false;
        throw;
    }
}

MemberTable IssuerAndSerialNumber::members() const {
    static constexpr Member kMembers[] = {member<&IssuerAndSerialNumber::issuer>,
                                          member<&IssuerAndSerialNumber::serialNumber>};
    return kMembers;
}

MemberTable SignerInfo::members() const {
    static constexpr Member kMembers[] = {member<&SignerInfo::version>,
                                          member<&SignerInfo::sid>,
                                          member<&SignerInfo::digestAlgorithm>,
                                          member<&SignerInfo::signedAttrs>,
                                          member<&SignerInfo::signatureAlgorithm>,
                                          member<&SignerInfo::signature>,
                                          member<&SignerInfo::unsignedAttrs>};
    return kMembers;
}

MemberTable SignedData::members() const {
    static constexpr Member kMembers[] = {member<&SignedData::version>,
                                          member<&SignedData::digestAlgorithms>,
                                          member<&SignedData::encapContentInfo>,
                                          member<&SignedData::certificates>,
                                          member<&SignedData::crls>,
                                          member<&SignedData::signerInfos>};
    return kMembers;
}

void SignerIdentifier::set(const SignedCertificate& certificate) {
    auto id = std::make_unique<IssuerAndSerialNumber>();
    static_cast<void>(id->issuer.copyObject(certificate.issuer()));
    id->serialNumber = certificate.serialNumber();
    setChosen(std::move(id));
}

void SignerIdentifier::set(const KeyId& keyId) {
    auto id = std::make_unique<Implicit<0, ASNoctstr>>();
    id->build(ByteView(keyId));
    setChosen(std::move(id));
}

bool SignerIdentifier::matches(const SignedCertificate& certificate) const {
    if (const auto* id = chosenAs<IssuerAndSerialNumber>())
        return id->serialNumber == certificate.serialNumber() && id->issuer == certificate.issuer();
    const auto* id = chosenAs<ASNoctstr>();
    const auto own = certificate.extensions().get<SubjectKeyIdentifier>(OID_CE_SUBJECT_KEY_ID);
    return id && own && std::ranges::equal(own->value(), id->value());
}

std::optional<int64_t> SignerInfo::signingTime() const {
    Time time;
    if (!signedAttrs || !signedAttrs->get(OID_PKCS9_SIGNING_TIME, time)) return std::nullopt;
    return time.seconds();
}

SignedData::SignedData() {
    encapContentInfo.contentType = OID_PKCS7_DATA;
}

void SignedData::addCertificate(const SignedCertificate& certificate) {
    assertChangeable();
    if (!certificates) certificates.emplace();
    certificates->add().build(certificate);
}

void SignedData::addCrl(const ASNobject& crl) {
    assertChangeable();
    if (!crls) crls.emplace();
    crls->add().build(crl);
}

std::vector<SignedCertificate> SignedData::certificateList() const {
    std::vector<SignedCertificate> list;
    if (!certificates) return list;
    for (const ASNany& any : *certificates)
        if (!any.decode(list.emplace_back(), ASN_FLAG_CONST | ASN_FLAG_COPY)) list.pop_back();
    return list;
}

void SignedData::sign(ByteView content, const SignOrder& order, RandomBridge& random) {
    const auto algorithm = signAlgorithm(order.scheme, order.hash);
    if (!algorithm) throw CryptoError(CryptoFailure::BadParameter, "no such signature algorithm");
    if (!order.detached) encapContentInfo.buildData(content);
    digestAlgorithms.add(hashAlgorithm(order.hash));
    SignerInfo& signer = signerInfos.add();
    if (order.certificate) {
        addCertificate(*order.certificate);
        signer.sid.set(*order.certificate);
    } else {
        signer.sid.set(order.key.keyId());
        version.setValue(kKeyIdVersion);
    }
    signer.version.setValue(order.certificate ? 1 : kKeyIdVersion);
    signer.digestAlgorithm = hashAlgorithm(order.hash);
    Attributes attributes;
    attributes.set(OID_PKCS9_CONTENT_TYPE, encapContentInfo.contentType);
    attributes.set(OID_PKCS9_MESSAGE_DIGEST, ASNoctstr(hashOf(order.hash, content)));
    attributes.set(OID_PKCS9_SIGNING_TIME, Time(order.time));
    signer.signedAttrs.emplace(attributes);
    signer.signatureAlgorithm = *algorithm;
    signer.signature.build(order.key.signMessage(order.scheme, order.hash, attributes.encoded(), random));
}

std::optional<Bytes> SignedData::content() const {
    if (!encapContentInfo.content) return std::nullopt;
    ASNoctstr octets;
    const ASNany& any = encapContentInfo.content->value;
    // PKCS#7 has any type here and signs its body (RFC 5652 5.2.1).
    return toBytes(any.decode(octets, ASN_FLAG_CONST) ? octets.value() : any.contents());
}

/// RFC 5652 5.4: the attributes name the content's type and digest.
bool SignedData::attributesFit(const SignerInfo& signer, KcHashAlgo hash, ByteView octets) const {
    ASNobjectId type;
    ASNoctstr digest;
    return signer.signedAttrs->get(OID_PKCS9_CONTENT_TYPE, type) && type == encapContentInfo.contentType &&
           signer.signedAttrs->get(OID_PKCS9_MESSAGE_DIGEST, digest) &&
           std::ranges::equal(digest.value(), hashOf(hash, octets));
}

SignatureCheck SignedData::verifySigner(const SignerInfo& signer, const PublicKey& key, ByteView octets) const {
    const KcHashAlgo hash = hashAlgoOf(signer.digestAlgorithm);
    const auto algorithm = signatureAlgorithmOf(signer);
    if (hash == KcHashAlgo::None || !algorithm) return SignatureCheck::Unsupported;
    Bytes digest = hashOf(algorithm->hash, octets);
    if (signer.signedAttrs) {
        if (!attributesFit(signer, hash, octets)) return SignatureCheck::Bad;
        Attributes attributes;
        for (const Attribute& attribute : *signer.signedAttrs)
            static_cast<void>(attributes.add().copyObject(attribute));
        digest = hashOf(algorithm->hash, attributes.encoded());
    }
    return isRightSignature(key, *algorithm, digest, signer.signature.value()) ? SignatureCheck::Good
                                                                               : SignatureCheck::Bad;
}

template <class KeyOf>
SignatureCheck SignedData::verifyAll(std::optional<ByteView> detached, KeyOf keyOf) const {
    const std::optional<Bytes> inside = content();
    if (signerInfos.empty()) return SignatureCheck::NoSignature;
    if (!inside && !detached) return SignatureCheck::NoContent;
    for (const SignerInfo& signer : signerInfos) {
        const std::optional<PublicKey> key = keyOf(signer);
        if (!key) return SignatureCheck::NoCertificate;
        const SignatureCheck check = verifySigner(signer, *key, inside ? ByteView(*inside) : *detached);
        if (check != SignatureCheck::Good) return check;
    }
    return SignatureCheck::Good;
}

SignatureCheck SignedData::verify(std::optional<ByteView> detached) const {
    const std::vector<SignedCertificate> list = certificateList();
    return verifyAll(detached, [&](const SignerInfo& signer) -> std::optional<PublicKey> {
        for (const SignedCertificate& certificate : list)
            if (signer.sid.matches(certificate)) return certificate.keyInfo().publicKey();
        return std::nullopt;
    });
}

SignatureCheck SignedData::verify(const PublicKey& key, std::optional<ByteView> detached) const {
    return verifyAll(detached, [&](const SignerInfo&) { return std::optional(key); });
}

}  // namespace crv
