// The tree printer, and the tool around it.
#include "asn/tree_printer.h"

#include <gtest/gtest.h>

#include "asn/structure_kind.h"
#include "pkcs/data_file.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

TEST(TreePrinter, EveryKindOfValueHasItsLine) {
    struct Row {
        Bytes octets;
        const char* text;
    };
    const Row rows[] = {
        {{1, 1, 0xFF}, "      0       1  BOOLEAN TRUE\n"},
        {{2, 1, 0x80}, "      0       1  INTEGER -128\n"},
        {{2, 9, 1, 0, 0, 0, 0, 0, 0, 0, 2}, "      0       9  INTEGER 0x010000000000000002\n"},
        {{2, 0}, "      0       0  INTEGER malformed\n"},
        {{3, 2, 5, 0xA0}, "      0       2  BIT STRING 3 bits A0\n"},
        {{5, 0}, "      0       0  NULL\n"},
        {{6, 3, 0x55, 0x1D, 15}, "      0       3  OBJECT IDENTIFIER keyUsage (2.5.29.15)\n"},
        {{6, 2, 0x2A, 3}, "      0       2  OBJECT IDENTIFIER 1.2.3\n"},
        {{10, 1, 7}, "      0       1  ENUMERATED 7\n"},
        {{12, 4, 'a', 0x1B, 0xC4, 0x87}, "      0       4  UTF8String \"a\\1Bć\"\n"},
        {{30, 2, 1, 7}, "      0       2  BMPString \"ć\"\n"},
        {{23, 13, '7', '0', '0', '1', '0', '1', '0', '0', '0', '0', '0', '1', 'Z'},
         "      0      13  UTCTime \"700101000001Z\" 1970-01-01 00:00:01 UTC\n"},
        {{0x82, 1, 0x41}, "      0       1  [2] 41\n"},
        {{0xA1, 2, 5, 0}, "      0       2  [1]\n      2       0    NULL\n"},
        {{0x30, 0x80, 5, 0, 0, 0}, "      0   indef  SEQUENCE\n      2       0    NULL\n"},
        {{4, 2, 5, 0}, "      0       2  OCTET STRING\n      2       0    NULL\n"},
        {{3, 3, 0, 5, 0}, "      0       3  BIT STRING\n      3       0    NULL\n"},
        {{4, 2, 0x30, 1}, "      0       2  OCTET STRING 3001\n"},
        {{0x30, 3, 5, 0}, "      0       -  malformed\n"},
        {{0x30, 2, 5, 1}, "      0       2  SEQUENCE\n      2       -    malformed\n"},
    };
    for (const Row& row : rows) EXPECT_EQ(printTree(row.octets).text, row.text);
    EXPECT_EQ(printTree(rows[3].octets).whole, true);
    EXPECT_FALSE(printTree(Bytes{0x30, 3, 5, 0}).whole);
    EXPECT_EQ(printTree(Bytes{4, 3, 1, 2, 3}, {2, true}).text, "      0       3  OCTET STRING 0102...\n");
    EXPECT_EQ(printTree(Bytes{4, 2, 5, 0}, {2, false}).text, "      0       2  OCTET STRING 0500\n");
}

TEST(TreePrinter, DeepNestingEndsWithAMark) {
    Bytes deep;
    for (int i = 0; i < 5000; ++i) deep.insert(deep.end(), {0x30, 0x80});
    EXPECT_FALSE(printTree(deep).whole);
    Bytes strings;
    for (int i = 0; i < 300; ++i) {
        Bytes outer{4, 0x82, uint8_t(strings.size() >> 8), uint8_t(strings.size())};
        outer.insert(outer.end(), strings.begin(), strings.end());
        strings = outer;
    }
    EXPECT_TRUE(printTree(strings).text.size() < 100'000);
}

TEST(TreePrinter, StructuresAreToldApart) {
    constexpr std::pair<const char*, const char*> kRows[] = {
        {"crt_ec.der", "SignedCertificate"},      {"crl_full.der", "SignedCertRevList"},
        {"req_dsa.der", "CertificationRequest"},  {"pfx_nss.p12", "Pfx"},
        {"key_ec.der", "PrivateKeyInfo"},         {"enc_aes256.der", "EncryptedPrivateKeyInfo"},
        {"plain_rsa.der", "RSAPrivateKey"},       {"plain_dsa.der", "DSAPrivateKey"},
        {"plain_ecexplicit.der", "ECPrivateKey"}, {"cms_stream.der", "ContentInfo"},
        {"p7_bundle.der", "ContentInfo"},
    };
    for (const auto& [file, kind] : kRows) EXPECT_STREQ(structureKind(dataFile(file)), kind) << file;
    Bytes two = dataFile("crt_ec.der");
    const Bytes more = dataFile("crt_rsa.der");
    two.insert(two.end(), more.begin(), more.end());
    EXPECT_STREQ(structureKind(two), "SignedCertificate");
    for (const Bytes& none : {Bytes{}, Bytes{0x30, 0}, Bytes{5, 0, 5, 0}, Bytes(30, 0x30)})
        EXPECT_EQ(structureKind(none), nullptr);
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
    EXPECT_NE(shell("head -c 300 " + data + "/crl_rsa.der | " + tool, &status).find("malformed"), std::string::npos);
    EXPECT_NE(status, 0);
    static_cast<void>(shell(tool + "/nonexistent", &status));
    EXPECT_NE(status, 0);
    static_cast<void>(shell(tool + "-w x", &status));
    EXPECT_NE(status, 0);
}

}  // namespace
}  // namespace crv::test
