#include "messages/recipients.h"

#include <algorithm>
#include <array>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "crypto/cipher.h"
#include "crypto/crypto_error.h"
#include "crypto/key_agreement.h"
#include "crypto/private_key.h"
#include "misc/exceptions.h"
#include "misc/hex.h"

namespace crv {

namespace {

struct AgreementRow {
    const KnownOid& oid;
    KcHashAlgo hash;
};
constexpr AgreementRow kAgreements[] = {{OID_ECDH_SHA1, KcHashAlgo::Sha1},
                                        {OID_ECDH_SHA224, KcHashAlgo::Sha224},
                                        {OID_ECDH_SHA256, KcHashAlgo::Sha256},
                                        {OID_ECDH_SHA384, KcHashAlgo::Sha384},
                                        {OID_ECDH_SHA512, KcHashAlgo::Sha512}};

struct WrapRow {
    const KnownOid& oid;
    size_t keyLength;
    KeyWrap wrap = KeyWrap::Aes;
};
/// The first one is that of messages that are made.
constexpr WrapRow kWraps[] = {
    {OID_AES256_WRAP, 32}, {OID_AES192_WRAP, 24}, {OID_AES128_WRAP, 16}, {OID_DES_EDE3_WRAP, 24, KeyWrap::TripleDes}};

/// Curves up to so many bits go with SHA-256, then SHA-384, then SHA-512 (RFC 5753 7.1.4 pairs them so).
constexpr unsigned kSha256Bits = 256, kSha384Bits = 384;

[[noreturn]] void failKeyAlgorithm(const std::string& what) {
    throw CrvApiException(ECRV_UNSUPPORTED_KEY_ALGO, what);
}

Bytes sharedInfo(const AlgorithmIdentifier& wrap, const std::optional<Explicit<1, ASNoctstr>>& ukm, size_t keyLength) {
    EccCmsSharedInfo info;
    info.keyInfo = wrap;
    if (ukm) info.entityUInfo.emplace(ASNoctstr(ukm->value()));
    const auto bits = static_cast<uint32_t>(keyLength * 8);
    const uint8_t octets[] = {static_cast<uint8_t>(bits >> 24), static_cast<uint8_t>(bits >> 16),
                              static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)};
    info.suppPubInfo.build(ByteView(octets));
    return info.encoded();
}

Bytes transported(const SignedCertificate& certificate, const PublicKey& key, ByteView contentKey,
                  const EncryptParams& params) {
    KeyTransRecipientInfo info;
    info.version.setValue(0);
    info.rid.set(certificate);
    if (params.rsaPadding == RsaPadding::Oaep) {
        info.keyEncryptionAlgorithm = AlgorithmIdentifier(OID_RSA_OAEP, RsaOaepParams(params.oaepHash));
    } else {
        info.keyEncryptionAlgorithm = AlgorithmIdentifier(OID_RSA_ENC, ASNnull());
    }
    info.encryptedKey.build(key.encrypt(params.rsaPadding, contentKey, {params.oaepHash, params.oaepHash, {}}));
    return info.encoded();
}

Bytes agreed(const SignedCertificate& certificate, const PublicKey& key, ByteView contentKey, RandomBridge& random) {
    const size_t row = key.bits() <= kSha256Bits ? 2 : key.bits() <= kSha384Bits ? 3 : 4;
    const WrapRow& wrap = kWraps[0];
    const PrivateKey ephemeral = PrivateKey::generateEc(key.curve(), false, random);
    Implicit<1, KeyAgreeRecipientInfo> info;
    auto originator = std::make_unique<Implicit<1, OriginatorPublicKey>>();
    originator->algorithm = AlgorithmIdentifier(OID_EC_PUBLIC_KEY);
    originator->publicKey.build(ephemeral.publicKey().keyBits());
    info.originator.setChosen(std::move(originator));
    const AlgorithmIdentifier wrapping(wrap.oid);
    info.keyEncryptionAlgorithm = AlgorithmIdentifier(kAgreements[row].oid, wrapping);
    const SecretBytes under = deriveX963(kAgreements[row].hash, ephemeral.agree(key),
                                         sharedInfo(wrapping, std::nullopt, wrap.keyLength), wrap.keyLength);
    RecipientEncryptedKey& one = info.recipientEncryptedKeys.add();
    auto id = std::make_unique<IssuerAndSerialNumber>();
    static_cast<void>(id->issuer.copyObject(certificate.issuer()));
    id->serialNumber = certificate.serialNumber();
    one.rid.setChosen(std::move(id));
    one.encryptedKey.build(wrapKey(under, contentKey));
    return info.encoded();
}

void demandUsage(const SignedCertificate& certificate, const PublicKey& key, const EncryptParams& params) {
    const auto usage = certificate.keyUsage();
    if (!usage || params.anyUsage) return;
    const KeyUsage::Bit wanted = isRsa(key.scheme()) ? KeyUsage::kKeyEncipherment : KeyUsage::kKeyAgreement;
    if (usage->bit(wanted)) return;
    throw CrvApiException(ECRV_INV_CRT_PROF,
                          "its keyUsage does not allow encrypting for it: " + certificate.subject().text());
}

/// What a recipient is known by, of both kinds of structures.
struct Name {
    const IssuerAndSerialNumber* number = nullptr;
    const ASNoctstr* keyId = nullptr;

