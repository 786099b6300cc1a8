#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <map>

#include "crypto/crypto_test.h"
#include "crypto/private_key.h"
#include "crypto/sign_algo_map.h"

namespace crv {
namespace {

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

// libcrypto's own decoders and encoders are the judge of our encodings.
TEST(Keys, EncodingsAreThoseOfLibcrypto) {
    SeededRandom random;
    std::vector<PrivateKey> keys;
    for (const KeyScheme scheme : kSchemes) keys.push_back(sharedKey(scheme));
    for (const char* name : {"secp521r1", "sect571k1", "brainpoolP384r1"}) {
        const auto curves = ecCurves();
        const auto curve = std::ranges::find_if(curves, [&](const EcCurve& c) { return std::string(name) == c.name; });
        ASSERT_NE(curve, curves.end());
        keys.push_back(PrivateKey::generateEc(curve->id, true, random.bridge));
        keys.push_back(PrivateKey::generateEc(curve->id, false, random.bridge));
    }
    for (const PrivateKey& key : keys) {
        EXPECT_EQ(std::ranges::count_if(keys, [&](const auto& k) { return k.publicKey() == key.publicKey(); }), 1);
        EXPECT_EQ(toBytes(ByteView(key.keyId())), hashOf(KcHashAlgo::sha1, key.publicKey().keyBits()));
        const SecretBytes pkcs8 = key.toPkcs8();
        const uint8_t* in = pkcs8.data();
        const auto free = [](EVP_PKEY* k) { EVP_PKEY_free(k); };
        const std::unique_ptr<EVP_PKEY, decltype(free)> theirs(
            d2i_AutoPrivateKey(nullptr, &in, static_cast<long>(pkcs8.size())), free);
        ASSERT_NE(theirs, nullptr);
        uint8_t* out = nullptr;
        const int length = i2d_PUBKEY(theirs.get(), &out);
        EXPECT_EQ(Bytes(out, out + length), key.publicKey().toSpki());
        OPENSSL_free(out);
        const std::unique_ptr<PKCS8_PRIV_KEY_INFO, decltype(&PKCS8_PRIV_KEY_INFO_free)> info(
            EVP_PKEY2PKCS8(theirs.get()), PKCS8_PRIV_KEY_INFO_free);
        out = nullptr;
        const int infoLength = i2d_PKCS8_PRIV_KEY_INFO(info.get(), &out);
        const SecretBytes written(out, out + infoLength);
        OPENSSL_free(out);
        EXPECT_EQ(PrivateKey::fromPkcs8(written).publicKey(), key.publicKey());
        EXPECT_TRUE(key.publicKey().explicitDomain() || written == pkcs8);
    }
}

// hostile_keys.txt comes from hostile_keys.py: one fault a key, and good keys to show that the faults alone are
// refused.
TEST(Keys, HostileKeysAreRefused) {
    const std::map<std::string, CryptoFailure> failures = {{"badKey", CryptoFailure::badKey},
                                                           {"unsupported", CryptoFailure::unsupported}};
    for (const auto& line : vectorsOf("hostile_keys.txt")) {
        SCOPED_TRACE(line.at(0) + " " + line.at(2));
        const Bytes der = unhex(line.at(3));
        const auto read = [&, isPublic = line[0] == "public"] {
            if (isPublic) return PublicKey::fromSpki(der).toSpki();
            return PrivateKey::fromPkcs8(der).publicKey().toSpki();
        };
        if (line.at(1) == "none") {
            EXPECT_NO_THROW((void)read());
        } else {
            EXPECT_EQ(failureOf([&] { (void)read(); }), failures.at(line[1]));
        }
    }
    Bytes domain = encodeEcDomain(kDefaultCurve, true);
    EXPECT_EQ(decodeEcDomain(domain).id, kDefaultCurve);
    domain.push_back(0);
    EXPECT_EQ(failureOf([&] { (void)decodeEcDomain(domain); }), CryptoFailure::badKey);
    const PublicKey& rsa = sharedKey(KeyScheme::rsa).publicKey();
    EXPECT_EQ(PublicKey::fromRsa(rsa.rsaModulus(), rsa.rsaExponent()), rsa);
}

// Every prefix and every changed octet: a CryptoError or a key, never anything else.
TEST(Keys, DamagedEncodingsNeverHarm) {
    for (const KeyScheme scheme : kSchemes) {
        const PrivateKey& key = sharedKey(scheme);
        const Bytes spki = key.publicKey().toSpki();
        const SecretBytes pkcs8 = key.toPkcs8();
        for (size_t length = 0; length < pkcs8.size(); ++length) {
            EXPECT_THROW((void)PrivateKey::fromPkcs8(ByteView(pkcs8).first(length)), CryptoError);
            EXPECT_THROW((void)PublicKey::fromSpki(ByteView(spki).first(length % spki.size())), CryptoError);
        }
        size_t taken = 0;
        for (size_t i = 0; i < pkcs8.size(); ++i) {
            SecretBytes damaged = pkcs8;
            damaged[i] ^= static_cast<uint8_t>(1u << i % 8);
            try {
                if (PrivateKey::fromPkcs8(damaged).publicKey() == key.publicKey()) ++taken;
            } catch (const CryptoError&) {
            }
            if (i >= spki.size()) continue;
            Bytes damagedPublic = spki;
            damagedPublic[i] ^= static_cast<uint8_t>(1u << i % 8);
            try {
                EXPECT_NE(PublicKey::fromSpki(damagedPublic), key.publicKey()) << i;
            } catch (const CryptoError&) {
            }
        }
        EXPECT_LE(taken, 1u);  // only the version may change from 0 to 1 unnoticed
    }
}

TEST(Keys, MisusedKeysAnswerClearly) {
    SeededRandom random;
    const PrivateKey& rsa = sharedKey(KeyScheme::rsa);
    const PrivateKey& ec = sharedKey(KeyScheme::ecdsa);
    const Bytes digest = hashOf(KcHashAlgo::sha256, {});
    const std::function<void()> misuses[] = {
        [&] { (void)rsa.sign(KeyScheme::ecdsa, KcHashAlgo::sha256, digest, random.bridge); },
        [&] { (void)ec.sign(KeyScheme::rsa, KcHashAlgo::sha256, digest, random.bridge); },
        [&] { (void)rsa.sign(KeyScheme::rsa, KcHashAlgo::sha1, digest, random.bridge); },
        [&] { (void)rsa.sign(KeyScheme::rsa, KcHashAlgo::ripemd128, Bytes(16), random.bridge); },
        [&] {
            (void)rsa.sign(KeyScheme::rsaPss, KcHashAlgo::sha256, digest, random.bridge, {KcHashAlgo::sha1, 4000});
        },
        [&] { (void)rsa.publicKey().verify(KeyScheme::dsa, KcHashAlgo::sha1, digest, {}); },
        [&] {
            (void)rsa.publicKey().verify(KeyScheme::rsaPss, KcHashAlgo::sha256, digest, {}, {KcHashAlgo::none, -2});
        },
        [&] { (void)ec.decrypt(RsaPadding::pkcs1, Bytes(100)); },
        [&] { (void)rsa.publicKey().encrypt(RsaPadding::pkcs1, Bytes(192)); },
        [&] { (void)PrivateKey::generateRsa(511, 65537, random.bridge); },
        [&] { (void)PrivateKey::generateRsa(16385, 65537, random.bridge); },
        [&] { (void)PrivateKey::generateRsa(2048, 4, random.bridge); },
        [&] { (void)PrivateKey::generateDsa(2048, random.bridge); },
    };
    for (size_t i = 0; i < std::size(misuses); ++i) EXPECT_EQ(failureOf(misuses[i]), CryptoFailure::badParameter) << i;
    EXPECT_EQ(failureOf([&] { (void)PrivateKey::generateEc(StdECId::none, false, random.bridge); }),
              CryptoFailure::unsupported);
    EXPECT_EQ(random.drawn, 0u);
}

TEST(Keys, PssParametersAndPssKeys) {
    SeededRandom random;
    const PrivateKey& key = sharedKey(KeyScheme::rsa);
    const Bytes digest = hashOf(KcHashAlgo::sha256, {});
    const PssParams params = {KcHashAlgo::sha1, 11};
    const Bytes signature = key.sign(KeyScheme::rsaPss, KcHashAlgo::sha256, digest, random.bridge, params);
    const auto accepts = [&](const PublicKey& k, const PssParams& p) {
        return k.verify(KeyScheme::rsaPss, KcHashAlgo::sha256, digest, signature, p);
    };
    EXPECT_TRUE(accepts(key.publicKey(), params));
    EXPECT_FALSE(accepts(key.publicKey(), {KcHashAlgo::sha1, 12}));
    EXPECT_FALSE(accepts(key.publicKey(), {KcHashAlgo::sha256, 11}));
    Bytes spki = key.publicKey().toSpki();
    const Bytes rsaEncryption = unhex("2a864886f70d010101");
    std::search(spki.begin(), spki.end(), rsaEncryption.begin(), rsaEncryption.end())[8] = 0x0A;
    const PublicKey pssOnly = PublicKey::fromSpki(spki);
    EXPECT_EQ(pssOnly.toSpki(), spki);
    EXPECT_EQ(pssOnly.scheme(), KeyScheme::rsaPss);
    EXPECT_TRUE(accepts(pssOnly, params));
    EXPECT_EQ(failureOf([&] { (void)pssOnly.verify(KeyScheme::rsa, KcHashAlgo::sha256, digest, signature); }),
              CryptoFailure::badParameter);
    EXPECT_EQ(failureOf([&] { (void)pssOnly.encrypt(RsaPadding::pkcs1, digest); }), CryptoFailure::badParameter);
}

TEST(Keys, RsaDecryptionOfGoodAndBadCiphertexts) {
    const PrivateKey& key = sharedKey(KeyScheme::rsa);
    const Bytes secret(32, 0x42);
    const std::pair<RsaPadding, OaepParams> cases[] = {
        {RsaPadding::pkcs1, {}},
        {RsaPadding::oaep, {}},
        {RsaPadding::oaep, {KcHashAlgo::sha256, KcHashAlgo::sha1, {1, 2, 3}}},
    };
    for (const auto& [padding, oaep] : cases) {
        Bytes sealed = key.publicKey().encrypt(padding, secret, oaep);
        EXPECT_EQ(toBytes(key.decrypt(padding, sealed, oaep)), secret);
        const auto fails = [&, p = padding](ByteView ciphertext, const OaepParams& o) {
            return failureOf([&] { (void)key.decrypt(p, ciphertext, o); }) == CryptoFailure::badData;
        };
        EXPECT_TRUE(fails(ByteView(sealed).first(sealed.size() - 1), oaep));
        EXPECT_TRUE(fails({}, oaep));
        EXPECT_TRUE(fails(Bytes(sealed.size(), 0xFF), oaep));  // above the modulus
        EXPECT_TRUE(padding == RsaPadding::pkcs1 || fails(sealed, {oaep.hash, oaep.mgfHash, {9}}));
    }
}

}  // namespace
}  // namespace crv
