#include "crvconfd/screens/password_quality.h"

#include <cctype>
#include <cstring>

#include "crvconfd/toolkit/toolkit.h"

namespace crv {
namespace {

constexpr int kRulesRow = 22;
constexpr int kRulesTime = 50;  // tenths of a second

}  // namespace

int passTest(const char* password) {
    if (!password) return kPasswordMissing;
    const size_t length = std::strlen(password);
    if (length < static_cast<size_t>(kPasswordLength)) return kPasswordTooShort;
    size_t upper = 0;
    size_t lower = 0;
    size_t other = 0;
    for (size_t i = 0; i < length; ++i) {
        // The C library's tables reach from -128 on, so the byte goes in as the signed character that it is.
        const int byte = static_cast<signed char>(password[i]);
        if (std::isalpha(byte) == 0) {
            ++other;
        } else {
            ++(std::isupper(byte) != 0 ? upper : lower);
        }
    }
    if (upper == 0) return kPasswordNoUpper;
    if (other == 0) return kPasswordNoOther;
    return lower == 0 ? kPasswordNoLower : kPasswordGood;
}

int goodPassQuality(const char* password) {
    if (passTest(password) == kPasswordGood) return 1;
    clrToEol(kRulesRow, 0);
    clrToEol(kMessageRow, 0);
    displText(kRulesRow, 0, "Hasło musi mieć przynajmniej %d %s, mieć co najmniej jedną dużą literę,", kPasswordLength,
              declension(kPasswordLength, "znak", "znaki", "znaków"));
    displText(kMessageRow, 0, "jedną małą oraz jeden inny znak (cyfra lub inne) !!!");
    (void)waitForKeyOrTimeout(kRulesTime);
    clrToEol(kRulesRow, 0);
    clrToEol(kMessageRow, 0);
    return 0;
}

const char* declension(int count, const char* one, const char* few, const char* many) {
    if (count == 1) return one;
    return count >= 2 && count <= 4 ? few : many;
}

}  // namespace crv
