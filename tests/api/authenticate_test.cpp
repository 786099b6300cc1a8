// Log-in through the library, and what a key changes for the options.
#include <gmock/gmock.h>

#include "api/crvctx.h"
#include "config/config_oids.h"
#include "config/warning_codes.h"
#include "crypto/private_key.h"
#include "misc/file_semaphore.h"
#include "support/cert_maker.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

using testing::HasSubstr;

/// A file profile with its database and, when made, its security file under the password "Tajne123".
class Authenticate : public testing::Test {
  protected:
    Authenticate() {
        profile_->setAttr(CRVPROFILE_ATTR_NAME, "Ala");
        profile_->setAttr(CRVPROFILE_ATTR_DB_TYPE, "corvane");
        profile_->setAttr(CRVPROFILE_ATTR_DB, dir_.file("db"));
        profile_->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, dir_.file("keys.p12"));
    }

    void bind(CRVctx& ctx, const char* pin = "Tajne123") const {
        ctx.setProfile(profile_->clone());
        ASSERT_EQ(crvStorePINUtf8API(&ctx, 1, pin), 0);
    }

    /// Creates database and security file and stays logged in.
    void create(CRVctx& ctx) const {
        bind(ctx);
        ASSERT_TRUE(ctx.dbManager.createDb());
        ctx.keyManager.beginNewProfile();
        ASSERT_EQ(ctx.keyManager.rbgInit(asBytes("sixty keys typed at random moments")), kKmOk);
        ctx.configurationManager.resetRecord();
        ctx.configurationManager.editRecord().setIntOpt(kOptConnectTimeout, 77);
        ASSERT_EQ(ctx.keyManager.saveConfiguration(), kKmOk);
    }

    TempDir dir_;
    std::unique_ptr<CrvProfile> profile_ = CrvProfile::create(CRVPROFILE_TYPE_PKCS12);
};

TEST_F(Authenticate, OpensTheKeyStoreUnderItsLock) {
    CRVctx ctx;
    EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_PROFILE_NOT_LOADED);
    create(ctx);
    long value = 0;
    for (const char* wrong : {"tajne123", "Inne1234", ""}) {
        bind(ctx, wrong);
        EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_PASSWORD);
        SecretText pin;
        EXPECT_EQ(ctx.getPIN(PinSlot::SigningToken, pin), kPinCancelled);
        EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_ACTION_CANCELLED);
        EXPECT_FALSE(ctx.keyManager.isLoggedIn());
    }
    bind(ctx);
    EXPECT_EQ(crvAuthenticateExAPI(&ctx, 1), CRV_OK);
    EXPECT_TRUE(ctx.keyManager.isLoggedIn());
    EXPECT_EQ(crvGetOptionAPI(&ctx, kOptConnectTimeout, &value), 0);
    EXPECT_EQ(value, 77);
    EXPECT_THAT(ctx.state.wholeReport(), HasSubstr("Otwarcie profilu Ala: 0\n"));
    FileSemaphore lock(dir_.file("keys.p12.lck"));
    EXPECT_TRUE(lock.pCond(kExclusiveLock)) << "the lock was not released";
}

TEST_F(Authenticate, TellsWhatIsMissing) {
    CRVctx ctx;
    create(ctx);
    std::filesystem::rename(dir_.file("db"), dir_.file("away"));
    bind(ctx);
    EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_DB);
    std::filesystem::rename(dir_.file("away"), dir_.file("db"));
    std::filesystem::rename(dir_.file("keys.p12"), dir_.file("kept"));
    bind(ctx);
    EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_SFT_OPEN);
    writeFile(dir_.file("keys.p12"), "no key store");
    EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_SFT_FMT);
    std::filesystem::remove(dir_.file("keys.p12.lck"));
    std::filesystem::create_directory(dir_.file("keys.p12.lck"));
    EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_LOCK);
}

TEST_F(Authenticate, HoldsTheOptionsToTheSigningKey) {
    CRVctx ctx;
    create(ctx);
    const PrivateKey key = PrivateKey::generateRsa(2048, 65537, ctx.keyManager.random());
    ASSERT_EQ(ctx.keyManager.addNewKey(KeyType::Signing, std::make_shared<const PrivateKey>(key)), kKmOk);
    constexpr long kDigest = 15, kScheme = 21, kSignature = 25;
    constexpr int kUnfit = ECRV_SIG_WITH_DIG_NOT_SUPPORTED;
    const std::pair<std::pair<long, long>, int> cases[] = {
        {{kDigest, 6}, CRV_OK}, {{kScheme, 5}, kUnfit}, {{kScheme, 4}, kUnfit},        {{kScheme, 6}, CRV_OK},
        {{kDigest, 8}, kUnfit}, {{kScheme, 2}, CRV_OK}, {{kSignature, 0x509}, kUnfit}, {{kSignature, 0x208}, CRV_OK}};
    for (const auto& [option, code] : cases)
        EXPECT_EQ(crvSetOptionAPI(&ctx, option.first, option.second), code) << option.first << ' ' << option.second;
    EXPECT_THAT(
        ctx.state.wholeReport(),
        HasSubstr("Podany schemat podpisu ecdsa nie może być użyty z aktualnym kluczem do podpisywania (który jest "
                  "typu rsaEncryption)\n"));
    ctx.setProfile(nullptr);
    EXPECT_EQ(crvSetOptionAPI(&ctx, kScheme, 5), 0);
}

TEST_F(Authenticate, MovesWhatWasFetchedIntoTheDatabase) {
    CRVctx ctx;
    create(ctx);
    const MadeCert ca = makeCert({.subject = {{"CN", "CA"}}, .extensions = caExtensions()});
    EXPECT_TRUE(ctx.networkManager.addCertToNetStore(ca.der));
    EXPECT_FALSE(ctx.networkManager.addCertToNetStore(ca.der));
    EXPECT_TRUE(ctx.networkManager.addCRLToNetStore(makeCrl({}, ca)));
    ctx.moveFromNetStoreToDB();
    EXPECT_TRUE(ctx.state.warnings.empty());
    size_t count = 0;
    std::vector<Bytes> crls;
    EXPECT_TRUE(ctx.dbManager.countCerts(count) && ctx.dbManager.getAllCrls(crls));
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(crls.size(), 1u);
    EXPECT_TRUE(ctx.networkManager.netStoreCerts().empty());
    const Bytes broken = {0x30, 0x00};
    ctx.networkManager.addCertToNetStore(broken);
    ctx.moveFromNetStoreToDB();
    EXPECT_THAT(ctx.state.warnings, testing::ElementsAre(WARN_NET_STORE_NOT_MOVED));
}

}  // namespace
}  // namespace crv::test
