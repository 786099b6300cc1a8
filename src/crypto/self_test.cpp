#include "crypto/self_test.h"

#include <algorithm>
#include <exception>
#include <string>

#include "crypto/crypto_error.h"
#include "crypto/hmac.h"
#include "crypto/kc_rbg.h"
#include "crypto/pbe.h"
#include "crypto/private_key.h"
#include "misc/hex.h"

namespace crv {

namespace {

// Keys for these tests only.
constexpr char kRsaKey[] =
    "30820155020100300d06092a864886f70d01010105000482013f3082013b020100024100c22a0f49fc56faa30a539f7840405a3917bb"
    "887e7c00f60abc469bed04b3e3c21b3191ca5a1796bb3fabf8951a998289c800af28c666a7c2ab63770fe01814870203010001024075"
    "0e12459261859cc15f04a6e465677f3ff5892667efd4654878710c85674608f40743b6c48ec26682a726c59bc1a219da0e52e155ad1a"
    "cba5fc71e7b09126e1022100ef6a36397c8610ef292d0dc85a5ac32987f53dd6487d1c75a939cc8e79677cdf022100cf9d5f7dfeed64"
    "d90d812cfcf78ed5621d7edc31f9892e0b789443efa6acb559022100a847fe9f3f90b87c7273d1993f3146b67d72faa910c0a7ed682a"
    "5146dfbcc6ff022052570ff06092b6547f4ea4110ffdce1343af74953d6a72a08a0a0387a08b0ec102210096b9cb7f4cd0f0fc9ae4b0"
    "1ec7a9867f5ed4f493aa0f5e10d9bdac74a15c1b89";
constexpr char kEcKey[] =
    "308187020100301306072a8648ce3d020106082a8648ce3d030107046d306b02010104209eb9e5cb28e3a6e0485600cceeccc3e831e8"
    "1a4b6e70577dd836dfc4bac20d3aa1440342000441a8cd25a02ea98915e9d538bf94732cea9601f17fe94ad06c5a167c03556314c829"
    "3bbd5371548b0187e9510d285e63119d4fa13d2f8c1c4cec49aab92f58d5";
constexpr char kRsaSignature[] =
    "54ff63632f00ff2c038abe3f80756557c6dc00318287fea07273dc16797474e204cbf7b6a32373ac34f97bb9095ec14c0a0167aa2acb67"
    "347eb0a65bba0bbc79";
constexpr char kEcSignature[] =
    "3045022100a13ec56c0cbffdf7bf64895e393e8f8240544c89400ee9d05e21ed52ef92156702206d868efcca2bfa7bffc28cd69df61935"
    "d6a4bd92a6153f7b6309a137587c7b06";

bool same(ByteView got, std::string_view expected) {
    return std::ranges::equal(got, fromHex(expected).value());
}

const ByteView kAbc = asBytes("abc");

// The front of each digest of "abc" (FIPS 180-4, FIPS 202, RFC 1321, the RIPEMD paper).
bool hashesPass() {
    constexpr std::pair<KcHashAlgo, const char*> kAnswers[] = {
        {KcHashAlgo::Sha1, "a9993e36"},      {KcHashAlgo::Sha224, "23097d22"},  {KcHashAlgo::Sha256, "ba7816bf"},
        {KcHashAlgo::Sha384, "cb00753f"},    {KcHashAlgo::Sha512, "ddaf35a1"},  {KcHashAlgo::Ripemd128, "c14a1219"},
        {KcHashAlgo::Ripemd160, "8eb208f7"}, {KcHashAlgo::Md5, "90015098"},     {KcHashAlgo::Sha3224, "e642824c"},
        {KcHashAlgo::Sha3256, "3a985da7"},   {KcHashAlgo::Sha3384, "ec014982"}, {KcHashAlgo::Sha3512, "b751850b"},
    };
    return std::ranges::all_of(kAnswers, [](const auto& answer) {
        return same(ByteView(hashOf(answer.first, kAbc)).first(4), answer.second);
    });
}

bool hmacPasses() {  // RFC 2202 3, case 1
    return same(hmac(KcHashAlgo::Sha1, Bytes(20, 0x0B), asBytes("Hi There")),
                "b617318655057264e28bc0b6fb378c8ef146be00");
}

bool cipherPasses(CipherAlgo algo, std::string_view key, std::string_view iv, std::string_view plain,
                  std::string_view sealed) {
    const Bytes out = encipher(algo, fromHex(key).value(), fromHex(iv).value(), fromHex(plain).value());
    return same(ByteView(out).first(sealed.size() / 2), sealed) &&
           same(decipher(algo, fromHex(key).value(), fromHex(iv).value(), out), plain);
}

bool tripleDesPasses() {  // SP 800-67 B.1
    return cipherPasses(CipherAlgo::TripleDesCbc, "0123456789abcdef23456789abcdef01456789abcdef0123",
                        "0000000000000000", "5468652071756663", "a826fd8ce53b855f");
}

bool aesPasses() {  // SP 800-38A F.2.1
    return cipherPasses(CipherAlgo::Aes128Cbc, "2b7e151628aed2a6abf7158809cf4f3c", "000102030405060708090a0b0c0d0e0f",
                        "6bc1bee22e409f96e93d7e117393172a", "7649abac8119b246cee98e9b12e9197d");
}

bool derivationsPass() {
    const SecretBytes pkcs12 = pkcs12Derive(KcHashAlgo::Sha1, Pkcs12KeyId::EncryptionKey, utf16BePassword("smeg"),
                                            fromHex("0a58cf64530d823f").value(), 1, 24);
    return same(pkcs12, "8aaae6297b6cb04642ab5b077851284eb7128f1a2a7fbca3") &&
           same(deriveKey(Pbkdf2Params{PrfAlgo::Sha1, toBytes(asBytes("salt")), 2}, asBytes("password"),
                          20),  // RFC 6070
                "ea6c014dc72d6f8ccd1ed92ace1d41f0d8de8957");
}

bool hashGeneratorPasses() {  // NIST CAVS, Hash_DRBG, SHA-256, first case
    KcRbgHashIso18031 generator;
    generator.seed(
        fromHex("a65ad0f345db4e0effe875c3a2e71f42c7129d620ff5c119a9ef55f05185e0fb8581f9317517276e06e9607ddbcbcc2e")
            .value());
    SecretArray<128> out;
    generator.fill(out);
    generator.fill(out);
    return same(ByteView(out).first(16), "d3e160c35b99f340b2628264d1751060");
}

bool dssGeneratorPasses() {  // FIPS 186-2 appendix 5
    KcRbgDss31 generator;
    generator.seed(fromHex("bd029bbe7f51960bcf9edb2b61f06f0feb5a38b6").value());
    SecretArray<20> out;
    generator.fill(out);
    return same(out, "2070b3223dba372fde1c0ffc7b2e3b498b260614");
}

// The answer of another implementation, and that a changed digest is refused.
bool signaturePasses(const PrivateKey& key, KeyScheme scheme, KcHashAlgo hash, std::string_view signature) {
    Bytes digest = hashOf(hash, kAbc);
    const Bytes known = fromHex(signature).value();
    const bool accepted = key.publicKey().verify(scheme, hash, digest, known);
    digest[0] ^= 1;
    return accepted && !key.publicKey().verify(scheme, hash, digest, known);
}

Bytes signWithFixedRandom(const PrivateKey& key, KeyScheme scheme, KcHashAlgo hash) {
    RandomBridge random([](std::span<uint8_t> out) {
        std::ranges::fill(out, uint8_t{0x35});
        return true;
    });
    return key.sign(scheme, hash, hashOf(hash, kAbc), random);
}

bool rsaPasses() {
    const PrivateKey key = PrivateKey::fromPkcs8(fromHex(kRsaKey).value());
    return signaturePasses(key, KeyScheme::Rsa, KcHashAlgo::Sha1, kRsaSignature) &&
           same(signWithFixedRandom(key, KeyScheme::Rsa, KcHashAlgo::Sha1), kRsaSignature);
}

bool ecdsaPasses() {
    const PrivateKey key = PrivateKey::fromPkcs8(fromHex(kEcKey).value());
    const Bytes fresh = signWithFixedRandom(key, KeyScheme::Ecdsa, KcHashAlgo::Sha256);
    return signaturePasses(key, KeyScheme::Ecdsa, KcHashAlgo::Sha256, kEcSignature) &&
           key.publicKey().verify(KeyScheme::Ecdsa, KcHashAlgo::Sha256, hashOf(KcHashAlgo::Sha256, kAbc), fresh);
}

constexpr SelfTest kTests[] = {
    {"hashes", hashesPass},
    {"HMAC", hmacPasses},
    {"3DES", tripleDesPasses},
    {"AES", aesPasses},
    {"key derivation", derivationsPass},
    {"HASH-DRBG-18031", hashGeneratorPasses},
    {"DSS31", dssGeneratorPasses},
    {"RSA", rsaPasses},
    {"ECDSA", ecdsaPasses},
};

}  // namespace

std::span<const SelfTest> selfTests() noexcept {
    return kTests;
}

void runSelfTests(std::span<const SelfTest> tests) {
    for (const SelfTest& test : tests) {
        std::string why = "wrong answer";
        try {
            if (test.passes()) continue;
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& e) {
            why = e.what();
        }
        throw CryptoError(CryptoFailure::SelfTest, std::string("self-test of ") + test.name + ": " + why);
    }
}

}  // namespace crv
