#include "crypto/pbe.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <map>
#include <sstream>

#include "crypto/crypto_error.h"
#include "crypto/hex.h"
#include "crypto/hmac.h"

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

struct Line {
    std::string kind;
    std::vector<std::string> fields;
};

// pbe.txt comes from pbe.py: derivations written again in Python, ciphertexts of the openssl program.
std::vector<Line> vectors() {
    std::ifstream file(CRV_TEST_DATA "/pbe.txt");
    std::vector<Line> lines;
    for (std::string text; std::getline(file, text);) {
        std::istringstream in(text);
        Line line;
        in >> line.kind;
        for (std::string field; in >> field;) line.fields.push_back(field == "-" ? "" : field);
        lines.push_back(line);
    }
    return lines;
}

TEST(Pbe, DerivationsAgreeWithTheVectors) {
    int cases = 0;
    for (const auto& [kind, f] : vectors()) {
        if (kind != "pkcs12" && kind != "pbkdf2") continue;
        const Bytes password = unhex(f[2]);
        const Bytes salt = unhex(f[3]);
        const uint64_t iterations = std::stoull(f[4]);
        const size_t length = f[5].size() / 2;
        const SecretBytes out = kind == "pbkdf2"
                                    ? pbkdf2(kHashes.at(f[0]), password, salt, iterations, length)
                                    : pkcs12Derive(kHashes.at(f[0]), Pkcs12KeyId(std::stoi(f[1])),
                                                   utf16BePassword(asText(password)), salt, iterations, length);
        EXPECT_EQ(hex(out), f[5]) << kind << " " << f[0] << " " << f[1];
        ++cases;
    }
    EXPECT_EQ(cases, 7 * 9 + 5);
}

TEST(Pbe, DecryptsWhatAnotherProgramEncrypted) {
    int cases = 0;
    for (const auto& [kind, f] : vectors()) {
        if (kind == "pkcs12" || kind == "pbkdf2") continue;
        const Bytes password = unhex(f[0]);
        const Bytes salt = unhex(f[1]);
        const uint64_t iterations = std::stoull(f[2]);
        const Bytes ciphertext = unhex(f[4]);
        SecretBytes plain;
        if (kind.starts_with("pbes2-")) {
            const size_t prf = kind.rfind('-');
            const Pbes2Params params{kHashes.at(kind.substr(prf + 1)), salt, iterations,
                                     kCiphers.at(kind.substr(6, prf - 6)), unhex(f[3])};
            plain = pbes2Decrypt(params, password, ciphertext);
        } else {
            const PbeAlgo algo = kind == "sha1-3des" ? PbeAlgo::sha1TripleDesCbc : PbeAlgo::sha1Rc2Cbc40;
            const SecretBytes utf16 = utf16BePassword(asText(password));
            plain = pbeDecrypt(algo, utf16, salt, iterations, ciphertext);
            EXPECT_EQ(pbeEncrypt(algo, utf16, salt, iterations, plain), ciphertext);
        }
        EXPECT_EQ(asText(plain), kPlain) << kind;
        ++cases;
    }
    EXPECT_EQ(cases, 6);
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
        const auto refused = [](auto call) { EXPECT_THROW((void)call(), CryptoError); };
        refused([&] { return pbkdf2(KcHashAlgo::sha256, {}, {}, count, 32); });
        refused([&] { return pkcs12Derive(KcHashAlgo::sha1, Pkcs12KeyId::macKey, {}, {}, count, 20); });
        refused([&] { return pbeDecrypt(PbeAlgo::sha1TripleDesCbc, {}, {}, count, Bytes(8)); });
        refused([&] {
            return pbes2Decrypt({KcHashAlgo::sha1, {}, count, CipherAlgo::aes128Cbc, Bytes(16)}, {}, Bytes(16));
        });
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
        try {
            (void)decryptCbc(CipherAlgo::aes256Cbc, k, v, c);
        } catch (const CryptoError& e) {
            return e.failure();
        }
        return CryptoFailure::internal;
    };
    for (const size_t length : {0, 1, 15, 17, 31}) {
        EXPECT_EQ(failure(key, iv, ByteView(sealed).first(length)), CryptoFailure::badData) << length;
    }
    EXPECT_EQ(failure(key, iv, ByteView(sealed).first(16)), CryptoFailure::badData);  // no padding block
    EXPECT_EQ(failure(ByteView(key).first(16), iv, sealed), CryptoFailure::badParameter);
    EXPECT_EQ(failure(key, ByteView(iv).first(8), sealed), CryptoFailure::badParameter);
}

// RFC 2202 (MD5, SHA-1), RFC 4231 (SHA-2), the HMAC-RIPEMD test vectors of RFC 2286.
TEST(Hmac, PublishedVectors) {
    const std::tuple<KcHashAlgo, Bytes, std::string, const char*> cases[] = {
        {KcHashAlgo::md5, unhex("4a656665"), "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {KcHashAlgo::sha1, Bytes(20, 0x0b), "Hi There", "b617318655057264e28bc0b6fb378c8ef146be00"},
        {KcHashAlgo::sha1, Bytes(80, 0xaa), "Test Using Larger Than Block-Size Key - Hash Key First",
         "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
        {KcHashAlgo::sha256, Bytes(20, 0x0b), "Hi There",
         "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {KcHashAlgo::sha512, unhex("4a656665"), "what do ya want for nothing?",
         "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea2505549758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6"
         "b4"
         "b636e070a38bce737"},
        {KcHashAlgo::ripemd160, Bytes(20, 0x0b), "Hi There", "24cb4bd67d20fc1a5d2ed7732dcc39377f0a5668"},
        {KcHashAlgo::ripemd128, Bytes(16, 0x0b), "Hi There", "fbf61f9492aa4bbf81c172e84e0734db"},
    };
    for (const auto& [algo, key, message, mac] : cases) EXPECT_EQ(hex(hmac(algo, key, asBytes(message))), mac);
}

}  // namespace
}  // namespace crv
