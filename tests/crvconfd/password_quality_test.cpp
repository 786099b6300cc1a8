// The rules for passwords.
#include "crvconfd/screens/password_quality.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace crv {
namespace {

TEST(PasswordQuality, TheFirstBrokenRuleDecides) {
    const std::pair<const char*, int> cases[] = {{"Abcdefg1", 0}, {"Abcdefgó", 0}, {"A\377\377\377\377\377\377b", 0},
                                                 {"Abcdefó", 0},  {"", 1},         {"Abc1", 1},
                                                 {"Abcdeó", 1},   {"abcdefg1", 2}, {"12345678", 2},
                                                 {"abcdefÓ1", 2}, {"ABCDEFG1", 3}, {"ABCDEFÓ1", 3},
                                                 {"Abcdefgh", 4}, {"ABCDEFGH", 4}, {nullptr, 5}};
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

}  // namespace
}  // namespace crv
