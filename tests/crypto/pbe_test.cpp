#include "crypto/pbe.h"

#include <chrono>
#include <map>

#include "crypto/crypto_test.h"

namespace crv {
namespace {

constexpr char kPlain[] = "The quick brown fox";

const std::map<std::string, KcHashAlgo> kHashes = {{"sha1", KcHashAlgo::sha1},        {"sha224", KcHashAlgo::sha224},
                                                   {"sha256", KcHashAlgo::sha256},    {"sha384", KcHashAlgo::sha384},
                                                   {"sha512", KcHashAlgo::sha512},    {"md5", KcHashAlgo::md5},
                                                   {"sha3_256", KcHashAlgo::sha3_256}};
const std::map<std::string, CipherAlgo> kCiphers = {{"aes-128", CipherAlgo::aes128Cbc},
                                                    {"aes-192", CipherAlgo::aes192Cbc},
                                                    {"aes-256", CipherAlgo::aes256Cbc},
                                                    {"3des", CipherAlgo::tripleDesCbc}};

using Fields = std::vector<std::string>;

SecretBytes derived(const Fields& f) {
    const Bytes password = unhex(f.at(3)), salt = unhex(f.at(4));
    const uint64_t iterations = std::stoull(f.at(5));
    const size_t length = f.at(6).size() / 2;
    if (f[0] == "pbkdf2") return pbkdf2(kHashes.at(f[1]), password, salt, iterations, length);
    return pkcs12Derive(kHashes.at(f[1]), Pkcs12KeyId(std::stoi(f[2])), utf16BePassword(asText(password)), salt,
                        iterations, length);
}

SecretBytes decrypted(const Fields& f) {
    const std::string& scheme = f[0];
    const Bytes password = unhex(f.at(1)), salt = unhex(f.at(2)), ciphertext = unhex(f.at(5));
    const uint64_t iterations = std::stoull(f.at(3));
    if (scheme.starts_with("pbes2-")) {
        const size_t prf = scheme.rfind('-');
        return pbes2Decrypt(
            {kHashes.at(scheme.substr(prf + 1)), salt, iterations, kCiphers.at(scheme.substr(6, prf - 6)), unhex(f[4])},
            password, ciphertext);
    }
    const PbeAlgo algo = scheme == "sha1-3des" ? PbeAlgo::sha1TripleDesCbc : PbeAlgo::sha1Rc2Cbc40;
    const SecretBytes utf16 = utf16BePassword(asText(password));
    EXPECT_EQ(pbeEncrypt(algo, utf16, salt, iterations, asBytes(kPlain)), ciphertext);
    return pbeDecrypt(algo, utf16, salt, iterations, ciphertext);
}

// pbe.txt comes from pbe.py: derivations written again in Python, ciphertexts of the openssl program.
TEST(Pbe, DerivesAndDecryptsAsOthersDo) {
    std::map<bool, int> cases;
    for (const Fields& f : vectorsOf("pbe.txt")) {
        const bool derivation = f[0] == "pkcs12" || f[0] == "pbkdf2";
        const SecretBytes expected = toSecret(derivation ? unhex(f.at(6)) : toBytes(asBytes(kPlain)));
        EXPECT_EQ(derivation ? derived(f) : decrypted(f), expected) << f[0] << f[1] << f[2];
        ++cases[derivation];
    }
    EXPECT_EQ(cases, (std::map<bool, int>{{true, 7 * 9 + 5}, {false, 6}}));
}

TEST(Pbe, PasswordsInUtf16) {
    const std::pair<std::string, std::string> good[] = {
        {"", "0000"},
        {"Beavis", "0042006500610076006900730000"},  // RFC 7292 B.1
        {"\xC5\xBC\xE2\x82\xAC\xF0\x9F\x98\x80", "017c20acd83dde000000"},
        {"\xF4\x8F\xBF\xBF\xEF\xBF\xBF\xED\x9F\xBF\xEE\x80\x80", "dbffdfffffffd7ffe0000000"},
        {std::string("a\0b", 3), "0061000000620000"},
    };
    for (const auto& [text, units] : good) EXPECT_EQ(hex(utf16BePassword(text)), units);
    for (const char* bad : {"\x80", "\xC0\x80", "\xC5", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
                            "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "a\xFF", "\xE2\x82", "\xC5\x41"}) {
        EXPECT_THROW((void)utf16BePassword(bad), CryptoError) << hex(asBytes(bad));
    }
}

TEST(Pbe, AbsurdCountsAreRefusedAtOnce) {
    const auto start = std::chrono::steady_clock::now();
    for (const uint64_t count : {uint64_t{0}, kMaxPbeIterations + 1, UINT64_MAX}) {
        const Pbes2Params pbes2{KcHashAlgo::sha1, {}, count, CipherAlgo::aes128Cbc, Bytes(16)};
        EXPECT_THROW((void)pbkdf2(KcHashAlgo::sha256, {}, {}, count, 32), CryptoError);
        EXPECT_THROW((void)pkcs12Derive(KcHashAlgo::sha1, Pkcs12KeyId::macKey, {}, {}, count, 20), CryptoError);
        EXPECT_THROW((void)pbeDecrypt(PbeAlgo::sha1TripleDesCbc, {}, {}, count, Bytes(8)), CryptoError);
        EXPECT_THROW((void)pbes2Decrypt(pbes2, {}, Bytes(16)), CryptoError);
    }
    EXPECT_THROW((void)pbkdf2(KcHashAlgo::sha256, {}, {}, 1, size_t{1} << 40), CryptoError);
    EXPECT_THROW((void)pkcs12Derive(KcHashAlgo::ripemd128, Pkcs12KeyId::macKey, {}, {}, 1, 16), CryptoError);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(Cipher, RefusesBrokenBlocksPaddingsAndLengths) {
    const Bytes key(32, 1);
    const Bytes iv(16, 2);
    const Bytes sealed = encryptCbc(CipherAlgo::aes256Cbc, key, iv, asBytes(kPlain));
    EXPECT_EQ(sealed.size(), 32u);
    EXPECT_EQ(asText(decryptCbc(CipherAlgo::aes256Cbc, key, iv, sealed)), kPlain);
    EXPECT_EQ(encryptCbc(CipherAlgo::aes256Cbc, key, iv, {}).size(), 16u);
    const auto failure = [&](ByteView k, ByteView v, ByteView c) {
        return failureOf([&] { (void)decryptCbc(CipherAlgo::aes256Cbc, k, v, c); });
    };
    for (const size_t length : {0, 1, 15, 17, 31}) {
        EXPECT_EQ(failure(key, iv, ByteView(sealed).first(length)), CryptoFailure::badData) << length;
    }
    EXPECT_EQ(failure(key, iv, ByteView(sealed).first(16)), CryptoFailure::badData);  // no padding block
    EXPECT_EQ(failure(ByteView(key).first(16), iv, sealed), CryptoFailure::badParameter);
    EXPECT_EQ(failure(key, ByteView(iv).first(8), sealed), CryptoFailure::badParameter);
}

}  // namespace
}  // namespace crv
