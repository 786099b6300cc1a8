#include <gtest/gtest.h>

#include "misc/base64_file.h"
#include "misc/memory_file.h"

namespace crv::test {
namespace {

std::string readAll(GenericFile& in) {
    std::string out;
    int octet = in.get();
    for (; octet >= 0; octet = in.get()) out += static_cast<char>(octet);
    return octet == GenericFile::kFailed ? out + "<failed>" : out;
}

TEST(Base64, BothWaysAndEveryMalformedText) {
    const std::pair<const char*, const char*> kRows[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xFF\xFE\xFD", "//79"}};
    for (const auto& [plain, coded] : kRows) {
        EXPECT_EQ(toBase64(asBytes(plain)), coded);
        EXPECT_EQ(asText(fromBase64(coded).value()), plain);
    }
    EXPECT_EQ(asText(*fromBase64(" Zm\r\n9v\t")), "foo");
    for (const char* bad : {"Z", "Zg", "Zg=", "Zg===", "Z===", "Zg=v", "Zg==Zg==", "Zm9v!", "Zm-v", "===="})
        EXPECT_FALSE(fromBase64(bad)) << bad;
}

TEST(Base64, PemBlocksOneAfterAnother) {
    const std::string octets(100, 'x'), one = toPem("A B", asBytes(octets));
    EXPECT_EQ(one.substr(0, 18), "-----BEGIN A B----");
    EXPECT_EQ(one.find('\n', 20), 20U + 64) << one;
    const std::string both = "text\r\n" + one + "between\n-----BEGIN C-----\r\nZg==\r\n-----END C-----";
    MemoryFile source(asBytes(both));
    std::string found, label;
    for (bool more = true; more;) {
        Base64Reader block(source, Base64Armour::Pem);
        more = block.findBlock();
        if (more) found += block.label() + ":" + readAll(block) + "\n";
    }
    EXPECT_EQ(found, "A B:" + octets + "\nC:f\n");
    EXPECT_TRUE(fromPem(one, &label));
    EXPECT_EQ(label, "A B");
    for (const char* bad : {"", "-----BEGIN A-----\nZg==\n", "-----BEGIN A-----\nZg==\n-----END B-----\n",
                            "-----BEGIN A-----\nZg=\n-----END A-----\n", "-----BEGIN A-----"})
        EXPECT_FALSE(fromPem(bad)) << bad;
}

}  // namespace
}  // namespace crv::test
