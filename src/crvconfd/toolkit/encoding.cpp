#include "crvconfd/toolkit/encoding.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "misc/ascii.h"
#include "misc/secret.h"
#include "misc/utf8.h"
#include "misc/windows1250.h"

namespace crv {

using namespace std::string_view_literals;

namespace {

DisplayEncoding current = DisplayEncoding::Utf8;

constexpr std::array<std::pair<std::string_view, DisplayEncoding>, 12> kLanguageCodes{{
    {"ISO8859-2", DisplayEncoding::Latin2},
    {"ISO88592", DisplayEncoding::Latin2},
    {"UTF8", DisplayEncoding::Utf8},
    {"UTF-8", DisplayEncoding::Utf8},
    {"windows1250", DisplayEncoding::Windows1250},
    {"cp1250", DisplayEncoding::Windows1250},
    {"windows-1250", DisplayEncoding::Windows1250},
    {"US-ASCII", DisplayEncoding::Ascii},
    {"ASCII", DisplayEncoding::Ascii},
    {"POSIX", DisplayEncoding::Ascii},
    {"C", DisplayEncoding::Ascii},
    {"ISO8859-1", DisplayEncoding::Ascii},
}};

constexpr std::array<std::pair<std::string_view, DisplayEncoding>, 4> kStandards{{
    {"LATIN2", DisplayEncoding::Latin2},
    {"WINDOWS", DisplayEncoding::Windows1250},
    {"UTF8", DisplayEncoding::Utf8},
    {"UTF-8", DisplayEncoding::Utf8},
}};

constexpr std::array<std::pair<unsigned char, char>, 18> kBaseLetters{{
    {0x8C, 'S'},
    {0x8F, 'Z'},
    {0xAF, 'Z'},
    {0x9C, 's'},
    {0x9F, 'z'},
    {0xBF, 'z'},
    {0xA3, 'L'},
    {0xA5, 'A'},
    {0xB3, 'l'},
    {0xB9, 'a'},
    {0xC6, 'C'},
    {0xCA, 'E'},
    {0xD1, 'N'},
    {0xD3, 'O'},
    {0xE6, 'c'},
    {0xEA, 'e'},
    {0xF1, 'n'},
    {0xF3, 'o'},
}};

constexpr std::array<std::pair<unsigned char, unsigned char>, 6> kLatin2{
    {{0x8C, 0xA6}, {0x8F, 0xAC}, {0x9C, 0xB6}, {0x9F, 0xBC}, {0xA5, 0xA1}, {0xB9, 0xB1}}};

// ISO 8859-2 from 0xA0 up as Unicode code points.
constexpr std::u16string_view kLatin2From0xA0 =
    u"\u00A0\u0104\u02D8\u0141\u00A4\u013D\u015A\u00A7\u00A8\u0160\u015E\u0164\u0179\u00AD\u017D\u017B"
    u"\u00B0\u0105\u02DB\u0142\u00B4\u013E\u015B\u02C7\u00B8\u0161\u015F\u0165\u017A\u02DD\u017E\u017C"sv;

/// Code point of a byte from 0x80 up in an 8-bit encoding; 0 when it has none.
char16_t codePoint(unsigned char byte, DisplayEncoding encoding) {
    // From 0xC0 up both encodings agree.
    if (encoding == DisplayEncoding::Windows1250 || byte >= 0xC0) return kWindows1250High[byte - 0x80U];
    return byte >= 0xA0 ? kLatin2From0xA0[byte - 0xA0U] : byte;
}

template <typename Table, typename Value>
Value lookUp(const Table& table, unsigned char byte, Value otherwise) {
    const auto* row =
        std::find_if(table.begin(), table.end(), [byte](const auto& entry) { return entry.first == byte; });
    return row == table.end() ? otherwise : static_cast<Value>(row->second);
}

DisplayEncoding detect() {
    for (const char* variable : {"LANG", "LANGUAGE", "LC_MESSAGES", "LC_ALL"}) {
        const char* value = std::getenv(variable);
        if (!value) continue;
        const char letter = readLanguageCode(value);
        return letter == 0 ? DisplayEncoding::Utf8 : static_cast<DisplayEncoding>(letter);
    }
    return DisplayEncoding::Utf8;
}

DisplayEncoding named(std::string_view name) {
    for (const auto& [standard, encoding] : kStandards) {
        if (standard == name) return encoding;
    }
    return DisplayEncoding::Ascii;
}

}  // namespace

DisplayEncoding displayEncoding() {
    return current;
}

char plStandard(const char* name) {
    current = name ? named(name) : detect();
    return static_cast<char>(current);
}

char readLanguageCode(std::string_view value) {
    const std::string_view code = value.substr(value.rfind('.') + 1);
    for (const auto& [known, encoding] : kLanguageCodes) {
        if (equalIgnoreCase(known, code)) return static_cast<char>(encoding);
    }
    return 0;
}

unsigned char replaceNoPolish(unsigned char byte) {
    return lookUp(kBaseLetters, byte, byte);
}

std::string pl(std::string_view text) {
    std::string shown(text);
    if (current != DisplayEncoding::Ascii && current != DisplayEncoding::Latin2) return shown;
    for (char& c : shown) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) continue;
        c = static_cast<char>(current == DisplayEncoding::Ascii ? replaceNoPolish(byte) : lookUp(kLatin2, byte, byte));
    }
    return shown;
}

namespace {

/// In an 8-bit encoding the octets need not be UTF-8: only what controls a terminal goes.
std::string printableOctets(std::string_view text) {
    std::string result(text);
    for (size_t i = 0; i < result.size(); ++i) {
        const auto byte = static_cast<unsigned char>(result[i]);
        const auto next = static_cast<unsigned char>(i + 1 < result.size() ? result[i + 1] : 0);
        if (byte < 0x20 || byte == 0x7F) result[i] = '?';
        if (byte == 0xC2 && next >= 0x80 && next < 0xA0) result.replace(i, 2, "?");
    }
    return result;
}

}  // namespace

std::string printable(std::string_view text) {
    return current == DisplayEncoding::Utf8 ? harmlessUtf8(text) : printableOctets(text);
}

int typedToUtf8(char* buffer, int length, int size) {
    buffer[length] = 0;
    if (current != DisplayEncoding::Latin2 && current != DisplayEncoding::Windows1250) return length;
    // A byte becomes at most three.
    std::array<char, 3 * 1024> converted;
    char* out = converted.data();
    bool fits = static_cast<size_t>(length) * 3 <= converted.size();
    for (int i = 0; fits && i < length; ++i) {
        const auto byte = static_cast<unsigned char>(buffer[i]);
        const char16_t code = byte < 0x80 ? byte : codePoint(byte, current);
        if (byte < 0x80 || code == 0) {
            *out++ = buffer[i];
        } else {
            const Utf8Character character = toUtf8(code);
            out = std::ranges::copy(character.view(), out).out;
        }
    }
    const auto used = static_cast<int>(out - converted.data());
    fits = fits && used < size;
    wipeMemory(buffer, static_cast<size_t>(length));
    if (fits) {
        std::memcpy(buffer, converted.data(), static_cast<size_t>(used));
        buffer[used] = 0;
    }
    wipeMemory(converted.data(), converted.size());
    return fits ? used : -1;
}

}  // namespace crv
