// The user's certificates, trust points, signed configurations, and profiles without a security file.
#include "asn/pkcs/pfx.h"
#include "asn/pkcs/signed_data.h"
#include "config/config_oids.h"
#include "corvane/crvprofile.h"
#include "key_store_session.h"
#include "misc/exceptions.h"
#include "profiles/profile_kinds.h"

namespace crv::test {
namespace {

using Steps = std::vector<std::pair<const char*, KeyManagerResult>>;
using KeyManagerCertsTest = KeyStoreTest;

TEST_F(KeyManagerCertsTest, InstallsACertificateByTheRules) {
    create({{KeyType::Signing, "rsa1"}, {KeyType::Encryption, "rsa2"}});
    const auto install = [&](const Steps& steps) {
        for (const auto& [name, result] : steps) EXPECT_EQ(keys.installUserCrt(testCert(name)), result) << name;
    };
    install({{"dsa", kKmNoKeyForCertificate},
             {"both", kKmRoleTaken},
             {"enc_by_rsa1", kKmRoleTaken},
             {"sign", kKmOk},
             {"sign", kKmCertificateExists},
             {"sign_other", kKmKeyHasTwoNames}});
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    install({{"sign_newer", kKmOk}, {"enc", kKmOk}});
    for (int i = 0; i < 2; ++i) {
        keys.undoInstallUserCrt();  // all since the save
        ASSERT_EQ(keys.userCerts().size(), 1u);
        EXPECT_TRUE(contains(keys.userCerts(), *testCert("sign")));
    }
    install({{"sign_newer", kKmOk}, {"sign", kKmCertificateExists}, {"plain", kKmCertificateExists}, {"enc", kKmOk}});
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(session.login(), kKmOk);
    EXPECT_TRUE(contains({keys.signingCertificate()}, *testCert("sign_newer")));
    EXPECT_TRUE(contains({keys.encryptionCertificate()}, *testCert("enc")));
    EXPECT_EQ(keys.userCerts().size(), 2u);

    session.editRecord().setIntOpt(kOptAllowFullRecertification, 1);
    install({{"sign_other", kKmOk}});  // the option allows a second name
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(session.login(), kKmOk);
    session.editRecord().setIntOpt(kOptAllowFullRecertification, 0);
    EXPECT_EQ(keys.saveConfiguration(), kKmKeyHasTwoNames) << "nobody could log in any more";
    ASSERT_EQ(session.login(), kKmOk);
    Session ignoring(path);
    ignoring.profile().setAttr(CRVPROFILE_ATTR_IGNORE_SFT_FILE, 1);
    EXPECT_EQ(ignoring.login(), kKmKeyHasTwoNames) << "the option stands in the file";
}

TEST_F(KeyManagerCertsTest, TwoSessionsDoNotGiveAKeyTwoNames) {
    create({{KeyType::Signing, "rsa1"}});
    Session other(path);
    ASSERT_EQ(other.login(), kKmOk);
    for (const auto& [who, name, result] :
         {std::tuple{&session, "sign", kKmOk}, {&other, "sign_other", kKmKeyHasTwoNames}}) {
        ASSERT_EQ(who->keys.installUserCrt(testCert(name)), kKmOk);
        EXPECT_EQ(who->keys.saveConfiguration(), result);
    }
    other.keys.undoInstallUserCrt();
    EXPECT_EQ(other.keys.saveConfiguration(), kKmOk);
    EXPECT_EQ(other.login(), kKmOk);
}

TEST_F(KeyManagerCertsTest, TrustPointsComeFromFourPlacesAndOnlyTheUsersCanBeDeleted) {
    create();
    for (const auto& [name, result] : Steps{{"sign", kKmNoCaCertificate},
                                            {"no_ca", kKmNoCaCertificate},
                                            {"ca_md5", kKmTrustPointRefused},
                                            {"ca_short", kKmTrustPointRefused},
                                            {"ca_ec", kKmOk},
                                            {"ca_ec", kKmTrustPointExists}})
        EXPECT_EQ(keys.addTrustedCA(testCert(name)), result) << name;
    Bytes forged = toBytes(encodingOf(*testCert("ca")));
    forged.back() ^= 1;
    EXPECT_EQ(keys.addTrustedCA(makeCert(forged)), kKmBadSignature);

    session.editRecord().setQualifiedTrustedCAs({toBytes(encodingOf(*testCert("ca_short")))});
    session.profile().setAttr(CRVPROFILE_ATTR_ROOTS_FILE, dataFile("roots.p12"));
    session.setPin("korzenie", PinSlot::Roots);
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(session.login(true), kKmOk);
    const auto flags = [&] {
        std::string text;
        for (const TrustPoint& point : keys.trustedPoints())
            text += static_cast<char>('0' + static_cast<int>(point.flag));
        return text;
    };
    EXPECT_EQ(flags(), "123");
    EXPECT_EQ(keys.addTrustedCA(testCert("ca")), kKmTrustPointExists);
    EXPECT_EQ(keys.delTrustedCA(testCert("ca"), kUsers), kKmNotOnThisMedium);
    EXPECT_THROW((void)keys.delTrustedCA(testCert("ca"), static_cast<int>(TrustPointFlag::Additional)), VtestException);

    // Out of the record, but still in a bag: then it is the key store's.
    session.editRecord().setTrustedCAs({});
    EXPECT_EQ(flags(), "023");
    EXPECT_EQ(keys.delTrustedCA(testCert("ca_ec"), kUsers), kKmNotOnThisMedium);
    session.editRecord().setTrustedCAs({toBytes(encodingOf(*testCert("ca_ec")))});
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(keys.delTrustedCA(testCert("ca_ec"), kUsers), kKmOk) << "also when it is gone";
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    ASSERT_EQ(session.login(false), kKmOk);
    EXPECT_EQ(flags(), "2") << "deleted from record and bags; the additional store was not asked for";
}

TEST_F(KeyManagerCertsTest, TheAdditionalStoreFailsWithItsCode) {
    create();
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
        if (password) session.setPin(password, PinSlot::Roots);
        EXPECT_EQ(session.login(true), result) << file << " under " << (password ? password : "nothing");
        EXPECT_EQ(keys.isLoggedIn(), result == kKmOk);
    }
}

/// Replaces the file by one whose configuration is signed.
void writeSigned(Session& session, const char* signer, ByteView record,
                 std::initializer_list<const char*> certificates = {}) {
    SignedData data;
    data.sign(record, {testKey(signer), testCert("sign").get(), KeyScheme::Rsa, KcHashAlgo::Sha256, 1700000000},
              session.keys.random());
    ContentInfo wrapped;
    wrapped.build(OID_PKCS7_SIGNED_DATA, data);
    Pfx pfx;
    PrivateKeyInfo info;
    ASSERT_TRUE(info.readExactly(testKey("rsa1").toPkcs8()));
    pfx.update(info, testKey("rsa1").keyId());
    for (const char* name : certificates) pfx.update(*testCert(name), testKey("rsa1").keyId());
    pfx.update(OID_CRV_SAFE_BAG_CONFIG, wrapped);
    const uint8_t salt[20] = {};
    ASSERT_EQ(pfx.final(PbeAlgo::Sha1TripleDesCbc, false, asBytes(kPassword), salt, sizeof salt), PfxResult::Ok);
    writeFile(session.path, std::string(asText(pfx.encoded())));
}

TEST_F(KeyManagerCertsTest, ASignedConfigurationMustVerify) {
    CRVCfgFile record;
    record.setIntOpt(kOptConnectTimeout, 99);
    record.setTrustedCAs({toBytes(encodingOf(*testCert("ca")))});
    const std::tuple<const char*, Bytes, KeyManagerResult> files[] = {
        {"rsa2", record.encoded(), kKmConfigurationSignature},
        {"rsa1", toBytes(asBytes("no record")), kKmBadFormat},
        {"rsa1", record.encoded(), kKmOk},
    };
    for (const auto& [signer, content, result] : files) {
        std::filesystem::remove(path);
        create();
        writeSigned(session, signer, content);
        ASSERT_EQ(session.login(), result);
        Session reader(path);
        EXPECT_EQ(reader.keys.loadKey(SecretText(kPassword)), result) << "whoever only reads asks no less";
        EXPECT_TRUE(result == kKmOk || session.create() == kKmWriteFailed) << "a file that is not ours to replace";
    }
    EXPECT_EQ(session.record().getIntOpt(kOptConnectTimeout), 99);
    EXPECT_EQ(keys.trustedPoints().size(), 1u);
    ASSERT_EQ(session.login(), kKmOk) << "stored as a plain record";
    EXPECT_EQ(session.record().getIntOpt(kOptConnectTimeout), 99);

    for (const auto& [allowed, result] : {std::pair{1, kKmOk}, {0, kKmKeyHasTwoNames}}) {
        record.setIntOpt(kOptAllowFullRecertification, allowed);
        writeSigned(session, "rsa1", record.encoded(), {"sign", "sign_other"});
        EXPECT_EQ(session.login(), result) << "the signed option counts";
    }
}

struct OtherMediaTest : KeyStoreTest {
    TestContext& context = session.context;
    SecretArray<16> octets;

