#include <gtest/gtest.h>

#include <algorithm>

#include "crypto/crypto_error.h"
#include "crypto/hex.h"
#include "crypto/private_key.h"
#include "crypto/sign_algo_map.h"
#include "crypto/test_random.h"

namespace crv {
namespace {

CryptoFailure failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CryptoError& e) {
        return e.failure();
    }
    ADD_FAILURE() << "no failure";
    return CryptoFailure::internal;
}

PrivateKey makeKey(KeyScheme scheme, RandomBridge& random) {
    if (scheme == KeyScheme::dsa) return PrivateKey::generateDsa(1024, random);
    if (scheme == KeyScheme::ecdsa) return PrivateKey::generateEc(kDefaultCurve, false, random);
    return PrivateKey::generateRsa(1536, 65537, random);
}

const PrivateKey& sharedKey(KeyScheme scheme) {
    static SeededRandom random;
    static const PrivateKey rsa = makeKey(KeyScheme::rsa, random.bridge);
    static const PrivateKey dsa = makeKey(KeyScheme::dsa, random.bridge);
    static const PrivateKey ec = makeKey(KeyScheme::ecdsa, random.bridge);
    return scheme == KeyScheme::dsa ? dsa : scheme == KeyScheme::ecdsa ? ec : rsa;
}

constexpr KeyScheme kSchemes[] = {KeyScheme::rsa, KeyScheme::dsa, KeyScheme::ecdsa};

TEST(Keys, EveryRowOfTheTableSignsAndVerifies) {
    SeededRandom random;
    for (const SignAlgo& row : signAlgoMap()) {
        if (!isHashSupported(row.scheme, row.hash)) continue;
        const PrivateKey& key = sharedKey(row.scheme);
        Bytes digest = hashOf(row.hash, asBytes("message"));
        Bytes signature = key.sign(row.scheme, row.hash, digest, random.bridge);
        EXPECT_TRUE(key.publicKey().verify(row.scheme, row.hash, digest, signature)) << row.name;
        digest[3] ^= 1;
        EXPECT_FALSE(key.publicKey().verify(row.scheme, row.hash, digest, signature)) << row.name;
        digest[3] ^= 1;
        signature.back() ^= 1;
        EXPECT_FALSE(key.publicKey().verify(row.scheme, row.hash, digest, signature)) << row.name;
        signature.pop_back();
        EXPECT_FALSE(key.publicKey().verify(row.scheme, row.hash, digest, signature)) << row.name;
    }
}

TEST(Keys, ExportAndImportGiveTheSameKey) {
    for (const KeyScheme scheme : kSchemes) {
        const PrivateKey& key = sharedKey(scheme);
        const PrivateKey again = PrivateKey::fromPkcs8(key.toPkcs8());
        EXPECT_EQ(again.toPkcs8(), key.toPkcs8());
        EXPECT_EQ(PublicKey::fromSpki(key.publicKey().toSpki()), again.publicKey());
        EXPECT_EQ(again.keyId(), key.keyId());
        EXPECT_EQ(toBytes(ByteView(again.keyId())), hashOf(KcHashAlgo::sha1, key.publicKey().keyBits()));
        EXPECT_EQ(again.scheme(), scheme);
        for (const KeyScheme other : kSchemes) {
            EXPECT_EQ(sharedKey(other).publicKey() == key.publicKey(), other == scheme);
        }
    }
}

TEST(Keys, SameSeedSameKeyAndNothingElseDrawsFromIt) {
    for (const KeyScheme scheme : kSchemes) {
        SeededRandom first("seed number one .");
        SeededRandom second("seed number one .");
        SeededRandom third("seed number two .");
        const PrivateKey key = makeKey(scheme, first.bridge);
        const size_t drawn = first.drawn;
        EXPECT_GT(drawn, 0u);
        // Everything between the two generations must leave the source alone: import, checks, verification, encryption.
        const PrivateKey copy = PrivateKey::fromPkcs8(key.toPkcs8());
        const Bytes digest = hashOf(KcHashAlgo::sha1, {});
        const Bytes signature = key.sign(scheme, KcHashAlgo::sha1, digest, third.bridge);
        EXPECT_TRUE(copy.publicKey().verify(scheme, KcHashAlgo::sha1, digest, signature));
        if (scheme == KeyScheme::rsa) {
            const Bytes sealed = copy.publicKey().encrypt(RsaPadding::oaep, digest);
            EXPECT_EQ(toBytes(copy.decrypt(RsaPadding::oaep, sealed)), digest);
        }
        EXPECT_EQ(first.drawn, drawn);
        EXPECT_EQ(makeKey(scheme, second.bridge).toPkcs8(), key.toPkcs8());
        EXPECT_EQ(second.drawn, drawn);
        EXPECT_NE(makeKey(scheme, third.bridge).toPkcs8(), key.toPkcs8());
    }
}

