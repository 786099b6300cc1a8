// Keys that the user generates, and the requests for their certificates as openssl sees them.
#include <gtest/gtest.h>

#include "asn/x509/distinguished_name.h"
#include "key_store_session.h"
#include "misc/exceptions.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

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

StdECId curveNamed(const std::string& name) {
    for (const EcCurve& curve : ecCurves())
        if (curve.name == name) return curve.id;
    return StdECId::none;
}

CrtRequestParams params(RequestFormat format, KeyScheme scheme, KcHashAlgo hash, KcHashAlgo forced = KcHashAlgo::none) {
    return {format, nullptr, scheme, hash, forced};
}

constexpr auto kPem = RequestFormat::pem;
constexpr auto kDer = RequestFormat::der;

const GenerationCase kCases[] = {
    {"rsa2048", KeyScheme::rsa, 2048, "", false, params(kPem, KeyScheme::rsa, KcHashAlgo::sha256), "sha256WithRSA"},
    {"rsa3072 encryption", KeyScheme::rsa, 3072, "", false, params(kDer, KeyScheme::rsa, KcHashAlgo::sha3_512),
     "RSA-SHA3-512", KeyType::Encryption},
    {"rsa2048 both", KeyScheme::rsa, 2048, "", false, params(kDer, KeyScheme::rsa, KcHashAlgo::sha1), "sha1WithRSA",
     KeyType::Both},
    {"pss", KeyScheme::rsaPss, 2048, "", false, params(kPem, KeyScheme::rsaPss, KcHashAlgo::sha512), "rsassaPss"},
    {"pss forced", KeyScheme::rsaPss, 2048, "", false,
     params(kPem, KeyScheme::rsaPss, KcHashAlgo::sha256, KcHashAlgo::sha256), "rsassaPss"},
    {"pss, request by PKCS#1", KeyScheme::rsaPss, 2048, "", false, params(kPem, KeyScheme::rsa, KcHashAlgo::sha1),
     "sha1WithRSA"},
    {"dsa", KeyScheme::dsa, 1024, "", false, params(kDer, KeyScheme::dsa, KcHashAlgo::sha1), "dsaWithSHA1"},
    {"p256", KeyScheme::ecdsa, 0, "prime256v1", false, params(kPem, KeyScheme::ecdsa, KcHashAlgo::sha256),
     "ecdsa-with-SHA256"},
    {"p384 explicit", KeyScheme::ecdsa, 0, "secp384r1", true, params(kDer, KeyScheme::ecdsa, KcHashAlgo::sha384),
     "ecdsa-with-SHA384"},
    {"p521", KeyScheme::ecdsa, 0, "secp521r1", false, params(kPem, KeyScheme::ecdsa, KcHashAlgo::sha512),
     "ecdsa-with-SHA512"},
    {"binary field", KeyScheme::ecdsa, 0, "sect283r1", false, params(kPem, KeyScheme::ecdsa, KcHashAlgo::sha256),
     "ecdsa-with-SHA256"},
    {"brainpool", KeyScheme::ecdsa, 0, "brainpoolP256r1", true, params(kPem, KeyScheme::ecdsa, KcHashAlgo::sha384),
     "ecdsa-with-SHA384"},
};

KeyManagerResult generate(KeyManager& keys, const GenerationCase& one, const KeyGenHooks& hooks = {}) {
    if (one.scheme == KeyScheme::dsa) return keys.generateDsaUserKey(one.bits, hooks);
    if (one.scheme == KeyScheme::ecdsa)
        return keys.generateECDsaUserKey(one.use, curveNamed(one.curve), one.explicitDomain, hooks);
    return keys.generateRsaUserKey(one.use, 65537, one.bits, one.scheme, hooks);
}

