#include "asn/pkcs/pfx.h"

#include <algorithm>
#include <new>
#include <utility>

#include "asn/known_oids.h"
#include "asn/pkcs/dsa_private_key.h"
#include "asn/pkcs/ec_private_key.h"
#include "asn/pkcs/encrypted_data.h"
#include "asn/pkcs/pfx_reader.h"
#include "asn/pkcs/rsa_private_key.h"
#include "asn/pkcs/secret_encoding.h"
#include "asn/x509/signed_certificate.h"
#include "crypto/crypto_error.h"
#include "crypto/hmac.h"
#include "misc/byte_order.h"

namespace crv {

namespace {

/// Failures with a result of their own.
struct FailureRow {
    CryptoFailure failure;
    PfxResult result;
};
constexpr FailureRow kFailures[] = {
    {CryptoFailure::Unsupported, PfxResult::Unsupported},
    {CryptoFailure::Cancelled, PfxResult::Cancelled},
    {CryptoFailure::Internal, PfxResult::NoMemory},
};

/// Runs an operation and turns what it throws into results.
template <class Operation>
PfxResult guarded(PfxResult onCryptoError, Operation operation) {
    try {
        return operation();
    } catch (const CryptoError& error) {
        const auto found = std::ranges::find(kFailures, error.failure(), &FailureRow::failure);
        return found == std::end(kFailures) ? onCryptoError : found->result;
    } catch (const std::bad_alloc&) {
        return PfxResult::NoMemory;
    }
}

void addData(AuthenticatedSafe& safe, const SafeContents& bags) {
    safe.add().buildData(encodedSecret(bags));
}

}  // namespace

/// The salts of one file, each the digest of the one before.
class Pfx::SaltChain {
  public:
    explicit SaltChain(ByteView random) { hashInto(KcHashAlgo::Sha1, random, value_); }

    [[nodiscard]] ByteView salt() const { return ByteView(value_).first(kSaltLength); }
    void advance() {
        const auto before = value_;
        hashInto(KcHashAlgo::Sha1, before, value_);
    }

