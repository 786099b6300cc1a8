// What the key manager is made of, each by itself.
#include "config/config_oids.h"
#include "key_store_session.h"
#include "keystore/generators.h"
#include "keystore/stored_file.h"

namespace crv::test {
namespace {

/// Keys by name with their roles, and numbers of certificates.
std::string outlineOf(const KeyStoreContents& contents) {
    std::string text;
    for (const StoredKey& key : contents.keys) {
        for (const char* name : {"rsa1", "rsa2", "ec"}) {
            if (key.key->keyId() == testKey(name).keyId())
                text += name + std::to_string(static_cast<int>(key.role)) + " ";
        }
    }
    return text + std::to_string(contents.userCerts.size()) + " " + std::to_string(contents.trustedCerts.size()) + " " +
           std::to_string(contents.others.size());
}

TEST(MergeContents, DropsOnlyWhatCanBeDeletedAndGivesEachRoleOnce) {
    const auto key = [](const char* name, KeyRole role) { return StoredKey{sharedKey(name), role}; };
    const auto trusting = [](std::initializer_list<const char*> names) {
        CRVCfgFile record;
        CRVCfgFile::Certificates list;
        for (const char* name : names) list.push_back(toBytes(encodingOf(*testCert(name))));
        record.setTrustedCAs(list);
        return std::make_shared<const CRVCfgFile>(record);
    };
    const SecretBytes bag(3, 1), other(3, 2);
    const KeyStoreContents full{{key("rsa1", KeyRole::Signing), key("rsa2", KeyRole::Encryption)},
                                {testCert("sign"), testCert("enc")},
                                {testCert("ca"), testCert("ca_ec")},
                                trusting({"ca"}),
                                {},
                                {},
                                {bag}};
    const KeyStoreContents emptied{{}, {}, {}, trusting({}), {}, {}, {}};
    KeyStoreContents newer = full, signs = full, takes{{key("ec", KeyRole::Both)}, {}, {}, {}, {}, {}, {other}};
    newer.userCerts = {testCert("sign_newer")};
    signs.keys[0].role = KeyRole::Further;
    signs.keys.push_back(key("ec", KeyRole::Signing));
    const struct {
        const char* what;
        const KeyStoreContents &base, &mine, &theirs;
        const char* outline;
    } cases[] = {
        {"an older copy lies there", full, full, emptied, "rsa11 rsa22 2 1 1"},
        {"somebody else deleted nothing but what he could", full, emptied, full, "rsa11 rsa22 2 1 1"},
        {"a newer certificate takes the place", full, newer, full, "rsa11 rsa22 2 2 1"},
        {"we moved the signing role", full, signs, full, "ec1 rsa22 rsa10 2 2 1"},
        {"they moved it", full, full, signs, "ec1 rsa22 rsa10 2 2 1"},
        {"both made keys: ours keeps its roles", {}, takes, full, "ec3 rsa10 rsa20 2 2 2"},
        {"both made keys, the other way", {}, full, takes, "rsa11 rsa22 ec0 2 2 2"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(outlineOf(mergeContents(one.base, one.mine, one.theirs)), one.outline) << one.what;
}

TEST(StoredFile, ComesToTermsWithTheFileOnlyUnderItsPassword) {
    KeyStoreContents theirs, mine;
    theirs.keys = {{sharedKey("rsa1"), KeyRole::Signing}};
    mine.keys = {{sharedKey("rsa2"), KeyRole::Encryption}};
    StoredFile file;
    ASSERT_EQ(buildSecurityFile(theirs, SecretText(kPassword), SecretArray<20>(), file.octets), kKmOk);
    EXPECT_TRUE(file.opensWith(SecretText(kPassword)));
    EXPECT_FALSE(file.opensWith(SecretText(kOtherPassword)) || StoredFile().opensWith(SecretText(kPassword)));
    bool foreign = false;
    const auto merge = [&](const char* password) {
        return mergeWithFile(nullptr, file.octets, SecretText(password), true, mine, foreign);
    };
    EXPECT_EQ(merge(kOtherPassword), kKmWriteFailed);
    EXPECT_EQ(outlineOf(mine), "rsa22 0 0 0");
    ASSERT_EQ(merge(kPassword), kKmOk);
    EXPECT_EQ(outlineOf(mine), "rsa11 rsa22 0 0 0");
    EXPECT_FALSE(foreign);
    const std::string another = readFile(dataFile("openssl_ec.p12"));
    ASSERT_EQ(mergeWithFile(nullptr, asBytes(another), SecretText("Hasło1234"), true, mine, foreign), kKmOk);
    EXPECT_TRUE(foreign);
}

TEST(TrustPoints, AreListedOnceUnderTheFirstOfTheirSources) {
    CRVCfgFile record;
    record.setTrustedCAs({toBytes(encodingOf(*testCert("ca"))), {0x30, 0x00}, toBytes(encodingOf(*testCert("ca_ec")))});
    record.setQualifiedTrustedCAs({toBytes(encodingOf(*testCert("ca_ec"))), toBytes(encodingOf(*testCert("ca_md5")))});
    CertList kept = {testCert("ca")};
    copyUserTrust(record, kept);
    EXPECT_EQ(kept.size(), 1u) << "neither twice nor a qualified one";
    TrustPoints points;
    const std::string roots = readFile(dataFile("roots.p12"));
    ASSERT_EQ(points.readAdditional(asBytes(roots), SecretText("korzenie")), kKmOk);
    std::string flags;
    for (const TrustPoint& point : points.list(record, kept)) flags += std::to_string(static_cast<int>(point.flag));
    EXPECT_EQ(flags, "112");
    EXPECT_TRUE(points.holds(record, kept, *testCert("ca_md5")));
}

TEST(Generators, GiveNothingWithoutASeedAndAnewWithTheSameOne) {
    Generators one(KcRbgHashIso18031::kCycle), two(3);
    SecretArray<16> first, second;
    EXPECT_FALSE(one.refresh());
    EXPECT_EQ(one.fill(first), Generators::Drawn::NotSeeded);
    const RbgSeed next = one.seed(asBytes("material"));
    EXPECT_FALSE(two.seed(asBytes("material")) == next) << "time and system go into it";
    ASSERT_EQ(one.fill(first), Generators::Drawn::Done);
    ASSERT_EQ(two.fill(second), Generators::Drawn::Done);
    EXPECT_FALSE(first == second);
    Generators::Drawn drawn = Generators::Drawn::Done;
    for (int i = 0; i < 5 && drawn == Generators::Drawn::Done; ++i) drawn = two.fill(second);
    EXPECT_EQ(drawn, Generators::Drawn::ReseedRequired);
    one.clear();
    EXPECT_EQ(one.fill(first), Generators::Drawn::NotSeeded);
}

}  // namespace
}  // namespace crv::test