TEST(Keys, NoncesAndSaltsComeFromTheSource) {
    const std::pair<KeyScheme, bool> cases[] = {
        {KeyScheme::rsa, false}, {KeyScheme::rsaPss, true}, {KeyScheme::dsa, true}, {KeyScheme::ecdsa, true}};
    for (const auto& [scheme, randomised] : cases) {
        const Bytes digest = hashOf(KcHashAlgo::sha1, {});
        const auto signedWith = [&, s = scheme](const char* seed) {
            SeededRandom random(seed);
            return sharedKey(s).sign(s, KcHashAlgo::sha1, digest, random.bridge);
        };
        EXPECT_EQ(signedWith("seed number one ."), signedWith("seed number one ."));
        EXPECT_EQ(signedWith("seed number one .") != signedWith("seed number two ."), randomised);
    }
}

TEST(Keys, FailingSourceOrStopEndsTheOperation) {
    RandomBridge dry([](std::span<uint8_t>) { return false; });
    RandomBridge angry([](std::span<uint8_t>) -> bool { throw std::domain_error("card pulled out"); });
    const Bytes digest = hashOf(KcHashAlgo::sha1, {});
    for (const KeyScheme scheme : kSchemes) {
        EXPECT_EQ(failureOf([&] { makeKey(scheme, dry); }), CryptoFailure::noRandom);
        EXPECT_THROW(makeKey(scheme, angry), std::domain_error);
        const KeyScheme signing = scheme == KeyScheme::rsa ? KeyScheme::rsaPss : scheme;
        const auto sign = [&](RandomBridge& random) {
            (void)sharedKey(scheme).sign(signing, KcHashAlgo::sha1, digest, random);
        };
        EXPECT_EQ(failureOf([&] { sign(dry); }), CryptoFailure::noRandom);
        EXPECT_THROW(sign(angry), std::domain_error);
    }
    SeededRandom random;
    int calls = 0;
    const KeyGenProgress thirdTime = [&] { return ++calls < 3; };
    EXPECT_EQ(failureOf([&] { (void)PrivateKey::generateRsa(2048, 65537, random.bridge, thirdTime); }),
              CryptoFailure::cancelled);
    EXPECT_EQ(calls, 3);
    const KeyGenProgress throwing = []() -> bool { throw std::domain_error("hang-up"); };
    EXPECT_THROW((void)PrivateKey::generateDsa(1024, random.bridge, throwing), std::domain_error);
    EXPECT_NO_THROW((void)makeKey(KeyScheme::ecdsa, random.bridge));  // nothing of the failures is left
}

TEST(Keys, EveryCurveWorksNamedAndExplicit) {
    SeededRandom random;
    const auto curves = ecCurves();
    EXPECT_TRUE(std::is_sorted(curves.begin(), curves.end(), [](const EcCurve& a, const EcCurve& b) {
        return a.bits != b.bits ? a.bits < b.bits : std::string(a.name) < b.name;
    }));
    EXPECT_GE(curves.front().bits, 160u);
    EXPECT_EQ(findCurve(kDefaultCurve)->name, std::string("prime256v1"));
    const Bytes digest = hashOf(KcHashAlgo::sha512, {});
    for (const EcCurve& curve : curves) {
        for (const bool explicitDomain : {false, true}) {
            SCOPED_TRACE(std::string(curve.name) + (explicitDomain ? " explicit" : " named"));
            const PrivateKey key = PrivateKey::generateEc(curve.id, explicitDomain, random.bridge);
            const PublicKey again = PublicKey::fromSpki(PrivateKey::fromPkcs8(key.toPkcs8()).publicKey().toSpki());
            // The WAP curves are others' under a second name, which an explicit domain does not show.
            if (!std::string_view(curve.name).starts_with("wap-")) {
                EXPECT_EQ(again.curve(), curve.id);
            }
            EXPECT_EQ(again.bits(), curve.bits);
            EXPECT_EQ(again.explicitDomain(), explicitDomain || !curve.hasOid);
            const Bytes signature = key.sign(KeyScheme::ecdsa, KcHashAlgo::sha512, digest, random.bridge);
            EXPECT_TRUE(again.verify(KeyScheme::ecdsa, KcHashAlgo::sha512, digest, signature));
        }
    }
}

}  // namespace
}  // namespace crv
