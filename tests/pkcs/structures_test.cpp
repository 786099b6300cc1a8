// Files of other programs as structures, private keys plain and under a password, and the key manager's records.
#include <gtest/gtest.h>

#include <functional>

#include "asn/known_oids.h"
#include "asn/pkcs/certification_request.h"
#include "asn/pkcs/dsa_private_key.h"
#include "asn/pkcs/ec_private_key.h"
#include "asn/pkcs/km_key_file.h"
#include "asn/pkcs/km_seed_file.h"
#include "asn/pkcs/pfx.h"
#include "asn/pkcs/rsa_private_key.h"
#include "asn/pkcs/secret_encoding.h"
#include "asn/pkcs/signed_data.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "crvasn/structure_kind.h"
#include "crypto/crypto_error.h"
#include "crypto/kc_hash.h"
#include "crypto/private_key.h"
#include "pkcs/data_file.h"
#include "support/message_of.h"

namespace crv::test {
namespace {

/// Keeping mode gives back the octets whatever their form is; the other one as long as they are DER (and do not leave
/// out a MAC's count of 1, which we write). No shorter piece of a file is an object. Its kind is told.
template <class Structure>
void expectRoundTrip(const char* prefix, const char* kind) {
    const auto names = dataFiles(prefix);
    ASSERT_FALSE(names.empty()) << prefix;
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const Bytes octets = dataFile(name);
        EXPECT_STREQ(structureKind(octets), kind);
        Structure object;
        ASSERT_TRUE(object.readExactly(octets, ASN_FLAG_CONST));
        EXPECT_EQ(object.encoded(), octets);
        ASSERT_TRUE(object.readExactly(octets));
        EXPECT_TRUE(object.encoded() == octets || octets[1] == 0x80 || name.starts_with("pfx_nomaciter"));
        for (size_t length = 0; length < octets.size(); ++length)
            ASSERT_FALSE(object.readExactly(ByteView(octets).first(length))) << "cut to " << length;
    }
}

TEST(Structures, AreToldApartGiveBackTheirOctetsAndRefuseTruncation) {
    expectRoundTrip<Pfx>("pfx_", "Pfx");
    expectRoundTrip<PrivateKeyInfo>("key_", "PrivateKeyInfo");
    expectRoundTrip<EncryptedPrivateKeyInfo>("enc_", "EncryptedPrivateKeyInfo");
    expectRoundTrip<ContentInfo>("cms_", "ContentInfo");
    expectRoundTrip<ContentInfo>("p7_", "ContentInfo");
    expectRoundTrip<CertificationRequest>("req_", "CertificationRequest");
    expectRoundTrip<SignedCertRevList>("crl_", "SignedCertRevList");
    expectRoundTrip<RSAPrivateKey>("plain_rsa", "RSAPrivateKey");
    expectRoundTrip<DSAPrivateKey>("plain_dsa", "DSAPrivateKey");
    expectRoundTrip<ECPrivateKey>("plain_ec", "ECPrivateKey");
    expectRoundTrip<SignedCertificate>("crt_", "SignedCertificate");
    Bytes two = dataFile("crt_ec.der");
    two.insert(two.end(), two.begin(), two.end());
    EXPECT_STREQ(structureKind(two), "SignedCertificate");
    for (const Bytes& none : {Bytes{}, Bytes{0x30, 0}, Bytes{5, 0, 5, 0}, Bytes(30, 0x30)})
        EXPECT_EQ(structureKind(none), nullptr);
}

template <class Key>
void expectSameKeyInPkcs8(const std::string& kind) {
    SCOPED_TRACE(kind);
    const auto info = fromFile<PrivateKeyInfo>("key_" + kind + ".der");
    Key key, other;
    for (const int mode : {0, ASN_FLAG_CONST | ASN_FLAG_COPY}) {
        ASSERT_TRUE(key.readExactly(dataFile("plain_" + kind + ".der"), static_cast<unsigned char>(mode)));
        EXPECT_EQ(key.toPrivateKeyInfo().encoded(), info.encoded());
    }
    ASSERT_TRUE(other.fromPrivateKeyInfo(info));
    EXPECT_EQ(other.toPrivateKeyInfo().encoded(), info.encoded());
    EXPECT_EQ(PrivateKeyInfo(info.key()).key().keyId(), info.key().keyId());
    EXPECT_FALSE(other.fromPrivateKeyInfo(fromFile<PrivateKeyInfo>("key_ed25519.der")));
}

TEST(PrivateKeys, StructuresAndPkcs8SayTheSame) {
    expectSameKeyInPkcs8<RSAPrivateKey>("rsa");
    expectSameKeyInPkcs8<DSAPrivateKey>("dsa");
    expectSameKeyInPkcs8<ECPrivateKey>("ec");
    expectSameKeyInPkcs8<ECPrivateKey>("ecexplicit");
}

/// Nothing when the password opens the key.
std::optional<CryptoFailure> failureOf(const EncryptedPrivateKeyInfo& enciphered, const char* password) {
    try {
        EXPECT_EQ(enciphered.decrypt(PbePassword(password)).encoded(), dataFile("key_ec.der"));
        return std::nullopt;
    } catch (const CryptoError& error) {
        return error.failure();
    }
}

TEST(PrivateKeys, EncipheredKeysOfOthersAreReadOrRefused) {
    for (const char* name :
         {"aes256", "aes128", "aes192_sha512", "des3", "rc2_64", "pbe3des", "pbe40", "pbe2des", "pberc4", "pberc4_40",
          "pberc2", "camellia128", "camellia256_sha512_256", "aes256_sha512_224", "scrypt"}) {
        const auto enciphered = fromFile<EncryptedPrivateKeyInfo>(std::string("enc_") + name + ".der");
        EXPECT_EQ(failureOf(enciphered, kPassword), std::nullopt) << name;
        EXPECT_TRUE(failureOf(enciphered, "wrong")) << name;
    }
    const auto unknown = fromFile<EncryptedPrivateKeyInfo>("enc_pbemd5des.der");
    EXPECT_EQ(failureOf(unknown, kPassword), CryptoFailure::Unsupported);
    const Bytes salt(8, 1);
    EncryptedPrivateKeyInfo absurd;
    absurd.encryptedData.build(Bytes(8, 0));
    for (const long count : {0L, -1L, 10'000'001L}) {
        absurd.encryptionAlgorithm = PbeSettings{PbeAlgo::Sha1TripleDesCbc, {}, salt, count}.algorithm();
        EXPECT_EQ(failureOf(absurd, "x"), count > 0 ? CryptoFailure::Unsupported : CryptoFailure::BadParameter);
    }
    absurd.encryptionAlgorithm.parameters.reset();
    EXPECT_EQ(failureOf(absurd, "x"), CryptoFailure::BadParameter) << "no parameters";
}

/// An object read in keeping mode from the encoding of another.
template <class T>
T keptFrom(const T& object) {
    T kept;
    EXPECT_TRUE(kept.readExactly(object.encoded(), ASN_FLAG_CONST | ASN_FLAG_COPY));
    return kept;
}

/// Without the assertion the octets that were read would be written, and the change would be lost in silence.
TEST(Structures, KeptOnesRefuseWhatWouldNotBeWritten) {
    auto key = fromFile<PrivateKeyInfo>("key_rsa.der");
    auto request = fromFile<CertificationRequest>("req_certtool.der");
    SafeBag bag = keptFrom(SafeBag(OID_PKCS12_CERT_BAG, ASNnull()));
    SignedData bundle = keptFrom(SignedData());
    KMKeyFile record = keptFrom(KMKeyFile());
    const std::function<void()> changes[] = {[&] { key.setKeyUsage(kKeyEncipherment); },
                                             [&] { request.setRequestedExtensions({}); },
                                             [&] { bag.setFriendlyName("name"); },
                                             [&] { bag.bagValue.value.build(ASNbool(true)); },
                                             [&] { bundle.addCertificate({}); },
                                             [&] { bundle.addCrl(ASNnull()); },
                                             [&] { record.fillDigest(); }};
    for (size_t i = 0; i < std::size(changes); ++i)
        EXPECT_EQ(messageOf(changes[i]), "Assertion !( flags & ASN_FLAG_CONST ) failed in src/asn/asn_object") << i;
}

TEST(Structures, KeptOnesMayBeReplacedAsAWhole) {
    ContentInfo kept = fromFile<ContentInfo>("cms_rsa.der");
    const ContentInfo other = fromFile<ContentInfo>("cms_data.der");
    kept = other;
    EXPECT_EQ(kept.encoded(), other.encoded());
}

TEST(PrivateKeys, KeyUsageSurvivesEncipherment) {
    PrivateKeyInfo key;
    ASSERT_TRUE(key.readExactly(dataFile("key_rsa.der")));
    EXPECT_EQ(key.keyUsage(), std::nullopt);
    key.setKeyUsage(kKeyEncipherment | kDataEncipherment);
    key.setKeyUsage(kKeyEncipherment);  // replaces
    EXPECT_EQ(key.attributes->encoded(), (Bytes{0xA0, 13, 0x30, 11, 6, 3, 0x55, 0x1D, 15, 0x31, 4, 3, 2, 5, 0x20}));
    const SecretBytes password = utf16BePassword(kPassword);
    const Bytes salt(8, 3);
    EncryptedPrivateKeyInfo enciphered;
    enciphered.encrypt({PbeAlgo::Sha1TripleDesCbc, password, salt, 5}, key);
    EXPECT_EQ(enciphered.decrypt(PbePassword(kPassword)).keyUsage(), kKeyEncipherment);
}

KMKeyFile keyRecord(bool withCertificate) {
    KMKeyFile record;
    record.presence.setNamedBits(1u << KMKeyFile::kSigningKey);
    record.number8.setValue(8);
    record.name1 = *DistinguishedName::fromText("CN=A");
    EXPECT_TRUE(!withCertificate || record.certificate.emplace().readExactly(dataFile("crt_ec.der")));
    return record;
}

TEST(KMKeyFile, OptionalFieldsComeBackAndTheDigestGuardsThem) {
    for (const int optional : {0, 1, 2, 3}) {
        KMKeyFile record = keyRecord((optional & 1) != 0);
        if ((optional & 2) != 0) record.option.emplace().setValue(300);
        EXPECT_FALSE(record.digestIsRight());
        record.fillDigest();
        const Bytes octets = record.encoded();
        KMKeyFile read;
        ASSERT_TRUE(read.readExactly(octets));
        EXPECT_EQ(read.encoded(), octets);
        EXPECT_EQ(read.certificate.has_value(), (optional & 1) != 0);
        EXPECT_EQ(read.option.has_value(), (optional & 2) != 0);
        EXPECT_TRUE(read.digestIsRight());
        read.number10.setValue(1);
        EXPECT_FALSE(read.digestIsRight());
        const ByteView covered = ByteView(octets).first(octets.size() - 22);
        EXPECT_EQ(toBytes(record.digest->value()), hashOf(KcHashAlgo::Sha1, covered));
    }
}

TEST(KMKeyFile, LengthsMustAgreeWithTheFields) {
    Bytes digest(22, 0);
    digest[0] = 4;
    digest[1] = 20;
    const Bytes shortDigest = {4, 3, 1, 2, 3};
    const Bytes shortCertificate = {0x30, 3, 2, 1, 5};
    for (const Bytes& tail : {Bytes(), digest, Bytes{5, 0}, shortDigest, shortCertificate}) {
        Bytes octets = keyRecord(false).encoded();
        octets.insert(octets.end(), tail.begin(), tail.end());
        octets[1] = static_cast<uint8_t>(octets.size() - 2);
        EXPECT_EQ(KMKeyFile().readExactly(octets), tail.empty() || tail == digest) << tail.size();
        ++octets[1];
        EXPECT_FALSE(KMKeyFile().readExactly(octets)) << "longer than its fields";
    }
}

TEST(KMSeedFile, IsTwentyOctetsAndTheirDigest) {
    KMSeedFile record, read;
    record.seed.build(Bytes(20, 9));
    EXPECT_FALSE(record.digestIsRight());
    record.fillDigest();
    const Bytes octets = record.encoded();
    ASSERT_EQ(octets.size(), 46U);
    EXPECT_EQ(toBytes(record.digest.value()), hashOf(KcHashAlgo::Sha1, ByteView(octets).first(24)));
    EXPECT_TRUE(read.readExactly(octets) && read.digestIsRight());
    record.seed.build(Bytes(19, 9));
    EXPECT_FALSE(KMSeedFile().readExactly(record.encoded()));
}

}  // namespace
}  // namespace crv::test
