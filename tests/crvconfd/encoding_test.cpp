#include "crvconfd/encoding.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>

namespace crv {
namespace {

/// Environment and encoding as they were, after the test.
class Encoding : public testing::Test {
  protected:
    static void forgetLocale() {
        for (const char* name : {"LANG", "LANGUAGE", "LC_MESSAGES", "LC_ALL"}) unsetenv(name);
    }
    void SetUp() override { forgetLocale(); }
    void TearDown() override {
        forgetLocale();
        plStandard("UTF8");
    }
};

TEST_F(Encoding, LanguageCodesAreReadAfterTheLastDotInAnyCase) {
    for (const auto& [value, letter] : {std::pair{"pl_PL.ISO8859-2", 'L'},
                                        {"ISO88592", 'L'},
                                        {"pl.x.utf8", 'U'},
                                        {"Utf-8", 'U'},
                                        {"WINDOWS1250", 'W'},
                                        {"pl_PL.CP1250", 'W'},
                                        {"windows-1250", 'W'},
                                        {"us-ascii", 'B'},
                                        {"ASCII", 'B'},
                                        {"posix", 'B'},
                                        {"C", 'B'},
                                        {"en_US.ISO8859-1", 'B'},
                                        {"pl_PL", '\0'},
                                        {"", '\0'},
                                        {"pl_PL.", '\0'},
                                        {"UTF-8.", '\0'},
                                        {"C.UTF-16", '\0'}}) {
        EXPECT_EQ(readLanguageCode(value), letter) << value;
    }
}

TEST_F(Encoding, FirstVariableThatIsSetDecides) {
    EXPECT_EQ(plStandard(), 'U');
    setenv("LC_ALL", "pl_PL.ISO8859-2", 1);
    EXPECT_EQ(plStandard(), 'L');
    setenv("LC_MESSAGES", "C", 1);
    EXPECT_EQ(plStandard(), 'B');
    setenv("LANGUAGE", "pl.cp1250", 1);
    EXPECT_EQ(plStandard(), 'W');
    setenv("LANG", "pl_PL", 1);
    EXPECT_EQ(plStandard(), 'U') << "a value that says nothing still decides";
    setenv("LANG", "", 1);
    EXPECT_EQ(plStandard(), 'U');
}

TEST_F(Encoding, ConversionFollowsItsTablesByteByByte) {
    const std::string polish = "\x8C\x8F\xAF\x9C\x9F\xBF\xA3\xA5\xB3\xB9\xC6\xCA\xD1\xD3\xE6\xEA\xF1\xF3";
    for (const auto& [name, letter, shown] :
         {std::tuple{"LATIN2", 'L',
                     std::string("\xA6\xAC\xAF\xB6\xBC\xBF\xA3\xA1\xB3\xB1\xC6\xCA\xD1\xD3\xE6\xEA\xF1\xF3")},
          {"WINDOWS", 'W', polish},
          {"UTF8", 'U', polish},
          {"UTF-8", 'U', polish},
          {"852", 'B', "SZZszzLAlaCENOceno"},
          {"utf8", 'B', "SZZszzLAlaCENOceno"}}) {
        EXPECT_EQ(plStandard(name), letter);
        EXPECT_EQ(pl(polish), shown) << name;
        EXPECT_EQ(pl("zwyk~y \x7f\x80\xff"), "zwyk~y \x7f\x80\xff") << name;
    }
    EXPECT_EQ(pl("ó"), "\xC3l") << "the table is applied to the bytes of UTF-8 too";
}

TEST_F(Encoding, TypedBytesBecomeUtf8) {
    for (const auto& [name, typed, result] : {std::tuple{"LATIN2", "z\xB1\xE6\xA6", "ząćŚ"},
                                              {"WINDOWS", "z\xB9\xE6\x8C\x80", "ząćŚ€"},
                                              {"WINDOWS", "\x81", "\x81"},
                                              {"UTF8", "ząć", "ząć"},
                                              {"ASCII", "\xB1", "\xB1"}}) {
        plStandard(name);
        std::array<char, 16> buffer{};
        std::strcpy(buffer.data(), typed);
        EXPECT_EQ(typedToUtf8(buffer.data(), static_cast<int>(std::strlen(typed)), buffer.size()),
                  static_cast<int>(std::strlen(result)));
        EXPECT_STREQ(buffer.data(), result) << name;
    }
    plStandard("LATIN2");
    std::array<char, 4> small{'\xB1', '\xB1', 0, 'x'};
    EXPECT_EQ(typedToUtf8(small.data(), 2, 4), -1);
    EXPECT_EQ(small[0], 0) << "what does not fit is wiped";
}

TEST_F(Encoding, ControlsAreReplacedBeforeTheyReachATerminal) {
    EXPECT_EQ(printable("a\x1b[1m\n\x7f\xC2\x9B\xC2\xA0ż"), "a?[1m???\xC2\xA0ż");
    EXPECT_EQ(printable("\xC2"), "\xC2");
}

}  // namespace
}  // namespace crv
