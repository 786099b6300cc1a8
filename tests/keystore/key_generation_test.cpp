// Keys that the user generates, and the requests for their certificates as openssl sees them.
#include "asn/x509/sign_algo.h"
#include "key_store_session.h"
#include "keystore/crt_request.h"
#include "misc/exceptions.h"

namespace crv::test {
namespace {

StdECId curveNamed(const std::string& name) {
    for (const EcCurve& curve : ecCurves())
        if (curve.name == name) return curve.id;
    return StdECId::None;
}

using enum KeyScheme;
using Hash = KcHashAlgo;
constexpr auto kPem = RequestFormat::Pem;
constexpr auto kDer = RequestFormat::Der;

struct GenerationCase {
    const char* name;
    KeyScheme scheme;
    unsigned bits;      // RSA, DSA
    const char* curve;  // ECDSA
    bool explicitDomain;
    CrtRequestParams request;
    const char* signature;  // as openssl prints it
    KeyType use = KeyType::Signing;
};

const GenerationCase kCases[] = {
    {"rsa encryption", Rsa, 3072, "", false, {kDer, nullptr, Rsa, Hash::Sha3512}, "RSA-SHA3-512", KeyType::Encryption},
    {"rsa both", Rsa, 2048, "", false, {kDer, nullptr, Rsa, Hash::Sha1}, "sha1WithRSA", KeyType::Both},
    {"pss forced", RsaPss, 2048, "", false, {kPem, nullptr, RsaPss, Hash::Sha512, Hash::Sha512}, "rsassaPss"},
    {"pss by PKCS#1", RsaPss, 2048, "", false, {kPem, nullptr, Rsa, Hash::Sha1}, "sha1WithRSA"},
    {"dsa", Dsa, 1024, "", false, {kDer, nullptr, Dsa, Hash::Sha1}, "dsaWithSHA1"},
    {"p256", Ecdsa, 0, "prime256v1", false, {kPem, nullptr, Ecdsa, Hash::Sha256}, "ecdsa-with-SHA256"},
    {"p521 explicit", Ecdsa, 0, "secp521r1", true, {kDer, nullptr, Ecdsa, Hash::Sha512}, "ecdsa-with-SHA512"},
    {"binary field", Ecdsa, 0, "sect283r1", false, {kPem, nullptr, Ecdsa, Hash::Sha256}, "ecdsa-with-SHA256"},
    {"brainpool", Ecdsa, 0, "brainpoolP256r1", true, {kPem, nullptr, Ecdsa, Hash::Sha384}, "ecdsa-with-SHA384"},
};

KeyManagerResult generate(KeyManager& keys, const GenerationCase& one) {
    if (one.scheme == Dsa) return keys.generateDsaUserKey(one.bits);
    if (one.scheme == Ecdsa) return keys.generateECDsaUserKey(one.use, curveNamed(one.curve), one.explicitDomain);
    return keys.generateRsaUserKey(one.use, 65537, one.bits, one.scheme, {{}, {}, one.request.forcedPss});
}

struct KeyGenerationTest : KeyStoreTest {};

TEST_F(KeyGenerationTest, OpensslAcceptsEveryRequestAndTheKeyIsInTheReopenedFile) {
    const auto openssl = [&](const std::string& command) {
        return shell("cd " + dir.path().string() + " && openssl " + command);
    };
    for (const GenerationCase& one : kCases) {
        SCOPED_TRACE(one.name);
        std::filesystem::remove(path);
        create();
        ASSERT_EQ(generate(keys, one), kKmOk);
        if (one.request.forcedPss != KcHashAlgo::None) {
            const auto configured = readSignAlgorithm(*session.record().getSignatureAlgorithmIdentifier());
            EXPECT_EQ(configured->hash, one.request.forcedPss) << "later signatures keep to it";
        }
        Bytes request;
        ASSERT_EQ(prepareCrtRequest(keys, one.use, one.request, request), kKmOk);
        writeFile(dir.file("request"), std::string(asText(request)));
        const std::string from =
            std::string(one.request.format == kPem ? "-inform PEM" : "-inform DER") + " -in request";
        const std::string text = openssl("req -verify -noout -text " + from);
        for (const char* said : {"self-signature verify OK", one.signature, "Key Usage: critical"})
            EXPECT_NE(text.find(said), std::string::npos) << text;
        const bool pssKey = one.request.forcedPss != KcHashAlgo::None;
        EXPECT_EQ(text.find("Public Key Algorithm: rsassaPss") != std::string::npos, pssKey);

        Session reopened(path);
        ASSERT_EQ(reopened.login(), kKmOk);
        ASSERT_TRUE(reopened.keys.hasKey(one.use));
        CrtRequestParams later = one.request;
        later.forcedPss = KcHashAlgo::None;
        later.format = RequestFormat::Pem;
        ASSERT_EQ(prepareCrtRequest(reopened.keys, one.use, later, request), kKmOk);
        writeFile(dir.file("later"), std::string(asText(request)));
        EXPECT_EQ(openssl("req -noout -text -in later").find("Public Key Algorithm: rsassaPss") != std::string::npos,
                  pssKey)
            << "a request made anew keeps the tie";
        const bool encrypts = one.use == KeyType::Encryption;
        const Signer& key = encrypts ? *reopened.keys.encryptionKey() : *reopened.keys.signingKey();
        writeFile(dir.file("spki"), std::string(asText(key.publicKey().toSpki())));
        EXPECT_TRUE(pssKey || openssl("req -noout -pubkey " + from) == openssl("pkey -pubin -in spki -pubout"));
        EXPECT_EQ(reopened.keys.signingKeyType(), encrypts ? KeyScheme::None : one.scheme);
    }
}

TEST_F(KeyGenerationTest, AStopOrAFailedSaveLeavesNothingBehind) {
    create();
    const std::string before = readFile(path);
    int polls = 0;
    const KeyGenHooks stop{[&] { return ++polls < 3; }, {}};
    const KeyGenHooks noLock{{}, [] { return kKmLockFailed; }};
    EXPECT_EQ(keys.generateRsaUserKey(KeyType::Both, 65537, 4096, Rsa, stop), kKmCancelled);
    EXPECT_EQ(keys.generateRsaUserKey(KeyType::Both, 65537, 1024, Rsa), kKmKeyTooShort);
    EXPECT_EQ(keys.generateECDsaUserKey(KeyType::Signing, kDefaultCurve, false, noLock), kKmLockFailed);
    session.setPin(kOtherPassword);
    EXPECT_EQ(keys.generateRsaUserKey(KeyType::Signing, 65537, 2048, RsaPss), kKmWrongPassword);
    EXPECT_FALSE(keys.hasAnyKey());
    EXPECT_FALSE(session.record().getSignatureAlgorithmIdentifier());
    EXPECT_EQ(readFile(path), before);
    ASSERT_EQ(keys.unsavedKey(), KeyType::Signing) << "it is kept aside";
    EXPECT_EQ(keys.saveUnsavedKey(), kKmWrongPassword);
    session.setPin(kPassword);
    ASSERT_EQ(keys.saveUnsavedKey(), kKmOk);
    EXPECT_EQ(keys.signingKeyType(), RsaPss);
    ASSERT_EQ(session.login(), kKmOk);
    EXPECT_TRUE(keys.hasKey(KeyType::Signing) && !keys.unsavedKey());
    std::filesystem::remove(path);
    create();
    Bytes request;
    EXPECT_EQ(prepareCrtRequest(keys, KeyType::Signing, {}, request), kKmKeyNotFound);
    ASSERT_EQ(keys.generateECDsaUserKey(KeyType::Signing, kDefaultCurve, false), kKmOk);
    EXPECT_EQ(prepareCrtRequest(keys, KeyType::Signing, {}, request), kKmHashNotSupported) << "RSA for an EC key";
    const CrtRequestParams contradiction{kPem, nullptr, Rsa, Hash::Sha1, Hash::Sha256};
    EXPECT_EQ(prepareCrtRequest(keys, KeyType::Signing, contradiction, request), kKmHashNotSupported);
    EXPECT_THROW((void)keys.generateDsaUserKey(1024), VtestException) << "the role is taken";
}

}  // namespace
}  // namespace crv::test
