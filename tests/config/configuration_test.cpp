// The configuration record and the manager that holds it.
#include <gtest/gtest.h>

#include <map>

#include "asn/known_oids.h"
#include "asn/x509/sign_algo.h"
#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "config/trusted_list_manager.h"
#include "misc/exceptions.h"
#include "profiles/profile_kinds.h"
#include "support/temp_dir.h"

namespace crv {
namespace {

TEST(CfgFile, EachOptionHasItsDefaultAndAFieldOfItsOwn) {
    const std::map<long, long> notZero = {{kOptAddSignerMode, 1},
                                          {kOptTimeStampSignReqInfo, 1},
                                          {kOptConnectTimeout, 30},
                                          {kOptNewArlNeeded, 1},
                                          {kOptXmlCheckX509dataInconsistency, 1},
                                          {kOptCreateRefArchiveForm, 1},
                                          {kOptArchiveNewCrlNeeded, 1},
                                          {kOptUseOcsp, 1},
                                          {kOptTslNetLoadDays, 7},
                                          {kOptTslNetLoadTimeoutSec, 300},
                                          {kOptUseSigningCertificateV2, 1}};
    CRVCfgFile record, back;
    EXPECT_EQ(record.encoded(), (Bytes{0x30, 0x00}));
    std::vector<long> options;
    for (long id = -1; id < 60; ++id) {
        if (!CRVCfgFile::isSuchIntOpt(id)) continue;
        options.push_back(id);
        EXPECT_EQ(record.getIntOpt(id), notZero.contains(id) ? notZero.at(id) : 0) << id;
        record.setIntOpt(id, -1000 - id);
    }
    EXPECT_EQ(options.size(), 38u);
    EXPECT_EQ(record.size(), 38u);
    ASSERT_TRUE(back.readExactly(record.encoded()));
    for (const long id : options) EXPECT_EQ(back.getIntOpt(id), -1000 - id);
    EXPECT_EQ(back.getProtMsgFmt(), 1);
    EXPECT_EQ(back.getSymAlgo(), OID_AES256_CBC);
    EXPECT_TRUE(back.getPolicies().empty());
    EXPECT_FALSE(back.getTextOpt(36));
    EXPECT_THROW((void)back.getIntOpt(15), VtestException);
    EXPECT_THROW((void)back.getTextOpt(35), VtestException);
}

TEST(CfgFile, ReplacesInPlaceAndKeepsUnknownFields) {
    // { 1.2.3: NULL }, { 5.24: 5 }, { 5.5: 2 }
    const Bytes der = {0x30, 0x2C, 0x30, 0x06, 0x06, 0x02, 0x2A, 0x03, 0x05, 0x00, 0x30, 0x10, 0x06, 0x0B, 0x2B, 0x06,
                       0x01, 0x04, 0x01, 0x81, 0xFD, 0x59, 0x02, 0x05, 0x18, 0x02, 0x01, 0x05, 0x30, 0x10, 0x06, 0x0B,
                       0x2B, 0x06, 0x01, 0x04, 0x01, 0x81, 0xFD, 0x59, 0x02, 0x05, 0x05, 0x02, 0x01, 0x02};
    CRVCfgFile record;
    ASSERT_TRUE(record.readExactly(der));
    EXPECT_EQ(record.getIntOpt(kOptConnectTimeout), 5);
    EXPECT_EQ(record.getProtMsgFmt(), 2);
    record.setIntOpt(kOptConnectTimeout, 6);
    Bytes expected = der;
    expected[27] = 6;
    EXPECT_EQ(record.encoded(), expected);
    record.setField(OID_CRV_CONFIG_PROT_MSG_FMT, nullptr);
    EXPECT_EQ(record.getProtMsgFmt(), 1);
    EXPECT_EQ(record.size(), 2u);
    const ASNnull wrong;
    record.setField(OID_CRV_CONFIG_CONNECT_TIMEOUT, &wrong);
    EXPECT_THROW((void)record.getIntOpt(kOptConnectTimeout), VtestException);
}

TEST(CfgFile, KeepsItsTypedFields) {
    CRVCfgFile record;
    CRVCfgFile::Policies policies;
    PolicyIdAndNote& policy = policies.add();
    ASSERT_TRUE(policy.policyId.setText("1.2.616.1"));
    policy.setNoteText("Polityka ż");
    record.setPolicies(policies);
    record.setAcceptedKeyUsage({});
    const Bytes first = {0x30, 0x03, 0x02, 0x01, 0x07}, second = {0x30, 0x02, 0x05, 0x00};
    record.setTrustedCAs({first, second});
    record.setQualifiedTrustedCAs({second});
    record.setSymAlgo(ASNobjectId(OID_AES128_CBC));
    record.setProtMsgFmt(3);
    EXPECT_EQ(record.getHashAlgo(), KcHashAlgo::Sha256);
    EXPECT_EQ(record.getHashAlgo(KeyScheme::Dsa), KcHashAlgo::Sha1);
    record.setHashAlgo(KcHashAlgo::Sha3384);
    record.setSignaturaAlgorithmIdentifier(*signAlgorithm(KeyScheme::RsaPss, KcHashAlgo::Sha512));
    record.setTextOpt(42, "tekst ż");
    CRVCfgFile back;
    ASSERT_TRUE(back.readExactly(record.encoded()));
    ASSERT_EQ(back.getPolicies().size(), 1u);
    EXPECT_EQ(back.getPolicies()[0].policyId.text(), "1.2.616.1");
    EXPECT_EQ(back.getPolicies()[0].noteText(), "Polityka ż");
    EXPECT_TRUE(back.getAcceptedKeyUsage().empty());
    EXPECT_EQ(back.getTrustedCAs(), (CRVCfgFile::Certificates{first, second}));
    EXPECT_EQ(back.getQualifiedTrustedCAs(), CRVCfgFile::Certificates{second});
    EXPECT_EQ(back.getSymAlgo(), OID_AES128_CBC);
    EXPECT_EQ(back.getProtMsgFmt(), 3);
    EXPECT_EQ(back.getHashAlgo(KeyScheme::Dsa), KcHashAlgo::Sha3384);
    EXPECT_EQ(readSignAlgorithm(*back.getSignatureAlgorithmIdentifier())->hash, KcHashAlgo::Sha512);
    EXPECT_EQ(back.getTextOpt(42), "tekst ż");
    back.setTextOpt(42, std::nullopt);
    EXPECT_FALSE(back.getTextOpt(42));
    EXPECT_THROW(record.setTrustedCAs({{0x30, 0x05}}), VtestException);
}

TEST(ConfigurationManager, TellsWhatEachKindOfProfileIs) {
    ConfigurationManager manager;
    EXPECT_EQ(manager.keyMedium(), KeyMedium::None);
    EXPECT_EQ(manager.securityFileLockName(), "");
    const auto expect = [&](std::unique_ptr<CrvProfile> profile, KeyMedium medium, SessionProfileType type) {
        profile->setAttr(CRVPROFILE_ATTR_DB, "/base/db");
        manager.setProfile(std::move(profile));
        EXPECT_EQ(manager.keyMedium(), medium);
        EXPECT_EQ(manager.profileType(), type) << static_cast<int>(medium);
        EXPECT_EQ(manager.securityFileLockName(), medium == KeyMedium::File ? "" : "/base/db/key.lck");
    };
    expect(std::make_unique<Pkcs12Profile>(), KeyMedium::File, SessionProfileType::File);
    expect(std::make_unique<Tarvo23Profile>(), KeyMedium::Tarvo, SessionProfileType::Device);
    expect(std::make_unique<Pkcs11Profile>(), KeyMedium::Token, SessionProfileType::Device);
    expect(std::make_unique<CspProfile>(), KeyMedium::Provider, SessionProfileType::Unusable);
    expect(std::make_unique<MemoryProfile>(), KeyMedium::Memory, SessionProfileType::Unusable);
}

TEST(ConfigurationManager, LocksTheFileBehindTheLink) {
    test::TempDir dir;
    test::writeFile(dir.file("real.p12"), "x");
    std::filesystem::create_symlink(dir.file("real.p12"), dir.file("link.p12"));
    setenv("HOME", dir.path().c_str(), 1);
    auto profile = CrvProfile::create(1);
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "~/link.p12");
    profile->insertProxy("proxy.pl", 1, "", {});
    ConfigurationManager manager;
    manager.setProfile(std::move(profile));
    EXPECT_EQ(manager.securityFileName(), dir.file("link.p12"));
    EXPECT_EQ(manager.securityFileLockName(), std::filesystem::canonical(dir.path()).string() + "/real.p12.lck");
    EXPECT_EQ(TrustedListManager::instance().proxy().addr, "proxy.pl");
}

TEST(ConfigurationManager, NeverChangesASharedRecord) {
    ConfigurationManager manager;
    manager.editRecord().setIntOpt(kOptConnectTimeout, 5);
    EXPECT_TRUE(manager.isRecordChanged());
    const auto kept = manager.sharedRecord();
    manager.editRecord().setIntOpt(kOptConnectTimeout, 6);
    EXPECT_EQ(manager.record().getIntOpt(kOptConnectTimeout), 6);
    manager.setRecord(kept);
    EXPECT_FALSE(manager.isRecordChanged());
    manager.editRecord().setIntOpt(kOptConnectTimeout, 7);
    EXPECT_EQ(kept->getIntOpt(kOptConnectTimeout), 5);
    manager.resetRecord();
    EXPECT_EQ(manager.record().getIntOpt(kOptConnectTimeout), 30);
    EXPECT_TRUE(manager.isRecordChanged());
}

}  // namespace
}  // namespace crv
