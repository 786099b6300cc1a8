// Security files and foreign PKCS#12 files.
#include "asn/pkcs/pfx.h"

#include <gtest/gtest.h>

#include "asn/known_oids.h"
#include "asn/pkcs/secret_encoding.h"
#include "asn/x509/signed_certificate.h"
#include "crypto/private_key.h"
#include "misc/aside.h"
#include "pkcs/data_file.h"

namespace crv::test {
namespace {

constexpr KnownOid kConfigBag{"1.3.6.1.4.1.32473.2.6.1", "config"};
constexpr KnownOid kSeedBag{"1.3.6.1.4.1.32473.2.6.2", "seed"};
const Bytes kRandom(20, 0x5A);

KeyId keyIdOf(const PrivateKeyInfo& key) {
    return PrivateKey::fromPkcs8(encodedSecret(key)).keyId();
}

PfxResult seal(Pfx& pfx, const char* password) {
    return pfx.final(PbeAlgo::Sha1TripleDesCbc, false, asBytes(password), kRandom.data(), kRandom.size());
}

/// A file with everything, as the key manager writes one, read again.
Pfx fullPfx() {
    Pfx pfx, again;
    for (const std::string kind : {"rsa", "ec"}) {
        PrivateKeyInfo key;
        EXPECT_TRUE(key.readExactly(dataFile("key_" + kind + ".der")));
        if (kind == "rsa") key.setKeyUsage(kDigitalSignature | kNonRepudiation);
        pfx.update(key, keyIdOf(key));
        pfx.update(fromFile<SignedCertificate>("crt_" + kind + ".der"), keyIdOf(key));
    }
    pfx.update(kConfigBag, ASNsequenceList<ASNinteger>());
    pfx.update(kSeedBag, ASNoctstr(Bytes(20, 7)));
    EXPECT_EQ(seal(pfx, kPassword), PfxResult::Ok);
    EXPECT_TRUE(again.readExactly(pfx.encoded()));
    return again;
}

TEST(Pfx, ForeignFilesGiveUpTheirContentsToTheRightPassword) {
    using enum PfxResult;
    struct Row {
        const char* file;
        const char* password;
        PfxResult result;
        size_t keys = 0, certificates = 0;
        const char* name = "";
    };
    constexpr Row kRows[] = {
        {"openssl3", kPassword, Ok, 1, 1, "Jan Kowalski ćwiczy"},
        {"legacy", kPassword, Ok, 1, 1},
        {"3des", kPassword, Ok, 1, 2},
        {"nomaciter", kPassword, Ok, 1, 1},
        {"keybag", kPassword, Ok, 1, 1},
        {"pbmac1", kPassword, Ok, 1, 2},
        {"pbmac1", "x", MacMismatch},
        {"certs", kPassword, Ok, 0, 2},
        {"empty", "", Ok, 1, 1},
        {"certtool", kPassword, Ok, 1, 1, "PrÃ³ba"},  // its writer took UTF-8 for Latin 1
        {"nss", kPassword, Ok, 1, 1, "Jan Kowalski - Próba"},
        {"nss_old", kPassword, Ok, 1, 1, "Jan Kowalski - Próba"},
        {"3des", "", MacMismatch},
        {"keybag", "zażółć1", MacMismatch},
        {"empty", "x", MacMismatch},
        {"nomac", kPassword, Malformed},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.file);
        const auto pfx = fromFile<Pfx>("pfx_" + std::string(row.file) + ".p12");
        PfxContents contents;
        EXPECT_EQ(pfx.verifyPassword(PbePassword(row.password)), row.result);
        ASSERT_EQ(pfx.getContents(PbePassword(row.password), contents), row.result);
        ASSERT_EQ(contents.keys.size(), row.keys);
        ASSERT_EQ(contents.certificates.size(), row.certificates);
        if (row.keys == 0) continue;
        SignedCertificate certificate;
        EXPECT_TRUE(certificate.readExactly(contents.certificates[0].certificate));
        EXPECT_EQ(keyIdOf(contents.keys[0].key), certificate.computeKeyIdentifierSha1Hash());
        EXPECT_EQ(contents.keys[0].friendlyName, row.name);
        EXPECT_EQ(contents.keys[0].localKeyId, contents.certificates[0].localKeyId);
        EXPECT_FALSE(contents.keys[0].localKeyId.empty());
    }
}

/// The contents of a file in their order: "e" for encrypted data, else the name of the first bag's kind and the number
/// of bags.
std::string layoutOf(const Pfx& pfx) {
    ASNoctstr octets;
    AuthenticatedSafe safe;
    SafeContents bags;
    std::string text;
    EXPECT_TRUE(pfx.authSafe.getData(octets) && safe.readExactly(octets.value()));
    for (const ContentInfo& content : safe) {
        const bool plain = content.getData(octets) && bags.readExactly(octets.value());
        text += plain ? bags[0].bagId.name() + std::to_string(bags.size()) + " " : "e ";
    }
    return text;
}

/// The salts of all encryptions with 2048 iterations, in the order of the file.
std::vector<Bytes> saltsOf(const Bytes& octets) {
    std::vector<Bytes> salts;
    const Bytes before = {0x30, 0x0E, 4, 8}, after = {2, 2, 8, 0};
    for (auto at = octets.begin(); octets.end() - at >= 16; ++at) {
        if (std::equal(before.begin(), before.end(), at) && std::equal(after.begin(), after.end(), at + 12))
            salts.emplace_back(at + 4, at + 12);
    }
    return salts;
}

TEST(Pfx, WrittenFilesHaveTheirOrderSaltsAndMac) {
    const Pfx pfx = fullPfx();
    PfxContents contents;
    ASSERT_EQ(pfx.getContents(PbePassword(kPassword), contents), PfxResult::Ok);
    EXPECT_EQ(contents.keys.at(0).key.keyUsage(), kDigitalSignature | kNonRepudiation);
    EXPECT_EQ(contents.keys.at(1).key.encoded(), dataFile("key_ec.der"));
    EXPECT_EQ(contents.certificates.at(1).certificate, dataFile("crt_ec.der"));
    for (const auto& id : {contents.certificates.at(1).localKeyId, contents.keys[1].localKeyId})
        EXPECT_TRUE(std::ranges::equal(id, keyIdOf(contents.keys[1].key)));
    EXPECT_EQ(contents.secrets.size(), 2U);
    EXPECT_EQ(contents.secret(kConfigBag)->getLength(), 2);
    EXPECT_EQ(contents.secret(OID_PKCS7_DATA), nullptr);
    EXPECT_EQ(layoutOf(pfx), "e pkcs8ShroudedKeyBag1 pkcs8ShroudedKeyBag1 secretBag2 ");
    std::vector<Bytes> salts = saltsOf(pfx.encoded());
    salts.push_back(toBytes(pfx.macData->macSalt.value()));
    ASSERT_EQ(salts.size(), 6U);
    Bytes chain = kRandom;
    for (const Bytes& salt : salts) {
        chain = hashOf(KcHashAlgo::Sha1, chain);
        EXPECT_EQ(salt, Bytes(chain.begin(), chain.begin() + 8));
    }
    const Bytes mac = pfx.macData->encoded();
    EXPECT_EQ(Bytes(mac.end() - 3, mac.end()), (Bytes{2, 1, 1}));
    EXPECT_TRUE(pfx.verifyHMAC_SHA1(Pfx::convertToUTF16BE(kPassword)));
    EXPECT_FALSE(pfx.verifyHMAC_SHA1(Pfx::convertToUTF16BE("x")));
    EXPECT_FALSE(fromFile<Pfx>("pfx_certs.p12").verifyHMAC_SHA1(Pfx::convertToUTF16BE(kPassword))) << "SHA-512";
}

TEST(Pfx, WhatIsNotThereIsLeftOutAndAnEmptyPasswordHasTwoForms) {
    Pfx keyOnly, nothing;
    PfxContents contents;
    keyOnly.update(fromFile<PrivateKeyInfo>("key_ec.der"), Bytes(20, 1));
    ASSERT_EQ(seal(keyOnly, "x"), PfxResult::Ok);
    EXPECT_EQ(layoutOf(keyOnly), "pkcs8ShroudedKeyBag1 ");
    ASSERT_EQ(seal(nothing, "x"), PfxResult::Ok);
    EXPECT_EQ(nothing.verifyPassword(PbePassword("x")), PfxResult::Ok);
    EXPECT_EQ(seal(nothing, "\xff"), PfxResult::NoMemory) << "no UTF-8";
    for (const Bytes& form : {Bytes{}, Bytes{0, 0}}) {
        ASSERT_EQ(keyOnly.final(PbeAlgo::Sha1Rc2Cbc40, true, form, kRandom.data(), 20), PfxResult::Ok);
        EXPECT_EQ(keyOnly.getContents(PbePassword(""), contents), PfxResult::Ok);
    }
}

TEST(Pfx, UnknownCodesAreToldAndLongDerivationsStop) {
    auto pfx = fullPfx();
    PfxContents contents;
    for (const char* file : {"3des", "pbmac1"}) {
        Pfx slow;
        ASSERT_TRUE(slow.readExactly(dataFile("pfx_" + std::string(file) + ".p12")));
        slow.macData->iterations.setValue(9'999'999);
        if (auto& parameters = slow.macData->mac.digestAlgorithm.parameters; file[0] == 'p') {
            Pbes2Parameters pbmac1;
            Pbkdf2Parameters pbkdf2;
            ASSERT_TRUE(parameters->decode(pbmac1) && pbmac1.keyDerivationFunc.parameters->decode(pbkdf2));
            pbkdf2.iterationCount.setValue(9'999'999);
            pbmac1.keyDerivationFunc.parameters->build(pbkdf2);
            parameters->build(pbmac1);
        }
        int asked = 0;
        const PbePassword patience(kPassword, [&] { return ++asked < 3; });
        EXPECT_EQ(slow.getContents(patience, contents), PfxResult::Cancelled) << file;
        EXPECT_EQ(asked, 3);
    }
    Pfx slow;  // the keys of its contents, which two threads derive
    ASSERT_TRUE(slow.readExactly(dataFile("pfx_nomaciter_slow.p12")));
    int asked = 0;
    EXPECT_EQ(slow.verifyPassword(PbePassword(kPassword)), PfxResult::Ok);
    EXPECT_EQ(slow.getContents(PbePassword(kPassword, [&] { return ++asked < 3; }), contents), PfxResult::Cancelled);
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(contents.keys.empty() && contents.certificates.empty());
    pfx.macData->iterations.setValue(10'000'001);
    EXPECT_EQ(pfx.getContents(PbePassword(kPassword), contents), PfxResult::Unsupported);
    pfx.macData->mac.digestAlgorithm.algorithm = OID_RSA_ENC;
    EXPECT_EQ(pfx.verifyPassword(PbePassword(kPassword)), PfxResult::Unsupported);
}

TEST(Pfx, ContentsKeepTheirOrderHoweverManyThreadsReadThem) {
    constexpr uint8_t kKeys = 12;
    Pfx pfx;
    for (uint8_t i = 0; i < kKeys; ++i) pfx.update(fromFile<PrivateKeyInfo>("key_ec.der"), Bytes{i});
    pfx.update(fromFile<SignedCertificate>("crt_ec.der"), Bytes{1});
    ASSERT_EQ(seal(pfx, kPassword), PfxResult::Ok);
    for (const bool threads : {true, false}) {
        threadsMayStart = threads;
        PfxContents contents;
        ASSERT_EQ(pfx.getContents(PbePassword(kPassword), contents), PfxResult::Ok);
        ASSERT_EQ(contents.keys.size(), kKeys);
        EXPECT_EQ(contents.certificates.size(), 1u);
        for (uint8_t i = 0; i < kKeys; ++i) EXPECT_EQ(contents.keys[i].localKeyId, Bytes{i});
    }
    threadsMayStart = true;
}

/// The standard's own layout of a secret bag, and bags nested and unknown, all of which others may write.
TEST(Pfx, NestedUnknownAndPlainSecretBagsAreRead) {
    SecretBag secret;
    secret.secretTypeId = kSeedBag;
    secret.secretValue.value.build(ASNoctstr(Bytes{1, 2}));
    SafeContents bags;
    bags.add(SafeBag(OID_PKCS12_CRL_BAG, ASNnull()));
    bags.add(SafeBag(OID_PKCS12_SECRET_BAG, secret));
    bags.add(SafeBag(OID_PKCS12_KEY_BAG, fromFile<PrivateKeyInfo>("key_ec.der")));
    for (const int levels : {2, 22}) {
        SafeContents nested = bags;
        for (int i = 0; i < levels; ++i) {
            SafeContents outer;
            outer.add(SafeBag(OID_PKCS12_SAFE_CONTENTS_BAG, nested));
            nested = outer;
        }
        Pfx pfx;
        AuthenticatedSafe safe;
        safe.add().buildData(nested.encoded());
        pfx.authSafe.buildData(safe.encoded());
        pfx.macData.emplace().macSalt.build(kRandom);
        pfx.macData->mac = DigestInfo(KcHashAlgo::Sha1, pfx.computeHMAC_SHA1(Pfx::convertToUTF16BE("x")));
        PfxContents contents;
        const bool deep = levels > 10;
        EXPECT_EQ(pfx.getContents(PbePassword("x"), contents), deep ? PfxResult::Malformed : PfxResult::Ok);
        EXPECT_EQ(contents.keys.size(), deep ? 0U : 1U);
        EXPECT_EQ(contents.secret(kSeedBag) != nullptr, !deep);
    }
}

}  // namespace
}  // namespace crv::test
