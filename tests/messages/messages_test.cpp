// Messages that were changed, cut, fed in pieces, made for long contents, and judged at moments of the past.
#include <gtest/gtest.h>
#include <malloc.h>
#include <openssl/x509.h>

#include <ctime>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "crypto/private_key.h"
#include "messages/message_decryptor.h"
#include "messages/message_encryptor.h"
#include "messages/message_signer.h"
#include "messages/message_verifier.h"
#include "messages/message_writer.h"
#include "misc/exceptions.h"
#include "pki/revocation_manager.h"
#include "support/cert_maker.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace crv::test;

namespace {

const int64_t kNow = time(nullptr);
const Bytes kContent = toBytes(asBytes("Zażółć gęślą jaźń"));

SignerPtr keyOf(const MadeCert& made) {
    PKCS8_PRIV_KEY_INFO* info = EVP_PKEY2PKCS8(made.key.get());
    uint8_t* der = nullptr;
    const int length = i2d_PKCS8_PRIV_KEY_INFO(info, &der);
    auto key = std::make_shared<PrivateKey>(PrivateKey::fromPkcs8({der, static_cast<size_t>(length)}));
    OPENSSL_free(der);
    PKCS8_PRIV_KEY_INFO_free(info);
    return key;
}

ContentSink into(Bytes& out) {
    return [&out](ByteView piece) { return out.insert(out.end(), piece.begin(), piece.end()), true; };
}

class MessagesTest : public testing::Test {
  protected:
    MessagesTest() {
        DbConfig config;
        config.setType("w pamieci");
        config.dbName = dir.path().string();
        database.init(config);
        certificates.init(database, cache, [this] { return trust; });
        revocation.init(certificates);
        trust.push_back(crv::makeCert(ByteView(root.der)));
    }

    SignParams signParams() {
        return {.signers = {{keyOf(leaf), crv::makeCert(ByteView(leaf.der)), KeyScheme::Ecdsa, KcHashAlgo::Sha256}},
                .time = kNow - kDay / 2};
    }
    Bytes signedMessage(SignParams params, ByteView content = kContent) {
        Bytes message;
        MessageSigner signer(std::move(params), random, into(message));
        signer.update(content);
        static_cast<void>(signer.finish());
        return message;
    }
    Bytes sealedMessage(const KnownOid& cipher) {
        Bytes message;
        EncryptParams params{{crv::makeCert(ByteView(leaf.der))}, ASNobjectId(cipher)};
        params.anyUsage = true;
        MessageEncryptor encryptor(params, random, into(message));
        encryptor.update(kContent);
        encryptor.finish();
        return message;
    }
    MessageVerdict verify(ByteView message, Bytes* content = nullptr, VerifyParams params = {},
                          size_t step = SIZE_MAX) {
        params.now = kNow;
        if (content) params.content = into(*content);
        MessageVerifier verifier(params, certificates, revocation);
        for (; !message.empty(); message = message.subspan(std::min(step, message.size())))
            verifier.update(message.first(std::min(step, message.size())));
        return verifier.finish();
    }
    Bytes decrypt(ByteView message, size_t step = SIZE_MAX) {
        Bytes plain;
        MessageDecryptor decryptor({{keyOf(leaf), {crv::makeCert(ByteView(leaf.der))}}}, into(plain));
        for (; !message.empty(); message = message.subspan(std::min(step, message.size())))
            decryptor.update(message.first(std::min(step, message.size())));
        static_cast<void>(decryptor.finish());
        return plain;
    }

