#include "asn/pkcs/encrypted_data.h"

#include "asn/known_oids.h"
#include "crypto/crypto_error.h"

namespace crv {

MemberTable EncryptedContentInfo::members() const {
    static constexpr Member kMembers[] = {member<&EncryptedContentInfo::contentType>,
                                          member<&EncryptedContentInfo::contentEncryptionAlgorithm>,
                                          member<&EncryptedContentInfo::encryptedContent>};
    return kMembers;
}

MemberTable EncryptedData::members() const {
    static constexpr Member kMembers[] = {member<&EncryptedData::version>, member<&EncryptedData::encryptedContentInfo>,
                                          member<&EncryptedData::unprotectedAttrs>};
    return kMembers;
}

void EncryptedData::take(const AlgorithmIdentifier& algorithm, ByteView ciphertext) {
    version.setValue(0);
    encryptedContentInfo.contentType = OID_PKCS7_DATA;
    encryptedContentInfo.contentEncryptionAlgorithm = algorithm;
    encryptedContentInfo.encryptedContent.emplace().build(ciphertext);
}

SecretBytes EncryptedData::decrypt(const PbePassword& password) const {
    const auto& content = encryptedContentInfo.encryptedContent;
    if (!content) throw CryptoError(CryptoFailure::BadParameter, "the enciphered content stands elsewhere");
    return decryptPbe(encryptedContentInfo.contentEncryptionAlgorithm, password, content->value());
}

}  // namespace crv
