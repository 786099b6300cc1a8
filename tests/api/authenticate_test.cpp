// Log-in through the library, and what a key changes for the options.
#include <gmock/gmock.h>

#include "api/file_profile.h"
#include "config/config_oids.h"
#include "config/warning_codes.h"
#include "context/crvctx.h"
#include "corvane/crvapi.h"
#include "crypto/private_key.h"
#include "misc/file_semaphore.h"
#include "support/cert_maker.h"

namespace crv::test {
namespace {

using testing::HasSubstr;

using Authenticate = FileProfile;

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
        EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_SGN_PIN_NOT_PRES);
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
    bind(ctx);
    EXPECT_EQ(crvAuthenticateExAPI(&ctx, 0), ECRV_SFT_FMT);
    std::filesystem::remove(dir_.file("keys.p12.lck"));
    std::filesystem::create_directory(dir_.file("keys.p12.lck"));
    bind(ctx);
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
    bind(ctx);
    ASSERT_EQ(crvAuthenticateExAPI(&ctx, 0), CRV_OK);
    const MadeCert ca = makeCert({.subject = {{"CN", "CA"}}, .extensions = caExtensions()});
    EXPECT_TRUE(ctx.networkManager.addCRLToNetStore(makeCrl({}, ca)));
    ctx.moveFromNetStoreToDB();
    EXPECT_THAT(ctx.state.warnings, testing::ElementsAre(WARN_NET_STORE_NOT_MOVED)) << "of nobody who is trusted";
    ctx.state.warnings.clear();
    ASSERT_EQ(ctx.keyManager.addTrustedCA(crv::makeCert(ca.der)), kKmOk);
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

TEST_F(Authenticate, JudgesCertificatesForPrograms) {
    CRVctx ctx;
    const MadeCert root = makeCert({.subject = {{"CN", "Korzeń"}}, .extensions = caExtensions()});
    auto extensions = caExtensions();
    const std::pair<std::string, std::string> policy{"2.5.29.32", "DER:3006300406022A04"};  // 1.2.4
    extensions.push_back(policy);
    const MadeCert ca = makeCert({.subject = {{"CN", "CA"}}, .extensions = extensions}, &root);
    const MadeCert leaf = makeCert({.subject = {{"CN", "Jan"}}, .serial = "07", .extensions = {policy}}, &ca);
    CrvVerifyInfo info{};
    info.size = sizeof info;
    const auto certOf = [&](const Bytes& der) {
        CrvCertIterator* found = nullptr;
        CrvCert* cert = nullptr;
        EXPECT_EQ(crvReadCertsAPI(&ctx, der.data(), static_cast<long>(der.size()), nullptr, &found), CRV_OK);
        EXPECT_EQ(crvGetNextCertAPI(&ctx, found, &cert), CRV_OK);
        EXPECT_EQ(crvFreeCertIteratorAPI(&ctx, found), CRV_OK);
        return cert;
    };
    CrvCert *const asked = certOf(leaf.der), *const above = certOf(ca.der);
    const auto verify = [&](CrvVerifyParams params, CrvVerifyResult** result) {
        params.certs = &above;
        params.certs_count = 1;
        return crvVerifyCertAPI(&ctx, asked, &params, result);
    };
    constexpr long kSize = sizeof(CrvVerifyParams);
    const CrvVerifyParams plain{kSize, 0, 0, nullptr, nullptr, 0, 0, 0, nullptr, 0};
    CrvVerifyResult* result = nullptr;
    EXPECT_EQ(verify(plain, &result), ECRV_API_NOT_INITED);
    create(ctx);
    bind(ctx);
    ASSERT_EQ(crvAuthenticateExAPI(&ctx, 0), CRV_OK);
    ASSERT_EQ(ctx.keyManager.addTrustedCA(crv::makeCert(root.der)), kKmOk);
    const char* const wanted[] = {"1.2.3", nullptr};
    const char* const none[] = {"1..3", nullptr};
    const struct {
        CrvVerifyParams params;
        int code;
    } rows[] = {{{kSize, 0, 0, nullptr, nullptr, 0, 0, 0, nullptr, 0}, CRV_OK},
                {{kSize, 1, 0, nullptr, nullptr, 0, 0, 0, nullptr, 0}, ECRV_CRTBEFORE},
                {{kSize, 0, 0, nullptr, wanted, 0, CRVVERIFY_EXPLICIT_POLICY, 0, nullptr, 0}, ECRV_PATH_VER_ERR},
                {{kSize, 0, 0, nullptr, nullptr, CRVVERIFY_REVOCATION_REQUIRED, 0, 0, nullptr, 0}, ECRV_CRL_NOT_FOUND},
                {{kSize, 0, 0, none, nullptr, 0, 0, 0, nullptr, 0}, ECRV_API_INV_PAR},
                {{kSize, 0, 0, nullptr, nullptr, 0, 32, 0, nullptr, 0}, ECRV_API_INV_PAR},
                {{kSize, 0, 0, nullptr, nullptr, 3, 0, 0, nullptr, 0}, ECRV_API_INV_PAR},
                {{4, 0, 0, nullptr, nullptr, 0, 0, 0, nullptr, 0}, ECRV_API_INV_PAR}};
    for (const auto& row : rows) {
        EXPECT_EQ(verify(row.params, &result), row.code) << &row - rows;
        EXPECT_EQ(crvFreeVerifyResultAPI(&ctx, result), CRV_OK);
    }
    ASSERT_EQ(verify(plain, &result), CRV_OK);
    ASSERT_EQ(crvGetVerifyInfoAPI(&ctx, result, &info), CRV_OK);
    EXPECT_STREQ(info.policies, "1.2.4");
    EXPECT_EQ(crvFreeVerifyResultAPI(&ctx, result), CRV_OK);
    ASSERT_EQ(ctx.revocationManager.insert(makeCrl({.entries = {{"07", 1}}, .extensions = {}}, ca)), CrlInsert::Stored);
    ASSERT_EQ(verify(plain, &result), ECRV_CRTREV);
    ASSERT_EQ(crvGetVerifyInfoAPI(&ctx, result, &info), CRV_OK);
    EXPECT_EQ(std::tuple(info.code, std::string(info.clause), info.failed_at, info.steps),
              std::tuple(ECRV_CRTREV, std::string("6.1.3 (a)(3)"), 0L, 3L));
    CrvVerifyStep step{};
    step.size = offsetof(CrvVerifyStep, reason);  // of a program that knows no more
    EXPECT_EQ(crvGetVerifyStepAPI(&ctx, result, 0, &step), CRV_OK);
    EXPECT_EQ(step.status, CRVSTATUS_REVOKED);
    EXPECT_EQ(step.source, nullptr);
    step.size = sizeof step;
    EXPECT_EQ(crvGetVerifyStepAPI(&ctx, result, 0, &step), CRV_OK);
    EXPECT_EQ(std::string(step.subject) + '|' + step.source + '|' + step.source_delta, "CN=Jan|CN=CA|");
    EXPECT_EQ(step.reason, 1);
    EXPECT_TRUE(std::ranges::equal(leaf.der, ByteView(step.der, static_cast<size_t>(step.der_len))));
    EXPECT_EQ(crvGetVerifyStepAPI(&ctx, result, 3, &step), ECRV_API_INV_PAR);
    EXPECT_EQ(crvFreeVerifyResultAPI(&ctx, result), CRV_OK);
    for (CrvCert* one : {asked, above}) EXPECT_EQ(crvFreeCertAPI(&ctx, one), CRV_OK);
}

}  // namespace
}  // namespace crv::test