    template <class Kind>
    CrvProfile& bind() {
        context.configuration().setProfile(std::make_unique<Kind>());
        return session.profile();
    }
    /// Result of a start; then of a log-in.
    std::pair<KeyManagerResult, KeyManagerResult> openCard(const std::string& library, char mood, const char* pin) {
        auto& profile = bind<Tarvo23Profile>();
        context.diagnostic.clear();
        profile.setAttr(CRVPROFILE_ATTR_TRV_LIB_PATH, CRV_BIN_DIR + library);
        profile.setAttr(CRVPROFILE_ATTR_T23_CARD_ID, (std::string("CARD-0000000000") + mood).c_str(), 16);
        session.setPin(pin);
        const KeyManagerResult started = keys.deviceInit();
        return {started, session.login()};
    }
    bool filled() { return octets != SecretArray<16>(); }
};

TEST_F(OtherMediaTest, MemoryAndProviderNeedNeitherPinNorFile) {
    context.pins.clear();
    bind<MemoryProfile>();
    ASSERT_EQ(session.login(true), kKmOk);
    EXPECT_EQ(keys.rbgFill(octets), kKmOk);
    EXPECT_TRUE(filled());
    EXPECT_EQ(keys.saveNewSeed(), kKmOk);
    EXPECT_EQ(keys.saveConfiguration(), kKmOk);
    EXPECT_THROW((void)keys.saveKey(SecretText(kPassword), 0), VtestException);
    EXPECT_THROW((void)keys.loadKey(SecretText(kPassword)), VtestException);

    bind<CspProfile>();
    octets = {};
    ASSERT_EQ(session.login(), kKmOk);
    EXPECT_EQ(keys.rbgFill(octets), kKmOk);
    EXPECT_FALSE(filled()) << "the provider is never asked";

    bind<Pkcs11Profile>();
    session.setPin("1234");
    EXPECT_EQ(keys.deviceInit(), kKmPkcs11NotInitialised);
    EXPECT_EQ(session.login(), kKmPkcs11NotInitialised);

    context.configuration().setProfile(nullptr);
    EXPECT_THROW((void)session.login(), VtestException);
}

TEST_F(OtherMediaTest, TheTarvoLibraryIsFoundOrSaidToBeMissing) {
    const std::tuple<const char*, char, const char*, KeyManagerResult, KeyManagerResult> cases[] = {
        {"/none.so", 'o', "1234", kKmDeviceLibrary, kKmDeviceLibrary},
        {"/tarvo_test_broken.so", 'o', "1234", kKmDeviceFunction, kKmDeviceFunction},
        {"/tarvo_test.so", 'n', "1234", kKmDeviceNotFound, kKmDeviceNotFound},
        {"/tarvo_test.so", 'e', "1234", kKmDeviceError, kKmDeviceError},
        {"/tarvo_test.so", 'o', "4321", kKmOk, kKmWrongPassword},
        {"/tarvo_test.so", 'o', "blocked", kKmOk, kKmCardBlocked},
        {"/tarvo_test.so", 'o', "1234", kKmOk, kKmOk},
    };
    for (const auto& [library, mood, pin, start, login] : cases) {
        SCOPED_TRACE(std::string(library) + mood + pin);
        EXPECT_EQ(openCard(library, mood, pin), std::pair(start, login));
        EXPECT_EQ(context.diagnostic.empty(), start != kKmDeviceLibrary && start != kKmDeviceFunction);
    }
    EXPECT_EQ(context.deviceError, 0x1A2Bu);
    EXPECT_EQ(keys.rbgFill(octets), kKmOk);
    EXPECT_TRUE(filled());
    // The configuration is kept in the device.
    session.editRecord().setIntOpt(kOptConnectTimeout, 5);
    ASSERT_EQ(keys.saveConfiguration(), kKmOk);
    context.configuration().resetRecord();
    ASSERT_EQ(session.login(), kKmOk);
    EXPECT_EQ(session.record().getIntOpt(kOptConnectTimeout), 5);
    Session other("");
    other.context.configuration().setProfile(session.profile().clone());
    other.setPin("1234");
    ASSERT_EQ(other.login(), kKmOk);
    for (const auto& [who, option] : {std::pair{&session, kOptConnectTimeout}, {&other, kOptTslNetLoadTimeoutSec}}) {
        who->editRecord().setIntOpt(option, 6);
        ASSERT_EQ(who->keys.saveConfiguration(), kKmOk);
    }
    EXPECT_EQ(other.record().getIntOpt(kOptConnectTimeout), 6) << "two sessions keep each other's changes";
    ASSERT_EQ(openCard("/tarvo_test.so", 'r', "1234").second, kKmOk);
    EXPECT_EQ(keys.rbgFill(octets), kKmDeviceError);
}

}  // namespace
}  // namespace crv::test
