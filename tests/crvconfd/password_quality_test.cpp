// The rules for passwords.
#include "crvconfd/password_quality.h"

#include <gtest/gtest.h>

#include <clocale>

#include "support/screen/screen_program.h"

namespace crv::test {
namespace {

TEST(PasswordQuality, TheFirstBrokenRuleDecides) {
    const std::pair<const char*, int> cases[] = {
        {"Abcdefg1", 0},
        {"abcdefg1", 2},
        {"ABCDEFGH", 4},
        {"ABCDEFG1", 3},
        {"Abc1", 1},
        {"abcdefgh", 2},
        {"", 1},
        {nullptr, 5},
        {"12345678", 2},
        {"Abcdefgh", 4},
        {"Abcdefgó", 0},
        {"Abcdeó", 1},
        {"Abcdefó", 0},  // eight bytes
        {"ABCDEFÓ1", 3},
        {"abcdefÓ1", 2},
        {"A\xff\xff\xff\xff\xff\xff"
         "b",
         0},
    };
    for (const char* locale : {"C", "C.UTF-8"}) {
        ASSERT_NE(std::setlocale(LC_CTYPE, locale), nullptr);
        for (const auto& [password, fault] : cases)
            EXPECT_EQ(passTest(password), fault) << (password ? password : "null") << " in " << locale;
    }
    std::setlocale(LC_CTYPE, "C");
}

TEST(PasswordQuality, CountsInPolish) {
    std::string forms;
    for (const int count : {0, 1, 2, 4, 5, 8, 12, 22})
        forms += std::string(declension(count, "znak", "znaki", "znaków")) + " ";
    EXPECT_EQ(forms, "znaków znak znaki znaki znaków znaków znaków znaków ");
}

TEST(PasswordQuality, TheRulesAreShownAndTakenAway) {
    ScreenProgram demo({.arguments = {CRV_BIN_DIR "/toolkit_demo", "0", "quality", "Abcdefg"}, .environment = {}});
    demo.waitFor("jedną małą");
    EXPECT_EQ(demo.row(22), "Hasło musi mieć przynajmniej 8 znaków, mieć co najmniej jedną dużą literę,");
    EXPECT_EQ(demo.row(23), "jedną małą oraz jeden inny znak (cyfra lub inne) !!!");
    demo.send("x");
    demo.waitFor("= 0");
    EXPECT_EQ(demo.row(22), "");
    EXPECT_EQ(demo.row(23), "");
}

}  // namespace
}  // namespace crv::test
