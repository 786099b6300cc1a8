#include "crvconfd/toolkit/encoding.h"

#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include "crvconfd/toolkit/toolkit.h"

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
    const std::pair<char, std::vector<const char*>> cases[] = {
        {'L', {"pl_PL.ISO8859-2", "ISO88592"}},
        {'U', {"pl.x.utf8", "Utf-8"}},
        {'W', {"WINDOWS1250", "pl_PL.CP1250", "windows-1250"}},
        {'B', {"us-ascii", "ASCII", "posix", "C", "en_US.ISO8859-1"}},
        {'\0', {"pl_PL", "", "pl_PL.", "UTF-8.", "C.UTF-16"}}};
    for (const auto& [letter, values] : cases)
        for (const char* value : values) EXPECT_EQ(readLanguageCode(value), letter) << value;
}

TEST_F(Encoding, FirstVariableThatIsSetDecides) {
    EXPECT_EQ(plStandard(), 'U');
    for (const auto& [name, value, letter] : {std::tuple{"LC_ALL", "pl_PL.ISO8859-2", 'L'},
                                              {"LC_MESSAGES", "C", 'B'},
                                              {"LANGUAGE", "pl.cp1250", 'W'},
                                              {"LANG", "pl_PL", 'U'},  // says nothing and still decides
                                              {"LANG", "", 'U'}}) {
        setenv(name, value, 1);
        EXPECT_EQ(plStandard(), letter) << name << value;
    }
}

TEST_F(Encoding, ConversionFollowsItsTablesByteByByte) {
    const std::string polish = "\x8C\x8F\xAF\x9C\x9F\xBF\xA3\xA5\xB3\xB9\xC6\xCA\xD1\xD3\xE6\xEA\xF1\xF3";
    const std::string latin2 = "\xA6\xAC\xAF\xB6\xBC\xBF\xA3\xA1\xB3\xB1\xC6\xCA\xD1\xD3\xE6\xEA\xF1\xF3";
    for (const auto& [name, letter, shown] : {std::tuple{"LATIN2", 'L', latin2},
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

TEST_F(Encoding, TextsAreFittedToTheColumnsThatTheirGlyphsTake) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    for (const auto& [text, fitted] : {std::pair{"żółw", "żół"}, {"日本", "日 "}, {"a日", "a日"}, {"", "   "}})
        EXPECT_EQ(fitText(text, 3), fitted);
    // A letter of an 8-bit encoding may look like the tail of a character in UTF-8.
    std::setlocale(LC_CTYPE, "C");
    for (const char* name : {"LATIN2", "ASCII"}) {
        plStandard(name);
        EXPECT_EQ(fitText("rz\xB9", 4), "rz\xB9 ") << name;
    }
}

TEST_F(Encoding, TypedBytesBecomeUtf8) {
    for (const auto& [name, typed, result] : {std::tuple{"LATIN2", "z\xB1\xE6\xA6", "ząćŚ"},
                                              {"WINDOWS", "z\xB9\xE6\x8C\x80", "ząćŚ€"},
                                              {"WINDOWS", "\x81", "\x81"},
                                              {"UTF8", "ząć", "ząć"},
                                              {"ASCII", "\xB1", "\xB1"}}) {
        plStandard(name);
        std::array<char, 16> buffer{};
        const int length = static_cast<int>(std::string(typed).copy(buffer.data(), buffer.size()));
        EXPECT_EQ(typedToUtf8(buffer.data(), length, buffer.size()), static_cast<int>(std::strlen(result)));
        EXPECT_STREQ(buffer.data(), result) << name;
    }
    plStandard("LATIN2");
    std::array<char, 4> small{'\xB1', '\xB1', 0, 'x'};
    EXPECT_EQ(typedToUtf8(small.data(), 2, 4), -1);
    EXPECT_EQ(small[0], 0) << "what does not fit is wiped";
}

TEST_F(Encoding, ControlsAreReplacedBeforeTheyReachATerminal) {
    EXPECT_EQ(printable("a\x1b[1m\n\x7f\xC2\x9B\xC2\xA0ż"), "a?[1m???\xC2\xA0ż");
    EXPECT_EQ(printable("a\u202Eb\u2066\xC2"), "a?b??") << "neither the direction of writing nor half a character";
}

}  // namespace
}  // namespace crv
