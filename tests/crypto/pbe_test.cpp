#include "crypto/pbe.h"

#include <chrono>
#include <map>

#include "crypto/crypto_test.h"

namespace crv {
namespace {

constexpr char kPlain[] = "The quick brown fox";

// pbe.txt comes from pbe.py: the derivations and ciphertexts of other programs.
TEST(Pbe, DerivesAndDecryptsAsOthersDo) {
    std::map<std::string, int> cases;
    for (const auto& f : vectorsOf("pbe.txt")) {
        const std::string& kind = f.at(0);
        const KcHashAlgo hash = algoOf(f.at(1));
        const int detail = std::stoi(f.at(2));
        const Bytes password = unhex(f.at(3)), salt = unhex(f.at(4)), iv = unhex(f.at(6)), output = unhex(f.at(7));
        const SecretBytes utf16 = utf16BePassword(asText(password));
        const uint64_t iterations = std::stoull(f.at(5));
        SCOPED_TRACE(kind + " " + f[1] + " " + f[2]);
        if (kind == "pkcs12") {
            EXPECT_EQ(hex(pkcs12Derive(hash, Pkcs12KeyId(detail), utf16, salt, iterations, output.size())), f[7]);
        } else if (kind == "pbkdf2") {
            EXPECT_EQ(hex(deriveKey(Pbkdf2Params{PrfAlgo(hash), salt, iterations}, password, output.size())), f[7]);
        } else if (kind == "pbe") {
            EXPECT_EQ(asText(pbeDecrypt(cipherOf(PbeAlgo(detail)), utf16, salt, iterations, output)), kPlain);
            EXPECT_EQ(pbeEncrypt(PbeAlgo(detail), utf16, salt, iterations, asBytes(kPlain)), output);
        } else {
            const auto cipher = static_cast<CipherAlgo>(detail);
            const SecretBytes key = deriveKey(Pbkdf2Params{static_cast<PrfAlgo>(hash), salt, iterations}, password,
                                              cipherKeyLength(cipher));
            EXPECT_EQ(asText(decipher(cipher, key, iv, output)), kPlain);
        }
        ++cases[kind];
    }
    EXPECT_EQ(cases, (std::map<std::string, int>{{"pkcs12", 7 * 9}, {"pbkdf2", 5}, {"pbe", 2}, {"pbes2", 4}}));
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
        const Pbkdf2Params absurd{PrfAlgo::Sha256, {}, count};
        EXPECT_THROW((void)deriveKey(absurd, {}, 32), CryptoError);
        EXPECT_THROW((void)pkcs12Derive(KcHashAlgo::Sha1, Pkcs12KeyId::MacKey, {}, {}, count, 20), CryptoError);
        EXPECT_THROW((void)pbeDecrypt(CipherAlgo::TripleDesCbc, {}, {}, count, Bytes(8)), CryptoError);
    }
    EXPECT_THROW((void)deriveKey(Pbkdf2Params{PrfAlgo::Sha256, {}, 1}, {}, size_t{1} << 40), CryptoError);
    EXPECT_THROW((void)pkcs12Derive(KcHashAlgo::Ripemd128, Pkcs12KeyId::MacKey, {}, {}, 1, 16), CryptoError);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(Cipher, RefusesBrokenBlocksPaddingsAndLengths) {
    const Bytes key(32, 1);
    const Bytes iv(16, 2);
    const Bytes sealed = encipher(CipherAlgo::Aes256Cbc, key, iv, asBytes(kPlain));
    EXPECT_EQ(sealed.size(), 32u);
    EXPECT_EQ(asText(decipher(CipherAlgo::Aes256Cbc, key, iv, sealed)), kPlain);
    EXPECT_EQ(encipher(CipherAlgo::Aes256Cbc, key, iv, {}).size(), 16u);
    const auto failure = [&](ByteView k, ByteView v, ByteView c) {
        return failureOf([&] { (void)decipher(CipherAlgo::Aes256Cbc, k, v, c); });
    };
    for (const size_t length : {0, 1, 15, 17, 31}) {
        EXPECT_EQ(failure(key, iv, ByteView(sealed).first(length)), CryptoFailure::BadData) << length;
    }
    EXPECT_EQ(failure(key, iv, ByteView(sealed).first(16)), CryptoFailure::BadData);  // no padding block
    EXPECT_EQ(failure(ByteView(key).first(16), iv, sealed), CryptoFailure::BadParameter);
    EXPECT_EQ(failure(key, ByteView(iv).first(8), sealed), CryptoFailure::BadParameter);
}

TEST(Cipher, LongCiphertextsAreDecipheredInHalves) {
    const Bytes key = unhex("0123456789abcdeffedcba98765432100011223344556677"), iv(8, 2);
    for (const size_t length : {4090, 4096, 4097, 13'001}) {
        Bytes plain(length);
        for (size_t i = 0; i < length; ++i) plain[i] = static_cast<uint8_t>(i * 7 + i / 256);
        const Bytes sealed = encipher(CipherAlgo::TripleDesCbc, key, iv, plain);
        EXPECT_TRUE(std::ranges::equal(decipher(CipherAlgo::TripleDesCbc, key, iv, sealed), plain)) << length;
        const auto failure = [&](ByteView vector, ByteView octets) {
            return failureOf([&] { (void)decipher(CipherAlgo::TripleDesCbc, key, vector, octets); });
        };
        for (const size_t missing : {1, 4, 7})
            EXPECT_EQ(failure(iv, ByteView(sealed).first(sealed.size() - missing)), CryptoFailure::BadData) << length;
        for (const size_t wrong : {0, 7})
            EXPECT_EQ(failure(ByteView(iv).first(wrong), sealed), CryptoFailure::BadParameter);
    }
}

}  // namespace
}  // namespace crv
