// The structures of private keys, and the key manager's records.
#include <gtest/gtest.h>

#include "asn/pkcs/dsa_private_key.h"
#include "asn/pkcs/ec_private_key.h"
#include "asn/pkcs/km_key_file.h"
#include "asn/pkcs/km_seed_file.h"
#include "asn/pkcs/rsa_private_key.h"
#include "crypto/kc_hash.h"
#include "crypto/private_key.h"
#include "misc/crv_db_keys.h"
#include "pkcs/data_file.h"

namespace crv::test {
namespace {

template <class Key>
void expectSameKeyInPkcs8(const char* kind) {
    SCOPED_TRACE(kind);
    Key key;
    Key other;
    PrivateKeyInfo info;
    ASSERT_TRUE(key.readExactly(dataFile(std::string("plain_") + kind + ".der")));
    ASSERT_TRUE(info.readExactly(dataFile(std::string("key_") + kind + ".der")));
    EXPECT_EQ(key.toPrivateKeyInfo().encoded(), info.encoded());
    ASSERT_TRUE(other.fromPrivateKeyInfo(info));
    EXPECT_EQ(other.toPrivateKeyInfo().encoded(), info.encoded());
    EXPECT_EQ(PrivateKeyInfo(info.key()).key().keyId(), info.key().keyId());
    ASSERT_TRUE(info.readExactly(dataFile("key_ed25519.der")));
    EXPECT_FALSE(other.fromPrivateKeyInfo(info));
}

TEST(PrivateKeys, StructuresAndPkcs8SayTheSame) {
    expectSameKeyInPkcs8<RSAPrivateKey>("rsa");
    expectSameKeyInPkcs8<DSAPrivateKey>("dsa");
    expectSameKeyInPkcs8<ECPrivateKey>("ec");
    expectSameKeyInPkcs8<ECPrivateKey>("ecexplicit");
}

KMKeyFile keyRecord(bool withCertificate) {
    KMKeyFile record;
    record.presence.setNamedBits(1u << KMKeyFile::signingKey);
    record.number8.setValue(8);
    record.name1 = *DistinguishedName::fromText("CN=A");
    EXPECT_TRUE(!withCertificate || record.certificate.emplace().readExactly(dataFile("crt_ec.der")));
    return record;
}

TEST(KMKeyFile, OptionalFieldsComeBackAndTheDigestGuardsThem) {
    for (const int optional : {0, 1, 2, 3}) {
        KMKeyFile record = keyRecord((optional & 1) != 0);
        if ((optional & 2) != 0) record.option.emplace().setValue(300);
        KMKeyFile read;
        ASSERT_TRUE(read.readExactly(record.encoded()));
        EXPECT_FALSE(read.digestIsRight());
        record.fillDigest();
        const Bytes octets = record.encoded();
        ASSERT_TRUE(read.readExactly(octets));
        EXPECT_EQ(read.certificate.has_value(), (optional & 1) != 0);
        EXPECT_EQ(read.option.has_value(), (optional & 2) != 0);
        EXPECT_EQ(read.encoded(), octets);
        EXPECT_TRUE(read.digestIsRight());
        read.number10.setValue(1);
        EXPECT_FALSE(read.digestIsRight());
        const ByteView covered = ByteView(octets).first(octets.size() - 22);
        EXPECT_EQ(toBytes(record.digest->value()), hashOf(KcHashAlgo::sha1, covered));
    }
}

TEST(KMKeyFile, LengthsMustAgreeWithTheFields) {
    Bytes digest(22, 0);
    digest[0] = 4;
    digest[1] = 20;
    const Bytes shortDigest = {4, 3, 1, 2, 3};
    const Bytes shortCertificate = {0x30, 3, 2, 1, 5};
    for (const auto& [tail, taken] : {std::pair{Bytes{}, true},
                                      {digest, true},
                                      {Bytes{5, 0}, false},
                                      {shortDigest, false},
                                      {shortCertificate, false}}) {
        Bytes octets = keyRecord(false).encoded();
        octets.insert(octets.end(), tail.begin(), tail.end());
        octets[1] = uint8_t(octets.size() - 2);
        EXPECT_EQ(KMKeyFile().readExactly(octets), taken) << tail.size();
        ++octets[1];
        EXPECT_FALSE(KMKeyFile().readExactly(octets)) << "longer than its fields";
    }
}

TEST(KMSeedFile, IsTwentyOctetsAndTheirDigest) {
    KMSeedFile record;
    EXPECT_EQ(toBytes(record.seed.value()), Bytes(20));
    EXPECT_EQ(toBytes(record.digest.value()), Bytes(20));
    record.seed.build(Bytes(20, 9));
    EXPECT_FALSE(record.digestIsRight());
    record.fillDigest();
    const Bytes octets = record.encoded();
    ASSERT_EQ(octets.size(), 46U);
    EXPECT_EQ(toBytes(record.digest.value()), hashOf(KcHashAlgo::sha1, ByteView(octets).first(24)));
    KMSeedFile read;
    EXPECT_TRUE(read.readExactly(octets) && read.digestIsRight());
    record.seed.build(Bytes(19, 9));
    EXPECT_FALSE(KMSeedFile().readExactly(record.encoded()));
}

TEST(CrvDbKeys, DetachingGivesTheKeyAway) {
    CrvDbKeys keys;
    keys.add({1, 2});
    keys.add({3});
    EXPECT_EQ(keys.detach(0), (Bytes{1, 2}));
    EXPECT_TRUE(keys[0].empty());
    EXPECT_EQ(keys[1], Bytes{3});
    EXPECT_THROW(static_cast<void>(keys[2]), std::out_of_range);
    EXPECT_THROW(static_cast<void>(keys[-1]), std::out_of_range);
}

}  // namespace
}  // namespace crv::test
