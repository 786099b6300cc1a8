#include <openssl/err.h>
#include <openssl/x509.h>

#include <algorithm>
#include <map>

#include "crypto/crypto_test.h"
#include "crypto/der.h"
#include "crypto/libcrypto.h"
#include "crypto/sign_algo_map.h"

namespace crv {
namespace {

using enum KcHashAlgo;

constexpr KeyScheme kSchemes[] = {KeyScheme::Rsa, KeyScheme::Dsa, KeyScheme::Ecdsa};
constexpr const char* kSeed = "seed number one .";
constexpr const char* kOtherSeed = "seed number two .";

const PrivateKey& sharedKey(KeyScheme scheme) {
    static std::map<KeyScheme, PrivateKey> keys;
    const KeyScheme kind = scheme == KeyScheme::RsaPss ? KeyScheme::Rsa : scheme;
    SeededRandom random;
    if (!keys.contains(kind)) keys.emplace(kind, makeKey(kind, random.bridge));
    return keys.at(kind);
}

TEST(Keys, EveryRowOfTheTableSignsAndVerifies) {
    for (const SignAlgo& row : signAlgoMap()) {
        if (!isHashSupported(row.scheme, row.hash)) continue;
        SCOPED_TRACE(row.name);
        const PrivateKey& key = sharedKey(row.scheme);
        const Bytes digest = hashOf(row.hash, asBytes("message"));
        const auto signedWith = [&](const char* seed) {
            SeededRandom random(seed);
            return key.sign(row.scheme, row.hash, digest, random.bridge);
        };
        Bytes signature = signedWith(kSeed);
        EXPECT_EQ(signedWith(kSeed), signature);
        EXPECT_EQ(signedWith(kOtherSeed) == signature, row.scheme == KeyScheme::Rsa) << "nonces and salts are drawn";
        const auto verifies = [&](ByteView signedDigest) {
            return key.publicKey().verify(row.scheme, row.hash, signedDigest, signature);
        };
        EXPECT_TRUE(verifies(digest));
        EXPECT_FALSE(verifies(hashOf(row.hash, asBytes("massage"))));
        signature.back() ^= 1;
        EXPECT_FALSE(verifies(digest));
        signature.pop_back();
        EXPECT_FALSE(verifies(digest));
    }
}

TEST(Keys, SameSeedSameKeyAndNothingElseDrawsFromIt) {
    for (const KeyScheme scheme : kSchemes) {
        SeededRandom first(kSeed), second(kSeed), third(kOtherSeed);
        const PrivateKey key = makeKey(scheme, first.bridge);
        const size_t drawn = first.drawn;
        EXPECT_GT(drawn, 0u);
        // Everything between the two generations must leave the source alone: import, checks, verification, encryption.
        const PrivateKey copy = PrivateKey::fromPkcs8(key.toPkcs8());
        const PublicKey& other = copy.publicKey();
        const Bytes digest = hashOf(Sha1, {});
        EXPECT_TRUE(other.verify(scheme, Sha1, digest, key.sign(scheme, Sha1, digest, third.bridge)));
        if (scheme == KeyScheme::Rsa) (void)copy.decrypt(RsaPadding::Oaep, other.encrypt(RsaPadding::Oaep, digest));
        EXPECT_EQ(first.drawn, drawn);
        EXPECT_EQ(makeKey(scheme, second.bridge).toPkcs8(), key.toPkcs8());
        EXPECT_EQ(second.drawn, drawn);
        EXPECT_NE(makeKey(scheme, third.bridge).toPkcs8(), key.toPkcs8());
    }
}

TEST(Keys, FailingSourceOrStopEndsTheOperation) {
    RandomBridge dry([](std::span<uint8_t>) { return false; });
    RandomBridge angry([](std::span<uint8_t>) -> bool { throw std::domain_error("card pulled out"); });
    for (const KeyScheme scheme : kSchemes) {
        const KeyScheme drawing = scheme == KeyScheme::Rsa ? KeyScheme::RsaPss : scheme;
        const std::function<void(RandomBridge&)> uses[] = {
            [&](RandomBridge& random) { (void)makeKey(scheme, random); },
            [&](RandomBridge& random) { (void)sharedKey(scheme).sign(drawing, Sha1, hashOf(Sha1, {}), random); }};
        for (const auto& use : uses) {
            EXPECT_EQ(failureOf([&] { use(dry); }), CryptoFailure::NoRandom);
            EXPECT_THROW(use(angry), std::domain_error);
        }
    }
    SeededRandom random;
    int calls = 0;
    const auto stopped = [&] {
        (void)PrivateKey::generateRsa(2048, 65537, random.bridge, [&] { return ++calls < 3; });
    };
    EXPECT_EQ(failureOf(stopped), CryptoFailure::Cancelled);
    EXPECT_EQ(calls, 3);
    const KeyGenProgress throwing = []() -> bool { throw std::domain_error("hang-up"); };
    EXPECT_THROW((void)PrivateKey::generateDsa(1024, random.bridge, throwing), std::domain_error);
    EXPECT_NO_THROW((void)makeKey(KeyScheme::Ecdsa, random.bridge));  // nothing of the failures is left
}

TEST(Keys, OfTwoTypesDifferAndLeaveTheErrorQueueOfTheProgramAlone) {
    ERR_clear_error();
    for (const KeyScheme a : kSchemes)
        for (const KeyScheme b : kSchemes) EXPECT_EQ(sharedKey(a).publicKey() == sharedKey(b).publicKey(), a == b);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST(Keys, EveryCurveWorksNamedAndExplicit) {
    SeededRandom random;
    const auto curves = ecCurves();
    const auto order = [](const EcCurve& c) { return std::pair(c.bits, std::string(c.name)); };
    EXPECT_TRUE(std::ranges::is_sorted(curves, {}, order));
    EXPECT_GE(curves.front().bits, 160u);
    EXPECT_STREQ(findCurve(kDefaultCurve)->name, "prime256v1");
    const Bytes digest = hashOf(Sha512, {});
    for (const EcCurve& curve : curves) {
        for (const bool explicitDomain : {false, true}) {
            SCOPED_TRACE(std::string(curve.name) + (explicitDomain ? " explicit" : " named"));
            const PrivateKey key = PrivateKey::generateEc(curve.id, explicitDomain, random.bridge);
            const PublicKey again = PublicKey::fromSpki(PrivateKey::fromPkcs8(key.toPkcs8()).publicKey().toSpki());
            // The WAP curves are others' under a second name, which an explicit domain does not show.
            EXPECT_TRUE(again.curve() == curve.id || std::string_view(curve.name).starts_with("wap-"));
            EXPECT_EQ(again.bits(), curve.bits);
            EXPECT_EQ(again.explicitDomain(), explicitDomain || !curve.hasOid);
            const Bytes signature = key.sign(KeyScheme::Ecdsa, Sha512, digest, random.bridge);
            EXPECT_TRUE(again.verify(KeyScheme::Ecdsa, Sha512, digest, signature));
        }
    }
}

template <class Object>
Bytes encodingOf(int (*encode)(const Object*, uint8_t**), const Object* object) {
    uint8_t* out = nullptr;
    const int length = encode(object, &out);
    const ossl::Owned<uint8_t, [](uint8_t* block) { OPENSSL_free(block); }> owned(out);
    return {out, out + length};
}

// libcrypto's own decoders and encoders are the judge of our encodings.
TEST(Keys, EncodingsAreThoseOfLibcrypto) {
    SeededRandom random;
    std::vector<PrivateKey> keys;
    for (const KeyScheme scheme : kSchemes) keys.push_back(sharedKey(scheme));
    for (const std::string_view name : {"secp521r1", "sect571k1", "brainpoolP384r1"}) {
        const auto curve = std::ranges::find(ecCurves(), name, &EcCurve::name);
        keys.push_back(PrivateKey::generateEc(curve->id, true, random.bridge));
        keys.push_back(PrivateKey::generateEc(curve->id, false, random.bridge));
    }
    for (const PrivateKey& key : keys) {
        const PublicKey& ours = key.publicKey();
        EXPECT_EQ(std::ranges::count(keys, ours, &PrivateKey::publicKey), 1);
        EXPECT_EQ(toBytes(ByteView(key.keyId())), hashOf(Sha1, ours.keyBits()));
        const SecretBytes pkcs8 = key.toPkcs8();
        const uint8_t* in = pkcs8.data();
        const ossl::Pkey theirs(d2i_AutoPrivateKey(nullptr, &in, static_cast<long>(pkcs8.size())));
        ASSERT_NE(theirs, nullptr);
        EXPECT_EQ(encodingOf(i2d_PUBKEY, theirs.get()), ours.toSpki());
        const ossl::Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free> info(EVP_PKEY2PKCS8(theirs.get()));
        const Bytes written = encodingOf(i2d_PKCS8_PRIV_KEY_INFO, info.get());
        EXPECT_EQ(PrivateKey::fromPkcs8(written).publicKey(), ours);
        EXPECT_TRUE(ours.explicitDomain() || written == toBytes(pkcs8));
    }
}

PublicKey readKey(bool isPublic, ByteView der) {
    return isPublic ? PublicKey::fromSpki(der) : PrivateKey::fromPkcs8(der).publicKey();
}

// hostile_keys.txt comes from hostile_keys.py: one fault a key, and good keys to show that the faults alone are
// refused.
TEST(Keys, HostileKeysAreRefused) {
    const std::map<std::string, std::optional<CryptoFailure>> failures = {
        {"none", std::nullopt}, {"badKey", CryptoFailure::BadKey}, {"unsupported", CryptoFailure::Unsupported}};
    for (const auto& line : vectorsOf("hostile_keys.txt")) {
        const auto read = [&] { (void)readKey(line.at(0) == "public", unhex(line.at(3))); };
        EXPECT_EQ(failureOf(read), failures.at(line.at(1))) << line[0] << " " << line[2];
    }
    Bytes domain = encodeEcDomain(kDefaultCurve, true);
    EXPECT_EQ(decodeEcDomain(domain).id, kDefaultCurve);
    domain.push_back(0);
    EXPECT_EQ(failureOf([&] { (void)decodeEcDomain(domain); }), CryptoFailure::BadKey);
    const PublicKey& rsa = sharedKey(KeyScheme::Rsa).publicKey();
    EXPECT_EQ(PublicKey::fromRsa(rsa.rsaModulus(), rsa.rsaExponent()), rsa);
}

// Every prefix and every changed octet: a CryptoError or another key, never anything else.
TEST(Keys, DamagedEncodingsNeverHarm) {
    for (const KeyScheme scheme : kSchemes) {
        const PrivateKey& key = sharedKey(scheme);
        for (const bool isPublic : {false, true}) {
            const SecretBytes whole = isPublic ? toSecret(key.publicKey().toSpki()) : key.toPkcs8();
            unsigned taken = 0;
            for (size_t i = 0; i < whole.size(); ++i) {
                EXPECT_THROW((void)readKey(isPublic, ByteView(whole).first(i)), CryptoError) << i;
                SecretBytes damaged = whole;
                damaged[i] ^= static_cast<uint8_t>(1u << i % 8);
                try {
                    taken += readKey(isPublic, damaged) == key.publicKey();
                } catch (const CryptoError&) {
                }
            }
            EXPECT_LE(taken, isPublic ? 0u : 1u);  // only the version may change from 0 to 1 unnoticed
        }
    }
}

TEST(Keys, MisusedKeysAnswerClearly) {
    SeededRandom random;
    const PrivateKey& rsa = sharedKey(KeyScheme::Rsa);
    const PrivateKey& ec = sharedKey(KeyScheme::Ecdsa);
    const auto sign = [&](const PrivateKey& key, KeyScheme scheme, KcHashAlgo hash, size_t octets, int salt = -1) {
        (void)key.sign(scheme, hash, Bytes(octets), random.bridge, {Sha1, salt});
    };
    const auto generateRsa = [&](unsigned bits, uint64_t exponent) {
        (void)PrivateKey::generateRsa(bits, exponent, random.bridge);
    };
    const std::function<void()> misuses[] = {
        [&] { sign(rsa, KeyScheme::Ecdsa, Sha256, 32); },
        [&] { sign(ec, KeyScheme::Rsa, Sha256, 32); },
        [&] { sign(rsa, KeyScheme::Rsa, Sha1, 32); },
        [&] { sign(rsa, KeyScheme::Rsa, Ripemd128, 16); },
        [&] { sign(rsa, KeyScheme::RsaPss, Sha256, 32, 4000); },
        [&] { (void)rsa.publicKey().verify(KeyScheme::Dsa, Sha1, Bytes(20), {}); },
        [&] {
            (void)rsa.publicKey().verify(KeyScheme::RsaPss, Sha256, Bytes(32), {}, {None, -2});
        },
        [&] { (void)ec.decrypt(RsaPadding::Pkcs1, Bytes(100)); },
        [&] { (void)rsa.publicKey().encrypt(RsaPadding::Pkcs1, Bytes(192)); },
        [&] { generateRsa(511, 65537); },
        [&] { generateRsa(16385, 65537); },
        [&] { generateRsa(2048, 4); },
        [&] { (void)PrivateKey::generateDsa(2048, random.bridge); },
    };
    for (size_t i = 0; i < std::size(misuses); ++i) EXPECT_EQ(failureOf(misuses[i]), CryptoFailure::BadParameter) << i;
    const auto noCurve = [&] { (void)PrivateKey::generateEc(StdECId::None, false, random.bridge); };
    EXPECT_EQ(failureOf(noCurve), CryptoFailure::Unsupported);
    EXPECT_EQ(random.drawn, 0u);
}

TEST(Keys, PssParametersAndPssKeys) {
    SeededRandom random;
    const PrivateKey& key = sharedKey(KeyScheme::Rsa);
    const Bytes digest = hashOf(Sha256, {});
    const PssParams params = {Sha1, 11};
    const Bytes signature = key.sign(KeyScheme::RsaPss, Sha256, digest, random.bridge, params);
    const auto accepts = [&](const PublicKey& k, const PssParams& p, KeyScheme scheme = KeyScheme::RsaPss) {
        return k.verify(scheme, Sha256, digest, signature, p);
    };
    EXPECT_TRUE(accepts(key.publicKey(), params));
    EXPECT_FALSE(accepts(key.publicKey(), {Sha1, 12}));
    EXPECT_FALSE(accepts(key.publicKey(), {Sha256, 11}));
    const auto pssSpki = [&](std::string_view parameters) {
        const SecretBytes algorithm =
            der::element(der::kSequence, {der::element(der::kOid, {unhex("2a864886f70d01010a")}), unhex(parameters)});
        return toBytes(der::element(der::kSequence, {algorithm, der::bits(key.publicKey().keyBits())}));
    };
    const PublicKey pssOnly = PublicKey::fromSpki(pssSpki(""));
    EXPECT_EQ(pssOnly.toSpki(), pssSpki(""));
    EXPECT_EQ(pssOnly.scheme(), KeyScheme::RsaPss);
    EXPECT_TRUE(accepts(pssOnly, params));
    EXPECT_EQ(failureOf([&] { (void)accepts(pssOnly, {}, KeyScheme::Rsa); }), CryptoFailure::BadParameter);
    EXPECT_EQ(failureOf([&] { (void)pssOnly.encrypt(RsaPadding::Pkcs1, digest); }), CryptoFailure::BadParameter);
    // SHA-256, MGF1 with SHA-1, at least 11 octets of salt.
    const std::string hash = "a00d300b0609608648016503040201";
    const PublicKey restricted = PublicKey::fromSpki(pssSpki("3014" + hash + "a20302010b"));
    EXPECT_TRUE(accepts(restricted, params));
    for (const char* stricter : {"a20302010c", "a11a301806092a864886f70d010108300b0609608648016503040201a20302010b"}) {
        const std::string all = hash + stricter;
        const PublicKey other = PublicKey::fromSpki(pssSpki("30" + hex(Bytes{uint8_t(all.size() / 2)}) + all));
        EXPECT_EQ(failureOf([&] { (void)accepts(other, params); }), CryptoFailure::BadParameter) << stricter;
    }
    EXPECT_EQ(failureOf([&] { (void)accepts(PublicKey::fromSpki(pssSpki("3000")), params); }),
              CryptoFailure::BadParameter)
        << "SHA-1 by default";
    for (const char* wrong : {"0500", "04020102", "3003a00101", "3005a303020102", "30000500"})
        EXPECT_EQ(failureOf([&] { (void)PublicKey::fromSpki(pssSpki(wrong)); }), CryptoFailure::BadKey) << wrong;
    const auto vector = vectorsOf("pss_short_salt.txt").at(0);
    EXPECT_TRUE(
        PublicKey::fromSpki(unhex(vector.at(0)))
            .verify(KeyScheme::RsaPss, Sha512, hashOf(Sha512, asBytes("abc")), unhex(vector.at(1)), {Sha512, 20}));
}

TEST(Keys, PointsOutsideTheGroupAreRefused) {
    Bytes point(43);  // (0, 1) of sect163k1 has order 2
    point[0] = 4;
    point[42] = 1;
    const SecretBytes algorithm = der::element(der::kSequence, {der::element(der::kOid, {unhex("2a8648ce3d0201")}),
                                                                der::element(der::kOid, {unhex("2b81040001")})});
    const SecretBytes spki = der::element(der::kSequence, {algorithm, der::bits(point)});
    EXPECT_EQ(failureOf([&] { (void)PublicKey::fromSpki(spki); }), CryptoFailure::BadKey);
}

TEST(Keys, RsaDecryptionOfGoodAndBadCiphertexts) {
    const PrivateKey& key = sharedKey(KeyScheme::Rsa);
    const Bytes secret(32, 0x42);
    const std::pair<RsaPadding, OaepParams> cases[] = {
        {RsaPadding::Pkcs1, {}}, {RsaPadding::Oaep, {}}, {RsaPadding::Oaep, {Sha256, Sha1, {1, 2, 3}}}};
    for (const auto& [padding, oaep] : cases) {
        const Bytes sealed = key.publicKey().encrypt(padding, secret, oaep);
        EXPECT_EQ(toBytes(key.decrypt(padding, sealed, oaep)), secret);
        const auto fails = [&, p = padding](ByteView ciphertext, const OaepParams& o) {
            return failureOf([&] { (void)key.decrypt(p, ciphertext, o); }) == CryptoFailure::BadData;
        };
        EXPECT_TRUE(fails(ByteView(sealed).first(sealed.size() - 1), oaep));
        EXPECT_TRUE(fails({}, oaep));
        EXPECT_TRUE(fails(Bytes(sealed.size(), 0xFF), oaep));  // above the modulus
        EXPECT_TRUE(padding == RsaPadding::Pkcs1 || fails(sealed, {oaep.hash, oaep.mgfHash, {9}}));
    }
}

}  // namespace
}  // namespace crv
