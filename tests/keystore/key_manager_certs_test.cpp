// The user's certificates, trust points, signed configurations, and profiles without a security file.
#include <gtest/gtest.h>

#include "asn/pkcs/pfx.h"
#include "asn/pkcs/signed_data.h"
#include "corvane/crvprofile.h"
#include "key_store_session.h"
#include "misc/exceptions.h"
#include "profiles/profile_kinds.h"
#include "src/config_oids.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

using Step = std::pair<const char*, KeyManagerResult>;

struct KeyManagerCertsTest : testing::Test {
    TempDir dir;
    Session session{dir.file("keys.p12")};

    void createWith(std::initializer_list<std::pair<KeyType, const char*>> keys) {
        ASSERT_EQ(session.create(), kKmOk);
        for (const auto& [use, name] : keys) ASSERT_EQ(session.keys.addNewKey(use, testKey(name)), kKmOk);
    }
};

TEST_F(KeyManagerCertsTest, InstallsACertificateByTheRules) {
    createWith({{KeyType::Signing, "rsa1"}, {KeyType::Encryption, "rsa2"}});
    const Step steps[] = {
        {"dsa", kKmNoKeyForCertificate}, {"both", kKmRoleTaken},
        {"enc_by_rsa1", kKmRoleTaken},   {"sign", kKmOk},
        {"sign", kKmCertificateExists},  {"sign_other", kKmKeyHasTwoNames},
        {"sign_newer", kKmOk},           {"sign", kKmCertificateExists},
        {"plain", kKmCertificateExists}, {"enc", kKmOk},
    };
    for (const auto& [name, result] : steps) EXPECT_EQ(session.keys.installUserCrt(*testCert(name)), result) << name;
    ASSERT_EQ(session.keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(session.login(), kKmOk);
    EXPECT_TRUE(contains({session.keys.signingCertificate()}, *testCert("sign_newer")));
    EXPECT_TRUE(contains({session.keys.encryptionCertificate()}, *testCert("enc")));
    EXPECT_EQ(session.keys.userCerts().size(), 2u);

    session.editRecord().setIntOpt(13, 1);
    EXPECT_EQ(session.keys.installUserCrt(*testCert("sign_other")), kKmOk) << "option 13 allows a second name";
    ASSERT_EQ(session.keys.saveConfiguration(), kKmOk);
    EXPECT_EQ(session.login(), kKmOk);
    session.editRecord().setIntOpt(13, 0);
    ASSERT_EQ(session.keys.saveConfiguration(), kKmOk);
    EXPECT_EQ(session.login(), kKmKeyHasTwoNames);
}

TEST_F(KeyManagerCertsTest, AnInstallationCanBeTakenBack) {
    createWith({{KeyType::Signing, "rsa1"}});
    ASSERT_EQ(session.keys.installUserCrt(*testCert("sign")), kKmOk);
    ASSERT_EQ(session.keys.installUserCrt(*testCert("sign_newer")), kKmOk);
    session.keys.undoInstallUserCrt();
    ASSERT_EQ(session.keys.userCerts().size(), 1u);
    EXPECT_TRUE(contains(session.keys.userCerts(), *testCert("sign")));
    session.keys.undoInstallUserCrt();
    EXPECT_EQ(session.keys.userCerts().size(), 1u) << "only the last one";
}

TEST_F(KeyManagerCertsTest, TrustPointsComeFromFourPlacesAndOnlyTheUsersCanBeDeleted) {
    createWith({});
    const Step steps[] = {
        {"sign", kKmNoCaCertificate},       {"no_ca", kKmNoCaCertificate},
        {"ca_md5", kKmTrustPointRefused},   {"ca_ec", kKmOk},
        {"ca_short", kKmTrustPointRefused}, {"ca_ec", kKmTrustPointExists},
    };
    for (const auto& [name, result] : steps) EXPECT_EQ(session.keys.addTrustedCA(*testCert(name)), result) << name;
    Bytes forged = toBytes(encodingOf(*testCert("ca")));
    forged.back() ^= 1;
    EXPECT_EQ(session.keys.addTrustedCA(*makeCert(forged)), kKmBadSignature);

    session.editRecord().setQualifiedTrustedCAs({toBytes(encodingOf(*testCert("ca_short")))});
    session.profile().setAttr(CRVPROFILE_ATTR_ROOTS_FILE, dataFile("roots.p12"));
    session.context.pins.insert_or_assign(PinSlot::Roots, SecretText("korzenie"));
    ASSERT_EQ(session.keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(session.login(true), kKmOk);
    const auto flags = [&] {
        std::string text;
        for (const TrustPoint& point : session.keys.trustedPoints()) text += char('0' + int(point.flag));
        return text;
    };
    EXPECT_EQ(flags(), "123");
    EXPECT_EQ(session.keys.addTrustedCA(*testCert("ca")), kKmTrustPointExists);
    EXPECT_EQ(session.keys.delTrustedCA(*testCert("ca"), 1), kKmNotOnThisMedium);
    EXPECT_THROW((void)session.keys.delTrustedCA(*testCert("ca"), 3), VtestException);

    // Out of the record, but still in a bag: then it is the key store's.
    session.editRecord().setTrustedCAs({});
    EXPECT_EQ(flags(), "023");
    EXPECT_EQ(session.keys.delTrustedCA(*testCert("ca_ec"), 1), kKmNotOnThisMedium);
    session.editRecord().setTrustedCAs({toBytes(encodingOf(*testCert("ca_ec")))});
    EXPECT_EQ(session.keys.delTrustedCA(*testCert("ca_ec"), 1), kKmOk);
    EXPECT_EQ(session.keys.delTrustedCA(*testCert("ca_ec"), 1), kKmOk) << "gone already";
    ASSERT_EQ(session.keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(session.login(false), kKmOk);
    EXPECT_EQ(flags(), "2") << "deleted from record and bags; the additional store was not asked for";
}

TEST_F(KeyManagerCertsTest, TheAdditionalStoreFailsWithItsCode) {
    createWith({});
    // file, its password or null for cancelled, whether the profile says that it is empty
    const std::tuple<const char*, const char*, bool, KeyManagerResult> cases[] = {
        {"roots.p12", "korzenie", false, kKmOk},
        {"roots.p12", "pnie", false, kKmWrongRootsPassword},
        {"roots.p12", nullptr, false, kKmNoRootsPassword},
        {"roots_empty.p12", nullptr, true, kKmOk},
        {"roots.p12", nullptr, true, kKmWrongRootsPassword},
        {"missing.p12", nullptr, false, kKmOk},
        {"crt_ca.der", "korzenie", false, kKmRootsFormat},
        {"openssl_ec.p12", "Hasło1234", false, kKmRootsFormat},
        {".", "korzenie", false, kKmRootsFormat},
    };
    for (const auto& [file, password, empty, result] : cases) {
        session.profile().setAttr(CRVPROFILE_ATTR_ROOTS_FILE, dataFile(file));
        session.profile().setAttr(CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, empty);
        session.context.pins.erase(PinSlot::Roots);
        if (password) session.context.pins.emplace(PinSlot::Roots, SecretText(password));
        EXPECT_EQ(session.login(true), result) << file << " under " << (password ? password : "nothing");
        EXPECT_EQ(session.keys.isLoggedIn(), result == kKmOk);
    }
}

/// Replaces the file by one whose configuration is signed.
void writeSigned(Session& session, const char* signer, ByteView record) {
    const PrivateKey key = testKey(signer);
    SignedData data;
    data.sign(record, {key, *testCert("sign"), KeyScheme::rsa, KcHashAlgo::sha256, 1700000000}, session.keys.random());
    ContentInfo wrapped;
    wrapped.build(OID_PKCS7_SIGNED_DATA, data);
    Pfx pfx;
    PrivateKeyInfo info;
    ASSERT_TRUE(info.readExactly(testKey("rsa1").toPkcs8()));
    pfx.update(info, testKey("rsa1").keyId());
    pfx.update(OID_CRV_SAFE_BAG_CONFIG, wrapped);
    const uint8_t salt[20] = {};
    ASSERT_EQ(pfx.final(PbeAlgo::sha1TripleDesCbc, false, asBytes(kPassword), salt, sizeof salt), PfxResult::ok);
    writeFile(session.path, std::string(asText(pfx.encoded())));
}

TEST_F(KeyManagerCertsTest, ASignedConfigurationMustVerify) {
    createWith({});
    CRVCfgFile record;
    record.setIntOpt(17, 99);
    record.setTrustedCAs({toBytes(encodingOf(*testCert("ca")))});
    writeSigned(session, "rsa2", record.encoded());
    EXPECT_EQ(session.login(), kKmConfigurationSignature);
    ASSERT_EQ(session.create(), kKmWriteFailed) << "a file that is not ours to replace";
    ASSERT_EQ(session.keys.rbgInit(asBytes("octets")), kKmOk);
    writeSigned(session, "rsa1", asBytes("no record"));
    EXPECT_EQ(session.login(), kKmBadFormat);
    session.keys.beginNewProfile();
    ASSERT_EQ(session.keys.rbgInit(asBytes("octets")), kKmOk);
    writeSigned(session, "rsa1", record.encoded());
    ASSERT_EQ(session.login(), kKmOk);
    EXPECT_EQ(session.record().getIntOpt(17), 99);
    EXPECT_EQ(session.keys.trustedPoints().size(), 1u);
    ASSERT_EQ(session.login(), kKmOk) << "stored as a plain record";
    EXPECT_EQ(session.record().getIntOpt(17), 99);
}

struct OtherMediaTest : testing::Test {
    TestContext context;
    KeyManager keys;
    SecretArray<16> octets;

    OtherMediaTest() {
        keys.init(context);
        context.pins.emplace(PinSlot::SigningToken, SecretText("1234"));
    }
    template <class Kind>
    CrvProfile& bind() {
        context.configuration().setProfile(std::make_unique<Kind>());
        return *context.configuration().profile();
    }
    void bindCard(const std::string& library, const std::string& mood) {
        CrvProfile& profile = bind<Tarvo23Profile>();
        context.diagnostic.clear();
        profile.setAttr(CRVPROFILE_ATTR_TRV_LIB_PATH, CRV_BIN_DIR + library);
        profile.setAttr(CRVPROFILE_ATTR_T23_CARD_ID, ("CARD-0000000000" + mood).c_str(), 16);
    }
    bool filled() { return octets != SecretArray<16>(); }
};

TEST_F(OtherMediaTest, MemoryAndProviderNeedNeitherPinNorFile) {
    context.pins.clear();
    bind<MemoryProfile>();
    ASSERT_EQ(keys.initProfile(0, true), kKmOk);
    EXPECT_EQ(keys.rbgFill(octets), kKmOk);
    EXPECT_TRUE(filled());
    EXPECT_EQ(keys.saveNewSeed(), kKmOk);
    EXPECT_EQ(keys.saveConfiguration(), kKmOk);
    EXPECT_THROW((void)keys.saveKey(SecretText(kPassword), 0), VtestException);
    EXPECT_THROW((void)keys.loadKey(SecretText(kPassword)), VtestException);

    bind<CspProfile>();
    octets = {};
    ASSERT_EQ(keys.initProfile(0, false), kKmOk);
    EXPECT_EQ(keys.rbgFill(octets), kKmOk);
    EXPECT_FALSE(filled()) << "the provider is never asked";

    bind<Pkcs11Profile>();
    context.pins.emplace(PinSlot::SigningToken, SecretText("1234"));
    EXPECT_EQ(keys.deviceInit(), kKmPkcs11NotInitialised);
    EXPECT_EQ(keys.initProfile(0, false), kKmPkcs11NotInitialised);

    context.configuration().setProfile(nullptr);
    EXPECT_THROW((void)keys.initProfile(0, false), VtestException);
}

TEST_F(OtherMediaTest, TheTarvoLibraryIsFoundOrSaidToBeMissing) {
    const std::tuple<const char*, const char*, const char*, KeyManagerResult, KeyManagerResult> cases[] = {
        {"/none.so", "o", "1234", kKmDeviceLibrary, kKmDeviceLibrary},
        {"/tarvo_test_broken.so", "o", "1234", kKmDeviceFunction, kKmDeviceFunction},
        {"/tarvo_test.so", "n", "1234", kKmDeviceNotFound, kKmDeviceNotFound},
        {"/tarvo_test.so", "e", "1234", kKmDeviceError, kKmDeviceError},
        {"/tarvo_test.so", "o", "4321", kKmOk, kKmWrongPassword},
        {"/tarvo_test.so", "o", "blocked", kKmOk, kKmCardBlocked},
        {"/tarvo_test.so", "o", "1234", kKmOk, kKmOk},
    };
    for (const auto& [library, card, pin, start, login] : cases) {
        SCOPED_TRACE(std::string(library) + card + pin);
        bindCard(library, card);
        context.pins.insert_or_assign(PinSlot::SigningToken, SecretText(pin));
        EXPECT_EQ(keys.deviceInit(), start);
        EXPECT_EQ(keys.initProfile(0, false), login);
        EXPECT_EQ(context.diagnostic.empty(), start != kKmDeviceLibrary && start != kKmDeviceFunction);
    }
    EXPECT_EQ(context.deviceError, 0x1A2Bu);
    EXPECT_EQ(keys.rbgFill(octets), kKmOk);
    EXPECT_TRUE(filled());
    // The configuration is kept in the device.
    context.configuration().editRecord().setIntOpt(17, 5);
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    context.configuration().resetRecord();
    ASSERT_EQ(keys.initProfile(0, false), kKmOk);
    EXPECT_EQ(context.configuration().record().getIntOpt(17), 5);

    bindCard("/tarvo_test.so", "r");
    ASSERT_EQ(keys.initProfile(0, false), kKmOk);
    EXPECT_EQ(keys.rbgFill(octets), kKmDeviceError);
}

}  // namespace
}  // namespace crv::test