TEST(KeyGeneration, OpensslAcceptsEveryRequestAndTheKeyIsInTheReopenedFile) {
    for (const GenerationCase& one : kCases) {
        SCOPED_TRACE(one.name);
        TempDir dir;
        Session session(dir.file("keys.p12"));
        ASSERT_EQ(session.create(), kKmOk);
        ASSERT_EQ(generate(session.keys, one), kKmOk);
        Bytes request;
        ASSERT_EQ(session.keys.prepareCrtRequest(one.use, one.request, request), kKmOk);
        writeFile(dir.file("request"), std::string(asText(request)));
        const std::string form = one.request.format == kPem ? "PEM" : "DER";
        const std::string text = shell("cd " + dir.path().string() + " && openssl req -verify -noout -text -inform " +
                                       form + " -in request");
        EXPECT_NE(text.find("self-signature verify OK"), std::string::npos) << text;
        EXPECT_NE(text.find(one.signature), std::string::npos) << text;
        EXPECT_NE(text.find("Key Usage: critical"), std::string::npos) << text;
        EXPECT_EQ(text.find("Public Key Algorithm: rsassaPss") != std::string::npos,
                  one.request.forcedPss != KcHashAlgo::none);

        Session reopened(dir.file("keys.p12"));
        ASSERT_EQ(reopened.login(), kKmOk);
        ASSERT_TRUE(reopened.keys.hasKey(one.use));
        const bool encrypts = one.use == KeyType::Encryption;
        const PrivateKey& key = encrypts ? *reopened.keys.encryptionKey() : *reopened.keys.signingKey();
        writeFile(dir.file("spki"), std::string(asText(key.publicKey().toSpki())));
        if (one.request.forcedPss == KcHashAlgo::none) {
            const std::string inRequest =
                shell("cd " + dir.path().string() + " && openssl req -noout -pubkey -inform " + form +
                      " -in request | openssl pkey -pubin -outform DER | sha256sum");
            EXPECT_EQ(inRequest, shell("sha256sum < " + dir.file("spki")));
        }
        EXPECT_EQ(reopened.keys.signingKeyType(), encrypts ? KeyScheme::none : one.scheme);
    }
}

TEST(KeyGeneration, AStopOrAFailedSaveLeavesNothingBehind) {
    TempDir dir;
    Session session(dir.file("keys.p12"));
    ASSERT_EQ(session.create(), kKmOk);
    const std::string before = readFile(session.path);
    int polls = 0;
    const KeyGenHooks stop{[&] { return ++polls < 3; }, {}};
    const KeyGenHooks noLock{{}, [] { return false; }};
    EXPECT_EQ(session.keys.generateRsaUserKey(KeyType::Both, 65537, 4096, KeyScheme::rsa, stop), kKmCancelled);
    EXPECT_EQ(session.keys.generateRsaUserKey(KeyType::Both, 65537, 1024, KeyScheme::rsa), kKmKeyTooShort);
    EXPECT_EQ(session.keys.generateECDsaUserKey(KeyType::Signing, kDefaultCurve, false, noLock), kKmCancelled);
    session.setPassword("Inne-Hasło1");
    EXPECT_EQ(session.keys.generateRsaUserKey(KeyType::Signing, 65537, 2048, KeyScheme::rsaPss), kKmWrongPassword);
    EXPECT_FALSE(session.keys.hasAnyKey());
    EXPECT_FALSE(session.record().getSignatureAlgorithmIdentifier());
    EXPECT_EQ(readFile(session.path), before);
    Bytes request;
    EXPECT_EQ(session.keys.prepareCrtRequest(KeyType::Signing, {}, request), kKmKeyNotFound);
    session.setPassword(kPassword);
    ASSERT_EQ(session.keys.generateECDsaUserKey(KeyType::Signing, kDefaultCurve, false), kKmOk);
    EXPECT_EQ(session.keys.prepareCrtRequest(KeyType::Signing, {}, request), kKmHashNotSupported)
        << "RSA for an EC key";
    EXPECT_THROW((void)session.keys.generateDsaUserKey(1024), VtestException) << "the role is taken";
}

}  // namespace
}  // namespace crv::test