  private:
    std::array<uint8_t, 20> value_{};
};

MemberTable MacData::members() const {
    static constexpr Member kMembers[] = {member<&MacData::mac>, member<&MacData::macSalt>,
                                          writtenDefault<&MacData::iterations, 1>};
    return kMembers;
}

MemberTable Pfx::members() const {
    static constexpr Member kMembers[] = {member<&Pfx::version>, member<&Pfx::authSafe>, member<&Pfx::macData>};
    return kMembers;
}

SecretBytes Pfx::convertToUTF16BE(std::string_view utf8) {
    return utf16BePassword(utf8);
}

void Pfx::update(const SignedCertificate& certificate, ByteView localKeyId, ByteView attributes) {
    SafeBag& added = certificates_.add(SafeBag(OID_PKCS12_CERT_BAG, certificateBag(certificate.encoded())));
    added.addAttributes(attributes);
    added.setLocalKeyId(localKeyId);
}

void Pfx::update(const PrivateKeyInfo& key, ByteView localKeyId, ByteView attributes) {
    keys_.push_back({key, toBytes(localKeyId), toBytes(attributes)});
}

void Pfx::update(const RSAPrivateKey& key, ByteView localKeyId) {
    update(key.toPrivateKeyInfo(), localKeyId);
}

void Pfx::update(const DSAPrivateKey& key, ByteView localKeyId) {
    update(key.toPrivateKeyInfo(), localKeyId);
}

void Pfx::update(const ECPrivateKey& key, ByteView localKeyId) {
    update(key.toPrivateKeyInfo(), localKeyId);
}

void Pfx::update(const KnownOid& type, const ASNobject& secret) {
    SecretBag& bag = secrets_.emplace_back();
    bag.secretTypeId = type;
    bag.secretValue.value.build(secret);
}

PfxResult Pfx::final(PbeAlgo cipher, bool unicode, ByteView password, const uint8_t* salt, size_t saltLength) {
    return guarded(PfxResult::NoMemory, [&] {
        const SecretBytes converted = unicode ? toSecret(password) : convertToUTF16BE(asText(password));
        seal(cipher, converted, {salt, saltLength});
        return PfxResult::Ok;
    });
}

void Pfx::seal(PbeAlgo cipher, ByteView unicodePassword, ByteView salt) {
    SaltChain chain(salt);
    const PbeSettings pbe{cipher, unicodePassword, chain.salt(), kIterations};
    AuthenticatedSafe safe;
    EncryptedData enciphered;
    if (!certificates_.empty()) {
        enciphered.encrypt(pbe, certificates_);
        safe.add().build(OID_PKCS7_ENCRYPTED_DATA, enciphered);
        chain.advance();
    }
    for (const PendingKey& pending : keys_) {
        EncryptedPrivateKeyInfo shrouded;
        shrouded.encrypt(pbe, pending.key);
        SafeContents bags;
        SafeBag& bag = bags.add(SafeBag(OID_PKCS12_SHROUDED_KEY_BAG, shrouded));
        bag.addAttributes(pending.attributes);
        bag.setLocalKeyId(pending.localKeyId);
        addData(safe, bags);
        chain.advance();
    }
    SafeContents secrets;
    for (const SecretBag& secret : secrets_) {
        enciphered.encrypt(pbe, secret);
        secrets.add(SafeBag(OID_PKCS12_SECRET_BAG, enciphered));
        chain.advance();
    }
    if (!secrets.empty()) addData(safe, secrets);

    finish(safe, KcHashAlgo::Sha1, chain.salt(), kMacIterations, unicodePassword);
}

void Pfx::finish(const AuthenticatedSafe& safe, KcHashAlgo hash, ByteView salt, long iterations,
                 ByteView unicodePassword) {
    version.setValue(3);
    authSafe.buildData(safe.encoded());
    macData.emplace().macSalt.build(salt);
    macData->iterations.setValue(iterations);
    macData->mac = DigestInfo(hash, computeMac(hash, unicodePassword));
}

PfxResult Pfx::finalStrong(std::string_view utf8Password, ByteView random) {
    return guarded(PfxResult::NoMemory, [&] {
        sealStrongly(PbePassword(utf8Password), random);
        return PfxResult::Ok;
    });
}

void Pfx::sealStrongly(const PbePassword& password, ByteView random) {
    uint8_t octets[4];
    uint32_t number = 0;
    const auto next = [&] {
        storeBe(octets, number++);
        SecretBytes made = hmac(KcHashAlgo::Sha256, random, octets);
        made.resize(kStrongSaltLength);
        return made;
    };
    Pbes2Settings pbes2(password, next(), kStrongIterations);
    const auto sealed = [&](auto structure, const auto& plain) {
        pbes2.setVector(next());
        structure.encrypt(pbes2, plain);
        return structure;
    };
    AuthenticatedSafe safe;
    Attributes secrets;
    for (const SecretBag& secret : secrets_) {
        if (secrets.empty()) secrets.add().type = OID_CRV_SECRETS;
        secrets[0].values.add().build(sealed(EncryptedData(), secret));
    }
    SafeContents bags = certificates_;
    if (bags.empty() && keys_.empty()) bags.add(SafeBag(OID_CRV_SECRETS_BAG, ASNnull()));
    Bytes carried = secrets.empty() ? Bytes() : secrets.encoded();
    if (keys_.empty()) bags[0].addAttributes(std::exchange(carried, {}));
    if (!bags.empty()) safe.add().build(OID_PKCS7_ENCRYPTED_DATA, sealed(EncryptedData(), bags));
    for (const PendingKey& pending : keys_) {
        SafeContents alone;
        SafeBag& bag = alone.add(SafeBag(OID_PKCS12_SHROUDED_KEY_BAG, sealed(EncryptedPrivateKeyInfo(), pending.key)));
        bag.addAttributes(pending.attributes);
        bag.addAttributes(std::exchange(carried, {}));
        bag.setLocalKeyId(pending.localKeyId);
        addData(safe, alone);
    }
    finish(safe, KcHashAlgo::Sha256, next(), kStrongIterations, password.unicode());
}

ASNoctstr Pfx::contents() const {
    ASNoctstr contents;
    if (!macData || !authSafe.getData(contents, ASN_FLAG_CONST))
        throw CryptoError(CryptoFailure::BadParameter, "no contents that a password protects");
    return contents;
}

SecretBytes Pfx::computeMac(KcHashAlgo hash, ByteView unicodePassword, const PbeProgress& progress) const {
    const ASNoctstr covered = contents();
    const long iterations = std::max(macData->iterations.valueOr(0), 0L);
    const SecretBytes key = pkcs12Derive(hash, Pkcs12KeyId::MacKey, unicodePassword, macData->macSalt.value(),
                                         static_cast<uint64_t>(iterations), hashLength(hash), progress);
    return hmac(hash, key, covered.value());
}

bool Pfx::verifyMac(const PbePassword& password) const {
    const DigestInfo& mac = macData->mac;
    const bool pbmac1 = mac.digestAlgorithm.algorithm == OID_PBMAC1;
    if (!pbmac1 && mac.hash() == KcHashAlgo::None)
        throw CryptoError(CryptoFailure::Unsupported, "no authentication code that is known");
    return equalConstantTime(pbmac1 ? computePbmac1(mac.digestAlgorithm, password, contents().value())
                                    : computeMac(mac.hash(), password.unicode(), password.progress()),
                             mac.digest.value());
}

SecretBytes Pfx::computeHMAC_SHA1(ByteView unicodePassword) const {
    return computeMac(KcHashAlgo::Sha1, unicodePassword);
}

bool Pfx::verifyHMAC_SHA1(ByteView unicodePassword) const {
    return macData && macData->mac.hash() == KcHashAlgo::Sha1 &&
           equalConstantTime(computeHMAC_SHA1(unicodePassword), macData->mac.digest.value());
}

/// The form of the password under which the file was authenticated, nothing when it is another password. Throws
/// CryptoError for a file that cannot be checked.
std::optional<PbePassword> Pfx::matching(const PbePassword& password) const {
    if (!macData) throw CryptoError(CryptoFailure::BadParameter, "no authentication code");
    if (verifyMac(password)) return password;
    if (password.utf8().empty() && verifyMac(password.none())) return password.none();
    return std::nullopt;
}

PfxResult Pfx::verifyPassword(const PbePassword& password) const {
    return guarded(PfxResult::Malformed, [&] { return matching(password) ? PfxResult::Ok : PfxResult::MacMismatch; });
}

PfxResult Pfx::getContents(const PbePassword& password, PfxContents& out) const {
    out = {};
    PfxContents contents;
    const PfxResult result = guarded(PfxResult::Malformed, [&] {
        const auto right = matching(password);
        if (!right) return PfxResult::MacMismatch;
        return PfxReader(*right, contents).readSafe(authSafe) ? PfxResult::Ok : PfxResult::Malformed;
    });
    if (result == PfxResult::Ok) out = std::move(contents);
    return result;
}

const ASNany* PfxContents::secret(const KnownOid& type) const {
    const auto found = std::ranges::find_if(secrets, [&](const Secret& secret) { return secret.type == type; });
    return found == secrets.end() ? nullptr : &found->value;
}

}  // namespace crv
