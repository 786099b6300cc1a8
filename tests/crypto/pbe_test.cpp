#include "crypto/pbe.h"

#include <chrono>
#include <map>

#include "crypto/crypto_test.h"
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

// pbe.txt comes from pbe.py: derivations written again in Python, ciphertexts of the openssl program.
TEST(Pbe, DerivationsAgreeWithTheVectors) {
    int cases = 0;
    for (const auto& f : vectorsOf("pbe.txt")) {
        const std::string& kind = f[0];
        if (kind != "pkcs12" && kind != "pbkdf2") continue;
        const Bytes password = unhex(f[3]);
        const Bytes salt = unhex(f[4]);
        const uint64_t iterations = std::stoull(f[5]);
        const size_t length = f[6].size() / 2;
        const SecretBytes out = kind == "pbkdf2"
                                    ? pbkdf2(kHashes.at(f[1]), password, salt, iterations, length)
                                    : pkcs12Derive(kHashes.at(f[1]), Pkcs12KeyId(std::stoi(f[2])),
                                                   utf16BePassword(asText(password)), salt, iterations, length);
        EXPECT_EQ(hex(out), f[6]) << kind << " " << f[1] << " " << f[2];
        ++cases;
    }
    EXPECT_EQ(cases, 7 * 9 + 5);
}

TEST(Pbe, DecryptsWhatAnotherProgramEncrypted) {
    int cases = 0;
    for (const auto& f : vectorsOf("pbe.txt")) {
        const std::string& kind = f[0];
        if (kind == "pkcs12" || kind == "pbkdf2") continue;
        const Bytes password = unhex(f[1]);
        const Bytes salt = unhex(f[2]);
        const uint64_t iterations = std::stoull(f[3]);
        const Bytes ciphertext = unhex(f[5]);
        SecretBytes plain;
        if (kind.starts_with("pbes2-")) {
            const size_t prf = kind.rfind('-');
            const Pbes2Params params{kHashes.at(kind.substr(prf + 1)), salt, iterations,
                                     kCiphers.at(kind.substr(6, prf - 6)), unhex(f[4])};
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
        return failureOf([&] { (void)decryptCbc(CipherAlgo::aes256Cbc, k, v, c); });
    };
    for (const size_t length : {0, 1, 15, 17, 31}) {
        EXPECT_EQ(failure(key, iv, ByteView(sealed).first(length)), CryptoFailure::badData) << length;
    }
    EXPECT_EQ(failure(key, iv, ByteView(sealed).first(16)), CryptoFailure::badData);  // no padding block
    EXPECT_EQ(failure(ByteView(key).first(16), iv, sealed), CryptoFailure::badParameter);
    EXPECT_EQ(failure(key, ByteView(iv).first(8), sealed), CryptoFailure::badParameter);
}

TEST(Hmac, PublishedVectors) {
    for (const auto& line : vectorsOf("hmac.txt")) {
        EXPECT_EQ(hex(hmac(static_cast<KcHashAlgo>(std::stoi(line.at(0))), unhex(line.at(1)), unhex(line.at(2)))),
                  line.at(3));
    }
}

}  // namespace
}  // namespace crv
