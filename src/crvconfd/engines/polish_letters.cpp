#include "crvconfd/engines/polish_letters.h"

#include <algorithm>

#include "asn/x509/name_prep.h"
#include "misc/ascii.h"
#include "misc/utf8.h"

namespace crv {

namespace {

struct Accented {
    char32_t letter, capital;
    char plain;
    char behind;  ///< what puts it behind every word of the plain letter
};
constexpr Accented kAccented[] = {{U'ą', U'Ą', 'a', '\x7F'}, {U'ć', U'Ć', 'c', '\x7F'}, {U'ę', U'Ę', 'e', '\x7F'},
                                  {U'ł', U'Ł', 'l', '\x7F'}, {U'ń', U'Ń', 'n', '\x7F'}, {U'ó', U'Ó', 'o', '\x7F'},
                                  {U'ś', U'Ś', 's', '\x7F'}, {U'ź', U'Ź', 'z', '\x7E'}, {U'ż', U'Ż', 'z', '\x7F'}};

const Accented* accented(char32_t character) {
    const auto* const found = std::ranges::find_if(
        kAccented, [&](const Accented& row) { return row.letter == character || row.capital == character; });
    return found == std::end(kAccented) ? nullptr : found;
}

}  // namespace

char plainLetter(char32_t character) {
    if (const Accented* row = accented(character)) return row->plain;
    const char32_t lower = asciiLower(character);
    const bool known = (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9');
    return known ? static_cast<char>(lower) : '\0';
}

std::string polishSortKey(std::string_view text) {
    const std::string folded = preparedText(text);
    std::string key;
    for (std::string_view rest = folded; !rest.empty();) {
        const char32_t character = takeUtf8(rest);
        if (const Accented* row = accented(character)) {
            key += {row->plain, row->behind};
        } else {
            appendUtf8(key, character);
        }
    }
    return key;
}

}  // namespace crv
