// The tree printer, and the tool around it.
#include "crvasn/tree_printer.h"

#include <gtest/gtest.h>

#include "pkcs/data_file.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

TEST(TreePrinter, EveryKindOfValueHasItsLine) {
    // An element's octets, what is printed behind offset and length.
    const std::pair<Bytes, const char*> values[] = {
        {{1, 1, 0xFF}, "BOOLEAN TRUE"},
        {{2, 1, 0x80}, "INTEGER -128"},
        {{2, 9, 1, 0, 0, 0, 0, 0, 0, 0, 2}, "INTEGER 0x010000000000000002"},
        {{2, 0}, "INTEGER malformed"},
        {{3, 2, 5, 0xA0}, "BIT STRING 3 bits A0"},
        {{5, 0}, "NULL"},
        {{6, 3, 0x55, 0x1D, 15}, "OBJECT IDENTIFIER keyUsage (2.5.29.15)"},
        {{10, 1, 7}, "ENUMERATED 7"},
        {{12, 4, 'a', 0x1B, 0xC4, 0x87}, "UTF8String \"a\\1Bć\""},
        {{30, 2, 1, 7}, "BMPString \"ć\""},
        {{23, 11, '7', '0', '0', '1', '0', '1', '0', '0', '0', '1', 'Z'},
         "UTCTime \"7001010001Z\" 1970-01-01 00:01:00 UTC"},
        {{0x82, 1, 0x41}, "[2] 41"},
        {{0xA1, 2, 5, 0}, "[1]\n      2       0    NULL"},
        {{4, 2, 5, 0}, "OCTET STRING\n      2       0    NULL"},
        {{3, 3, 0, 5, 0}, "BIT STRING\n      3       0    NULL"},
        {{4, 2, 0x30, 1}, "OCTET STRING 3001"},
        {{0x30, 2, 5, 1}, "SEQUENCE\n      2       -    malformed"},
    };
    for (const auto& [octets, text] : values) {
        const std::string length = std::to_string(octets.size() - 2);
        EXPECT_EQ(printTree(octets).text,
                  "      0 " + std::string(7 - length.size(), ' ') + length + "  " + text + "\n");
    }
    EXPECT_EQ(printTree(Bytes{0x30, 0x80, 5, 0, 0, 0}).text, "      0   indef  SEQUENCE\n      2       0    NULL\n");
    EXPECT_EQ(printTree(Bytes{0x30, 3, 5, 0}).text,
              "      0       3  SEQUENCE\n      2       0    NULL\n      4       -    cut off\n");
    EXPECT_EQ(printTree(Bytes{0x30, 4, 4, 2, 1}).text, "      0       4  SEQUENCE\n      2       -    cut off\n");
    EXPECT_EQ(printTree(Bytes{0x7F, 0x81, 0x05, 4, 0x9F, 0x1F, 1, 9}).text,
              "      0       4  [APPLICATION 133]\n      4       1    [31] 09\n");
    EXPECT_FALSE(printTree(Bytes{0x30, 3, 5, 0}).whole);
    EXPECT_TRUE(printTree(Bytes{2, 0}).whole);
    EXPECT_EQ(printTree(Bytes{4, 3, 1, 2, 3}, {2, true}).text, "      0       3  OCTET STRING 0102...\n");
    EXPECT_EQ(printTree(Bytes{4, 2, 5, 0}, {2, false}).text, "      0       2  OCTET STRING 0500\n");
}

TEST(TreePrinter, DeepNestingEndsWithAMark) {
    Bytes deep;
    for (int i = 0; i < 5000; ++i) deep.insert(deep.end(), {0x30, 0x80});
    EXPECT_FALSE(printTree(deep).whole);
    Bytes strings;
    for (int i = 0; i < 300; ++i) {
        Bytes outer{4, 0x82, static_cast<uint8_t>(strings.size() >> 8), static_cast<uint8_t>(strings.size())};
        outer.insert(outer.end(), strings.begin(), strings.end());
        strings = outer;
    }
    EXPECT_TRUE(printTree(strings).text.size() < 100'000);
}

TEST(TreePrinter, ToolReadsDerPemAndBase64) {
    const std::string data = CRV_TEST_DATA;
    const std::string tool = std::string(CRV_BIN_DIR) + "/crvasn ";
    int status = -1;
    const std::string der = shell(tool + data + "/crl_rsa.der", &status);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(der.starts_with("# SignedCertRevList\n      0 ")) << der;
    EXPECT_NE(der.find("sha256WithRSAEncryption (1.2.840.113549.1.1.11)"), std::string::npos) << der;
    EXPECT_EQ(shell("base64 " + data + "/crl_rsa.der | " + tool), der);
    EXPECT_EQ(shell("(echo text; openssl crl -inform DER -in " + data + "/crl_rsa.der) | " + tool + "-"),
              "# PEM X509 CRL\n" + der);
    EXPECT_NE(shell("head -c 300 " + data + "/crl_rsa.der | " + tool, &status).find("   cut off\n"), std::string::npos);
    EXPECT_NE(status, 0);
    const std::string number = "(echo 01 Root CA; openssl crl -inform DER -in " + data + "/crl_rsa.der) | " + tool;
    EXPECT_EQ(shell(number), "# PEM X509 CRL\n" + der) << "a digit that looks like a SEQUENCE";
    for (const char* bad : {"/nonexistent", "-w x"}) {
        static_cast<void>(shell(tool + bad, &status));
        EXPECT_NE(status, 0) << bad;
    }
}

}  // namespace
}  // namespace crv::test