    const TempDir dir;
    DbManager database;
    CertificateCache cache;
    CertificateManager certificates;
    RevocationManager revocation;
    RandomBridge random{[](std::span<uint8_t> out) { return systemRandom(out); }};
    CertList trust;
    const MadeCert root =
        test::makeCert({.subject = {{"CN", "Korzeń"}}, .notBefore = -9 * kDay, .extensions = caExtensions()});
    const MadeCert leaf =
        test::makeCert({.subject = {{"CN", "Jan"}},
                        .serial = "17",
                        .notBefore = -9 * kDay,
                        .extensions = {{"keyUsage", "digitalSignature"}, {"subjectKeyIdentifier", "hash"}}},
                       &root);
};

/// Does the work with every octet of the message changed in two ways, and with the message cut before it.
void eachDamage(const Bytes& message, const std::function<void(ByteView)>& work) {
    for (size_t i = 0; i < message.size(); ++i) {
        for (const int mask : {0x01, 0x80, 0xFF}) {
            Bytes damaged = message;
            damaged[i] = static_cast<uint8_t>(damaged[i] ^ mask);
            try {
                work(damaged);
            } catch (const CrvApiException&) {
            }
        }
        EXPECT_THROW(work(ByteView(message).first(i)), CrvApiException) << i;
    }
}

TEST_F(MessagesTest, NoOctetOfASignedMessageCanBeChangedToMeanAnotherContentOrSigner) {
    for (const bool time : {true, false}) {
        SignParams params = signParams();
        if (!time) params.time.reset();
        const Bytes message = signedMessage(params);
        Bytes content;
        ASSERT_TRUE(verify(message, &content, {}, 1).good());
        ASSERT_EQ(content, kContent);
        size_t good = 0;
        eachDamage(message, [&](ByteView damaged) {
            Bytes out;
            const MessageVerdict verdict = verify(damaged, &out);
            if (!verdict.good()) return;
            ++good;
            EXPECT_EQ(out, kContent);
            ASSERT_EQ(verdict.signers.size(), 1U);
            EXPECT_EQ(toBytes(encodingOf(*verdict.signers[0].certificate)), leaf.der);
            EXPECT_EQ(verdict.signers[0].claimedTime, params.time);
        });
        EXPECT_LT(good, 20U);  // version numbers, parameters that nobody signs
    }
}

TEST_F(MessagesTest, NoOctetOfASealedMessageCanBeChangedToMeanAnotherContent) {
    for (const KnownOid* cipher : {&OID_AES256_GCM, &OID_AES256_CBC}) {
        const Bytes message = sealedMessage(*cipher);
        ASSERT_EQ(decrypt(message, 1), kContent);
        eachDamage(message, [&](ByteView damaged) {
            const Bytes plain = decrypt(damaged);
            EXPECT_TRUE(cipher == &OID_AES256_CBC || plain == kContent);
        });
    }
}

TEST_F(MessagesTest, LongContentsTakeConstantMemory) {
    constexpr size_t kPieces = 64;
    const Bytes piece(size_t{1} << 20, 0x5A);
    EncryptParams params{{crv::makeCert(ByteView(leaf.der))}, ASNobjectId(OID_AES256_GCM)};
    params.anyUsage = true;
    size_t length = 0;
    const auto held = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const size_t before = held();
    size_t most = before;
    VerifyParams how{.content = [&](ByteView out) { return length += out.size(), true; }, .now = kNow};
    MessageVerifier verifier(how, certificates, revocation);
    MessageDecryptor decryptor({{keyOf(leaf), {crv::makeCert(ByteView(leaf.der))}}},
                               [&](ByteView out) { return verifier.update(out), true; });
    MessageEncryptor encryptor(params, random, [&](ByteView out) { return decryptor.update(out), true; });
    SignParams two = signParams();
    two.signers.push_back(two.signers[0]);
    two.signers[1].hash = KcHashAlgo::Sha512;
    MessageSigner signer(two, random, [&](ByteView out) { return encryptor.update(out), true; });
    for (size_t i = 0; i < kPieces; ++i) {
        signer.update(piece);
        most = std::max(most, held());
    }
    EXPECT_EQ(signer.finish().contentLength, static_cast<int64_t>(kPieces * piece.size()));
    encryptor.finish();
    EXPECT_TRUE(decryptor.finish().authenticated);
    const MessageVerdict verdict = verifier.finish();
    EXPECT_TRUE(verdict.good() && verdict.signers.size() == 2);
    EXPECT_EQ(length, kPieces * piece.size());
    EXPECT_LT(most - before, size_t{16} << 20);
}

TEST_F(MessagesTest, SignaturesOfThePastAreJudgedByWhatIsKnownToday) {
    const MadeCert old = test::makeCert(
        {.subject = {{"CN", "Jan"}}, .serial = "18", .notBefore = -9 * kDay, .notAfter = -kDay}, &root, leaf.key);
    const time_t dayBefore = kNow - kDay;
    char yesterday[16];
    strftime(yesterday, sizeof yesterday, "%Y-%m-%d", gmtime(&dayBefore));
    const auto revokedAt = [&](int64_t when) {
        CrlPlan plan;
        plan.entries.push_back({"17", 1, when});
        return makeCrl(plan, root);
    };
    struct Case {
        const char* name;
        Bytes crl;
        RevocationCheck check = RevocationCheck::IfKnown;
        int code = 0;
        bool since = false;
        VerifyMoment moment = VerifyMoment::Signing;
        bool expired = false, weakened = false;
    };
    const Bytes good = makeCrl({}, root);
    const Bytes outOfDate = makeCrl({.thisUpdate = -3 * kDay, .nextUpdate = -kDay}, root);
    const auto required = RevocationCheck::Required, known = RevocationCheck::IfKnown;
    const Case cases[] = {
        {"nobody knows", {}},
        {"somebody must know", {}, RevocationCheck::Required, ECRV_CRL_NOT_FOUND},
        {"a list inside says good", good, required},
        {"a list inside said good", outOfDate, required, ECRV_CRL_EXPIRED},
        {"revoked before it was signed", revokedAt(-3 * kDay), known, ECRV_CRTREV},
        {"revoked since, and only the signer's word for it", revokedAt(-60), RevocationCheck::IfKnown, ECRV_CRTREV,
         true},
        {"nobody asks", revokedAt(-60), RevocationCheck::None},
        {"as of now", revokedAt(-60), RevocationCheck::IfKnown, ECRV_CRTREV, false, VerifyMoment::Now},
        {"expired since", good, known, 0, false, VerifyMoment::Signing, true},
        {"expired since, and somebody must know", good, required, ECRV_CRTAFTER, false, VerifyMoment::Signing, true},
        {"weak by now", {}, known, ECRV_DIGALG, false, VerifyMoment::Signing, false, true},
        {"strong at a moment that is no claim", {}, known, 0, false, VerifyMoment::Given, false, true},
    };
    for (const Case& one : cases) {
        SignParams params = signParams();
        params.time = kNow - 2 * kDay;
        if (one.expired) params.signers[0].certificate = crv::makeCert(ByteView(old.der));
        certificates.setAlgorithmPolicy(
            [&] { return one.weakened ? std::optional(std::string("sha256 ") + yesterday) : std::nullopt; });
        if (!one.crl.empty()) params.proofs.crls.push_back(one.crl);
        VerifyParams how{.moment = one.moment, .time = kNow - 2 * kDay};
        how.path.revocation = one.check;
        const MessageVerdict verdict = verify(signedMessage(params), nullptr, how);
        EXPECT_EQ(verdict.code(), one.code) << one.name << ": " << verdict.signers[0].path.reason;
        EXPECT_EQ(verdict.signers[0].revokedSince, one.since) << one.name;
        EXPECT_EQ(verdict.signers[0].expiredSince, one.expired) << one.name;
    }
}

TEST_F(MessagesTest, ASignerNamedByItsKeyIsLookedForInTheDatabase) {
    SignedData data;
    ContentInfo info;
    ASSERT_TRUE(info.readExactly(signedMessage(signParams())) && info.get(OID_PKCS7_SIGNED_DATA, data));
    const CertPtr certificate = crv::makeCert(ByteView(leaf.der));
    data.certificates.reset();
    auto byKey = std::make_unique<Implicit<0, ASNoctstr>>();
    byKey->build(ByteView(certificate->getKeyIdFromCert()));
    data.signerInfos[0].sid.setChosen(std::move(byKey));
    info.build(OID_PKCS7_SIGNED_DATA, data);
    EXPECT_EQ(verify(info.encoded()).code(), ECRV_NO_SENDR_CRT);
    ASSERT_TRUE(CrtDb(database).insert(*certificate));
    EXPECT_EQ(verify(info.encoded()).code(), 0);
    Attribute& many = data.signerInfos[0].unsignedAttrs.emplace().add();
    many.type = ASNobjectId(OID_PKCS9_SIGNING_TIME);
    for (int i = 0; i <= 10'000; ++i) many.values.add().build(0x05, ByteView());
    info.build(OID_PKCS7_SIGNED_DATA, data);
    EXPECT_THROW(verify(info.encoded()), CrvApiException);
}

/// A key whose token does nothing for it.
struct LockedKey final : Signer {
    explicit LockedKey(PublicKey of) : key(std::move(of)) {}
    [[nodiscard]] const PublicKey& publicKey() const noexcept override { return key; }
    Bytes sign(KeyScheme, KcHashAlgo, ByteView, RandomBridge&, const PssParams&) const override { return {}; }
    SecretBytes decrypt(RsaPadding, ByteView, const OaepParams&) const override { return {}; }
    PublicKey key;
};

TEST_F(MessagesTest, AKeyThatMustNotDecryptLetsTheNextOneTry) {
    const CertList named{crv::makeCert(ByteView(leaf.der))};
    const auto locked = std::make_shared<LockedKey>(named[0]->keyInfo().publicKey());
    const Bytes message = sealedMessage(OID_AES256_GCM);
    for (const bool alone : {false, true}) {
        std::vector<DecryptionKey> keys{{locked, named}};
        if (!alone) keys.push_back({keyOf(leaf), named});
        Bytes plain;
        MessageDecryptor decryptor(keys, into(plain));
        try {
            decryptor.update(message);
            static_cast<void>(decryptor.finish());
            EXPECT_TRUE(!alone && plain == kContent);
        } catch (const CrvApiException& failure) {
            EXPECT_TRUE(alone && failure.code() == ECRV_UNSUPPORTED_KEY_ALGO) << failure.what();
        }
    }
}

/// Attributes of a signature that are given out as a content which was signed without attributes.
TEST_F(MessagesTest, AttributesAreNoContent) {
    SignedData data;
    ContentInfo info;
    ASSERT_TRUE(info.readExactly(signedMessage(signParams())) && info.get(OID_PKCS7_SIGNED_DATA, data));
    SignerInfo& signer = data.signerInfos[0];
    Attributes attributes;
    for (const Attribute& one : *signer.signedAttrs) ASSERT_GT(attributes.add().copyObject(one), 0);
    data.encapContentInfo.buildData(attributes.encoded());
    signer.signedAttrs.reset();
    info.build(OID_PKCS7_SIGNED_DATA, data);
    const MessageVerdict verdict = verify(info.encoded());
    EXPECT_EQ(verdict.code(), ECRV_MSGSIGN_STR) << verdict.signers[0].fault;
}

TEST_F(MessagesTest, AnotherCertificateOfTheSameKeyDidNotSign) {
    const MadeCert other = test::makeCert({.subject = {{"CN", "Jan"}},
                                           .serial = "17",
                                           .notAfter = 300 * kDay,
                                           .extensions = {{"keyUsage", "digitalSignature"}}},
                                          &root, leaf.key);
    Bytes message = signedMessage(signParams());
    SignedData data;
    ContentInfo info;
    ASSERT_TRUE(info.readExactly(message) && info.get(OID_PKCS7_SIGNED_DATA, data));
    data.certificates.reset();
    data.addCertificate(*crv::makeCert(ByteView(other.der)));
    info.build(OID_PKCS7_SIGNED_DATA, data);
    EXPECT_EQ(verify(info.encoded()).code(), ECRV_MSGSIGN);
}

}  // namespace
