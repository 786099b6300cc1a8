// The rules for passwords.
#include "crvconfd/screens/password_quality.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace crv {
namespace {

TEST(PasswordQuality, TheFirstBrokenRuleDecides) {
    const std::pair<const char*, int> cases[] = {
        {"Abcdefg1", kPasswordGood},    {"Abcdefgó", kPasswordGood},    {"A\377\377\377\377\377\377b", kPasswordGood},
        {"Abcdefó", kPasswordGood},     {"", kPasswordTooShort},        {"Abc1", kPasswordTooShort},
        {"Abcdeó", kPasswordTooShort},  {"abcdefg1", kPasswordNoUpper}, {"12345678", kPasswordNoUpper},
        {"abcdefÓ1", kPasswordNoUpper}, {"ABCDEFG1", kPasswordNoLower}, {"ABCDEFÓ1", kPasswordNoLower},
        {"Abcdefgh", kPasswordNoOther}, {"ABCDEFGH", kPasswordNoOther}, {nullptr, kPasswordMissing}};
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
