#include "asn/x509/subject_public_key_info.h"

#include "crypto/crypto_error.h"
#include "misc/exceptions.h"

namespace crv {

SubjectPublicKeyInfo::SubjectPublicKeyInfo(const PublicKey& key) {
    VTEST(readExactly(key.toSpki()), "src/asn/x509/subject_public_key_info");
}

KeyId SubjectPublicKeyInfo::computeKeyIdentifierSha1Hash() const {
    KeyId id;
    hashInto(KcHashAlgo::Sha1, subjectPublicKey.octets(), id);
    return id;
}

PublicKey SubjectPublicKeyInfo::publicKey() const {
    return PublicKey::fromSpki(encoded());
}

std::optional<PublicKey> SubjectPublicKeyInfo::usableKey() const {
    try {
        return publicKey();
    } catch (const CryptoError& error) {
        if (!error.isOfInput()) throw;
        return std::nullopt;
    }
}

MemberTable SubjectPublicKeyInfo::members() const {
    static constexpr Member kMembers[] = {member<&SubjectPublicKeyInfo::algorithm>,
                                          member<&SubjectPublicKeyInfo::subjectPublicKey>};
    return kMembers;
}

}  // namespace crv