    [[nodiscard]] bool means(const DecryptionKey& key) const {
        const KeyId own = key.key->keyId();
        if (keyId && std::ranges::equal(keyId->value(), own)) return true;
        return std::ranges::any_of(key.certificates, [&](const CertPtr& one) {
            if (number) return number->serialNumber == one->serialNumber() && number->issuer == one->issuer();
            const auto named = one->extensions().get<SubjectKeyIdentifier>(OID_CE_SUBJECT_KEY_ID);
            return keyId && named && std::ranges::equal(named->value(), keyId->value());
        });
    }
    [[nodiscard]] MessageRecipient recipient(const AlgorithmIdentifier& algorithm) const {
        MessageRecipient one;
        if (number) {
            one.issuer = number->issuer.text();
            one.serial = toHex(number->serialNumber.contents());
        }
        if (keyId) one.keyId = toBytes(keyId->value());
        one.algorithm = algorithm.algorithm.name();
        return one;
    }
};

Name nameOf(const SignerIdentifier& id) {
    return {id.chosenAs<IssuerAndSerialNumber>(), id.chosenAs<ASNoctstr>()};
}

Name nameOf(const KeyAgreeRecipientIdentifier& id) {
    const auto* byKey = id.chosenAs<RecipientKeyIdentifier>();
    return {id.chosenAs<IssuerAndSerialNumber>(), byKey ? &byKey->subjectKeyIdentifier : nullptr};
}

/// One recipient, whichever structure it stands in.
struct Entry {
    Name name;
    const KeyTransRecipientInfo* transport = nullptr;
    const KeyAgreeRecipientInfo* agreement = nullptr;
    const RecipientEncryptedKey* wrapped = nullptr;
};

std::vector<Entry> entriesOf(const RecipientInfos& infos) {
    std::vector<Entry> entries;
    for (const RecipientInfo& one : infos) {
        if (const auto* transport = one.chosenAs<KeyTransRecipientInfo>()) {
            entries.push_back({nameOf(transport->rid), transport});
        } else if (const auto* agreement = one.chosenAs<KeyAgreeRecipientInfo>()) {
            for (const RecipientEncryptedKey& wrapped : agreement->recipientEncryptedKeys)
                entries.push_back({nameOf(wrapped.rid), nullptr, agreement, &wrapped});
        } else {
            entries.push_back({});
        }
    }
    return entries;
}

SecretBytes openTransported(const KeyTransRecipientInfo& info, const Signer& key) {
    const AlgorithmIdentifier& algorithm = info.keyEncryptionAlgorithm;
    if (algorithm.algorithm == OID_RSA_ENC) return key.decrypt(RsaPadding::Pkcs1, info.encryptedKey.value());
    RsaOaepParams read;
    if (!(algorithm.algorithm == OID_RSA_OAEP) || (algorithm.parameters && !(read << *algorithm.parameters)))
        failKeyAlgorithm("the content key is protected in a way that is unknown here: " + algorithm.algorithm.name());
    const auto oaep = read.oaepParams();
    if (!oaep) failKeyAlgorithm("the content key is protected by OAEP with parameters that are unknown here");
    return key.decrypt(RsaPadding::Oaep, info.encryptedKey.value(), *oaep);
}

SecretBytes openAgreed(const Entry& entry, const Signer& key) {
    const AlgorithmIdentifier& algorithm = entry.agreement->keyEncryptionAlgorithm;
    const auto* row =
        std::ranges::find_if(kAgreements, [&](const auto& one) { return algorithm.algorithm == one.oid; });
    AlgorithmIdentifier wrap;
    const bool read = algorithm.parameters && (wrap << *algorithm.parameters);
    const auto* wrapRow = std::ranges::find_if(kWraps, [&](const auto& one) { return wrap.algorithm == one.oid; });
    const auto* originator = entry.agreement->originator.chosenAs<OriginatorPublicKey>();
    if (row == std::end(kAgreements) || !read || wrapRow == std::end(kWraps) || !originator)
        failKeyAlgorithm("the content key is agreed on in a way that is unknown here: " + algorithm.algorithm.name());
    const PublicKey other = key.publicKey().withBits(originator->publicKey.octets());
    const SecretBytes under = deriveX963(
        row->hash, key.agree(other), sharedInfo(wrap, entry.agreement->ukm, wrapRow->keyLength), wrapRow->keyLength);
    return unwrapKey(wrapRow->wrap, under, entry.wrapped->encryptedKey.value());
}

SecretBytes randomKey(size_t length) {
    SecretBytes key(length);
    if (!systemRandom(key)) throw CryptoError(CryptoFailure::NoRandom, "the system gives no random octets");
    return key;
}

/// The content key, or a random one in its place. Nothing, with the reason, when the key cannot open such an entry
/// whatever stands in it: then another one may.
std::optional<SecretBytes> tryEntry(const Entry& entry, const Signer& key, size_t length, std::string& refusal) {
    if (key.scheme() != (entry.transport ? KeyScheme::Rsa : KeyScheme::Ecdsa)) {
        refusal = "the key that the message is for is of another kind";
        return std::nullopt;
    }
    // Made before, so that its time is spent whether it is used or not.
    SecretBytes substitute = randomKey(length);
    try {
        SecretBytes opened = entry.transport ? openTransported(*entry.transport, key) : openAgreed(entry, key);
        if (opened.size() == length) return opened;
    } catch (const CryptoError& error) {
        if (error.failure() == CryptoFailure::Unsupported) {
            refusal = error.what();
            return std::nullopt;
        }
        constexpr std::array kOfTheMessage = {CryptoFailure::BadData, CryptoFailure::BadKey,
                                              CryptoFailure::BadParameter};
        if (std::ranges::find(kOfTheMessage, error.failure()) == kOfTheMessage.end()) throw;
    } catch (const CrvApiException& error) {
        if (error.code() != ECRV_UNSUPPORTED_KEY_ALGO) throw;
        refusal = error.what();
        return std::nullopt;
    }
    return substitute;
}

}  // namespace

