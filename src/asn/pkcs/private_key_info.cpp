#include "asn/pkcs/private_key_info.h"

#include "asn/known_oids.h"
#include "asn/pkcs/secret_encoding.h"
#include "crypto/crypto_error.h"
#include "crypto/private_key.h"
#include "misc/exceptions.h"

namespace crv {

MemberTable PrivateKeyInfo::members() const {
    static constexpr Member kMembers[] = {
        member<&PrivateKeyInfo::version>, member<&PrivateKeyInfo::privateKeyAlgorithm>,
        member<&PrivateKeyInfo::privateKey>, member<&PrivateKeyInfo::attributes>, member<&PrivateKeyInfo::publicKey>};
    return kMembers;
}

PrivateKeyInfo::PrivateKeyInfo(const PrivateKey& key) {
    VTEST(readExactly(key.toPkcs8()), "src/asn/pkcs/private_key_info");
}

PrivateKey PrivateKeyInfo::key() const {
    return PrivateKey::fromPkcs8(encodedSecret(*this));
}

std::optional<uint32_t> PrivateKeyInfo::keyUsage() const {
    ASNbitstr usage;
    if (!attributes || !attributes->get(OID_CE_KEY_USAGE, usage)) return std::nullopt;
    return usage.namedBits();
}

void PrivateKeyInfo::setKeyUsage(uint32_t bits) {
    assertChangeable();
    ASNbitstr usage;
    usage.setNamedBits(bits);
    ensured(attributes).set(OID_CE_KEY_USAGE, usage);
}

Bytes PrivateKeyInfo::otherAttributes() const {
    return attributes ? attributes->encodedWithout(OID_CE_KEY_USAGE) : Bytes();
}

void PrivateKeyInfo::addAttributes(ByteView encoding) {
    if (!encoding.empty()) ensured(attributes).addEncoded(encoding);
}

MemberTable EncryptedPrivateKeyInfo::members() const {
    static constexpr Member kMembers[] = {member<&EncryptedPrivateKeyInfo::encryptionAlgorithm>,
                                          member<&EncryptedPrivateKeyInfo::encryptedData>};
    return kMembers;
}

void EncryptedPrivateKeyInfo::take(const AlgorithmIdentifier& algorithm, ByteView ciphertext) {
    encryptionAlgorithm = algorithm;
    encryptedData.build(ciphertext);
}

PrivateKeyInfo EncryptedPrivateKeyInfo::decrypt(const PbePassword& password) const {
    const SecretBytes plain = decryptPbe(encryptionAlgorithm, password, encryptedData.value());
    PrivateKeyInfo key;
    if (!key.readExactly(plain)) throw CryptoError(CryptoFailure::BadData, "no private key under this password");
    return key;
}

}  // namespace crv
