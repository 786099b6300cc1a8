#include "crvconfd/screens/password_quality.h"

#include "crvconfd/engines/text_view.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {
namespace {

constexpr int kRulesTime = 50;  // tenths of a second

}  // namespace

int goodPassQuality(const char* password) {
    if (passTest(password) == kPasswordGood) return 1;
    const std::string count =
        std::to_string(kPasswordLength) + " " + declension(kPasswordLength, "znak", "znaki", "znaków");
    const std::string first = "Hasło musi mieć przynajmniej " + count + ", mieć co najmniej jedną dużą literę,";
    const std::string second = "jedną małą oraz jeden inny znak (cyfra lub inne) !!!";
    // On two rows as always, on a narrow terminal on those that it takes.
    std::vector<std::string> lines{first, second};
    const auto width = static_cast<size_t>(shownColumns());
    if (columnsOf(first) > width) lines = wrapText(first + " " + second, width);
    const int top = kMessageRow + 1 - static_cast<int>(lines.size());
    const auto clear = [top] {
        for (int row = top; row <= kMessageRow; ++row) clrToEol(row, 0);
    };
    dropTypedKeys();
    clear();
    for (size_t i = 0; i < lines.size(); ++i) displText(top + static_cast<int>(i), 0, "%s", lines[i].c_str());
    (void)waitForKeyOrTimeout(kRulesTime);
    clear();
    return 0;
}

const char* declension(int count, const char* one, const char* few, const char* many) {
    if (count == 1) return one;
    return count >= 2 && count <= 4 ? few : many;
}

}  // namespace crv
