#include "asn/pkcs/enveloped_data.h"

#include "asn/known_oids.h"
#include "asn/pkcs/pbe.h"
#include "asn/x509/algorithm_params.h"

namespace crv {

namespace {

struct ContentCipherRow {
    const KnownOid& oid;
    CipherAlgo cipher;
};

constexpr ContentCipherRow kContentCiphers[] = {
    {OID_AES128_CBC, CipherAlgo::Aes128Cbc},           {OID_AES192_CBC, CipherAlgo::Aes192Cbc},
    {OID_AES256_CBC, CipherAlgo::Aes256Cbc},           {OID_AES128_GCM, CipherAlgo::Aes128Gcm},
    {OID_AES192_GCM, CipherAlgo::Aes192Gcm},           {OID_AES256_GCM, CipherAlgo::Aes256Gcm},
    {OID_DES_EDE3_CBC, CipherAlgo::TripleDesCbc},      {OID_CAMELLIA128_CBC, CipherAlgo::Camellia128Cbc},
    {OID_CAMELLIA192_CBC, CipherAlgo::Camellia192Cbc}, {OID_CAMELLIA256_CBC, CipherAlgo::Camellia256Cbc},
};

}  // namespace

MemberTable KeyTransRecipientInfo::members() const {
    static constexpr Member kMembers[] = {member<&KeyTransRecipientInfo::version>, member<&KeyTransRecipientInfo::rid>,
                                          member<&KeyTransRecipientInfo::keyEncryptionAlgorithm>,
                                          member<&KeyTransRecipientInfo::encryptedKey>};
    return kMembers;
}

MemberTable OriginatorPublicKey::members() const {
    static constexpr Member kMembers[] = {member<&OriginatorPublicKey::algorithm>,
                                          member<&OriginatorPublicKey::publicKey>};
    return kMembers;
}

MemberTable RecipientKeyIdentifier::members() const {
    static constexpr Member kMembers[] = {member<&RecipientKeyIdentifier::subjectKeyIdentifier>,
                                          member<&RecipientKeyIdentifier::date>,
                                          member<&RecipientKeyIdentifier::other>};
    return kMembers;
}

MemberTable RecipientEncryptedKey::members() const {
    static constexpr Member kMembers[] = {member<&RecipientEncryptedKey::rid>,
                                          member<&RecipientEncryptedKey::encryptedKey>};
    return kMembers;
}

MemberTable KeyAgreeRecipientInfo::members() const {
    static constexpr Member kMembers[] = {
        member<&KeyAgreeRecipientInfo::version>, member<&KeyAgreeRecipientInfo::originator>,
        member<&KeyAgreeRecipientInfo::ukm>, member<&KeyAgreeRecipientInfo::keyEncryptionAlgorithm>,
        member<&KeyAgreeRecipientInfo::recipientEncryptedKeys>};
    return kMembers;
}

MemberTable EccCmsSharedInfo::members() const {
    static constexpr Member kMembers[] = {member<&EccCmsSharedInfo::keyInfo>, member<&EccCmsSharedInfo::entityUInfo>,
                                          member<&EccCmsSharedInfo::suppPubInfo>};
    return kMembers;
}

MemberTable GcmParameters::members() const {
    static constexpr Member kMembers[] = {member<&GcmParameters::nonce>,
                                          defaulted<&GcmParameters::tagLength, kDefaultTag>};
    return kMembers;
}

RsaOaepParams::RsaOaepParams(KcHashAlgo hash) {
    if (hash == KcHashAlgo::Sha1) return;
    hashAlgorithm = crv::hashAlgorithm(hash);
    maskGenAlgorithm = AlgorithmIdentifier(OID_MGF1, crv::hashAlgorithm(hash));
}

std::optional<OaepParams> RsaOaepParams::oaepParams() const {
    OaepParams params;
    if (hashAlgorithm) params.hash = hashAlgoOf(*hashAlgorithm);
    params.mgfHash = KcHashAlgo::Sha1;
    if (maskGenAlgorithm) {
        AlgorithmIdentifier hash;
        if (!(maskGenAlgorithm->algorithm == OID_MGF1) || !maskGenAlgorithm->parameters ||
            !(hash << *maskGenAlgorithm->parameters))
            return std::nullopt;
        params.mgfHash = hashAlgoOf(hash);
    }
    if (pSourceAlgorithm) {
        ASNoctstr label;
        if (!(pSourceAlgorithm->algorithm == OID_P_SPECIFIED) || !pSourceAlgorithm->parameters ||
            !(label << *pSourceAlgorithm->parameters))
            return std::nullopt;
        params.label = toBytes(label.value());
    }
    if (!isHash(params.hash) || !isHash(params.mgfHash)) return std::nullopt;
    return params;
}

MemberTable RsaOaepParams::members() const {
    static constexpr Member kMembers[] = {member<&RsaOaepParams::hashAlgorithm>,
                                          member<&RsaOaepParams::maskGenAlgorithm>,
                                          member<&RsaOaepParams::pSourceAlgorithm>};
    return kMembers;
}

std::optional<CipherAlgo> contentCipher(const ASNobjectId& oid) {
    for (const ContentCipherRow& row : kContentCiphers)
        if (oid == row.oid) return row.cipher;
    return std::nullopt;
}

std::optional<ContentEncryption> readContentEncryption(const AlgorithmIdentifier& algorithm) {
    if (!algorithm.parameters) return std::nullopt;
    if (algorithm.algorithm == OID_RC2_CBC) {
        Rc2CbcParameters rc2;
        if (!(rc2 << *algorithm.parameters)) return std::nullopt;
        const auto cipher = rc2Cipher(rc2);
        if (!cipher || rc2.iv.value().size() != cipherVectorLength(*cipher)) return std::nullopt;
        return ContentEncryption{*cipher, toBytes(rc2.iv.value())};
    }
    const auto cipher = contentCipher(algorithm.algorithm);
    if (!cipher) return std::nullopt;
    if (isAuthenticated(*cipher)) {
        GcmParameters gcm;
        if (!(gcm << *algorithm.parameters)) return std::nullopt;
        const size_t nonce = gcm.nonce.value().size();
        if (nonce == 0 || nonce > CipherStream::kLongestNonce) return std::nullopt;
        const long tag = gcm.tagLength.valueOr(0);
        if (tag < static_cast<long>(CipherStream::kLeastTagLength) || tag > static_cast<long>(CipherStream::kTagLength))
            return std::nullopt;
        return ContentEncryption{*cipher, toBytes(gcm.nonce.value()), static_cast<size_t>(tag)};
    }
    ASNoctstr vector;
    if (!(vector << *algorithm.parameters) || vector.value().size() != cipherVectorLength(*cipher)) return std::nullopt;
    return ContentEncryption{*cipher, toBytes(vector.value())};
}

AlgorithmIdentifier contentEncryption(const ASNobjectId& oid, ByteView vector) {
    AlgorithmIdentifier algorithm;
    algorithm.algorithm = oid;
    const auto cipher = contentCipher(oid);
    if (cipher && isAuthenticated(*cipher)) {
        GcmParameters gcm;
        gcm.nonce.build(vector);
        gcm.tagLength.setValue(static_cast<long>(CipherStream::kTagLength));
        algorithm.parameters.emplace(gcm);
    } else {
        algorithm.parameters.emplace(ASNoctstr(vector));
    }
    return algorithm;
}

}  // namespace crv
