#include "crvconfd/engines/entry.h"

#include <algorithm>
#include <array>

#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/line_editor.h"
#include "misc/utf8.h"

namespace crv {

namespace {

constexpr size_t kFieldSize = 256;
constexpr int kSpace = 32;

/// What is wrong with a password as it was entered; null when nothing is.
const char* faultOf(std::array<char, kFieldSize>& field, int length, int& utf8Length) {
    utf8Length = typedToUtf8(field.data(), length, static_cast<int>(field.size()));
    if (utf8Length < 0) return "Hasło jest za długie";
    // Backspace takes single octets, so half of a character may be left.
    if (!isUtf8({field.data(), static_cast<size_t>(utf8Length)}))
        return "Hasło zawiera niepełny znak, wpisz je jeszcze raz";
    return nullptr;
}

}  // namespace

std::optional<std::string> askLine(const char* prompt, size_t longest, bool word, const std::string& start,
                                   const LineKey& other) {
    for (std::string begun = start;;) {
        LineEditor line(begun, longest);
        const LineField field{kMessageRow, 0, prompt, 0, word ? kSpace + 1 : kSpace};
        if (!editLine(field, line, other)) return std::nullopt;
        if (!line.lost()) return line.text();
        errInfo(kMessageRow, "Tekst jest za długi, mieści się najwyżej %zu znaków", longest);
        begun = line.text();
    }
}

std::optional<SecretText> askPassword(const char* prompt, size_t longest, const PasswordRule& rule) {
    for (;;) {
        std::array<char, kFieldSize> field{};
        const WipeGuard guard(field.data(), field.size());
        const int size = static_cast<int>(std::min(longest + 1, field.size()));
        bool lost = false;
        const int length = inputPassword(kMessageRow, 0, prompt, field.data(), size, '*', false, &lost);
        clrToEol(kMessageRow, 0);
        if (length < 0) return std::nullopt;
        if (lost) {
            errInfo(kMessageRow, "Hasło jest za długie, mieści się najwyżej %d znaków", size - 1);
            continue;
        }
        if (rule && !rule(field.data())) continue;
        int utf8Length = 0;
        if (const char* fault = faultOf(field, length, utf8Length)) {
            errInfo(kMessageRow, "%s", fault);
            continue;
        }
        return SecretText({field.data(), static_cast<size_t>(utf8Length)});
    }
}

}  // namespace crv