bool agreesOnSecrets(const SignedCertificate& certificate) {
    return certificate.keyInfo().publicKey().scheme() == KeyScheme::Ecdsa;
}

Bytes makeRecipientInfo(const SignedCertificate& certificate, ByteView contentKey, const EncryptParams& params,
                        RandomBridge& random) {
    const PublicKey key = certificate.keyInfo().publicKey();
    if (key.scheme() != KeyScheme::Rsa && key.scheme() != KeyScheme::Ecdsa)
        failKeyAlgorithm("nothing can be encrypted for the key of " + certificate.subject().text());
    demandUsage(certificate, key, params);
    return key.scheme() == KeyScheme::Rsa ? transported(certificate, key, contentKey, params)
                                          : agreed(certificate, key, contentKey, random);
}

std::vector<MessageRecipient> recipientsOf(const RecipientInfos& infos) {
    std::vector<MessageRecipient> list;
    for (const Entry& entry : entriesOf(infos)) {
        const AlgorithmIdentifier none;
        list.push_back(entry.name.recipient(entry.transport   ? entry.transport->keyEncryptionAlgorithm
                                            : entry.agreement ? entry.agreement->keyEncryptionAlgorithm
                                                              : none));
    }
    return list;
}

OpenedKey openContentKey(const RecipientInfos& infos, const std::vector<DecryptionKey>& keys, size_t length) {
    const std::vector<Entry> entries = entriesOf(infos);
    std::string refusal;
    for (const DecryptionKey& key : keys) {
        for (size_t i = 0; i < entries.size(); ++i) {
            if (!entries[i].name.means(key)) continue;
            if (auto opened = tryEntry(entries[i], *key.key, length, refusal)) return {std::move(*opened), i};
        }
    }
    if (!refusal.empty()) failKeyAlgorithm(refusal);
    std::string names;
    for (const MessageRecipient& one : recipientsOf(infos))
        names += "\n" + (one.issuer.empty() ? toHex(one.keyId) : one.issuer + ", " + one.serial);
    throw CrvApiException(ECRV_NOTADDR, "none of the profile's keys is a recipient's; the message is for:" + names);
}

}  // namespace crv
