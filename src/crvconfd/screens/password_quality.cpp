#include "crvconfd/screens/password_quality.h"

#include "crvconfd/toolkit/toolkit.h"

namespace crv {
namespace {

constexpr int kRulesRow = 22;
constexpr int kRulesTime = 50;  // tenths of a second

}  // namespace

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
