#include "asn/x509/name_prep.h"

#include <unicase.h>
#include <uninorm.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "misc/ascii.h"
#include "misc/utf8.h"

namespace crv {

namespace {

struct Range {
    char32_t first, last;
};

/// Mapped to nothing (RFC 4518 2.2).
constexpr Range kIgnored[] = {
    {0x0000, 0x0008}, {0x000E, 0x001F}, {0x007F, 0x0084},   {0x0086, 0x009F},   {0x00AD, 0x00AD},
    {0x034F, 0x034F}, {0x06DD, 0x06DD}, {0x070F, 0x070F},   {0x1806, 0x1806},   {0x180B, 0x180E},
    {0x200B, 0x200F}, {0x202A, 0x202E}, {0x2060, 0x2063},   {0x206A, 0x206F},   {0xFE00, 0xFE0F},
    {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFC}, {0x1D173, 0x1D17A}, {0xE0001, 0xE0001}, {0xE0020, 0xE007F},
};

/// Mapped to a space (2.2); the ASCII one stays what it is.
constexpr Range kSpaces[] = {
    {0x0009, 0x000D}, {0x0085, 0x0085}, {0x00A0, 0x00A0}, {0x1680, 0x1680}, {0x2000, 0x200A},
    {0x2028, 0x2029}, {0x202F, 0x202F}, {0x205F, 0x205F}, {0x3000, 0x3000},
};

template <size_t N>
bool isIn(const Range (&ranges)[N], char32_t c) {
    return std::ranges::any_of(ranges, [&](const Range& range) { return range.first <= c && c <= range.last; });
}

bool isPlain(char c) {
    return c >= 0x20 && c < 0x7F;
}

std::string mapped(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    while (!utf8.empty()) {
        if (isPlain(utf8.front())) {
            out += utf8.front();
            utf8.remove_prefix(1);
            continue;
        }
        const char32_t c = takeUtf8(utf8);
        if (!isIn(kIgnored, c)) appendUtf8(out, isIn(kSpaces, c) ? U' ' : c);
    }
    return out;
}

std::string folded(std::string_view utf8) {
    size_t length = 0;
    const std::unique_ptr<uint8_t, void (*)(void*)> text(
        u8_casefold(reinterpret_cast<const uint8_t*>(utf8.data()), utf8.size(), nullptr, UNINORM_NFKC, nullptr,
                    &length),
        std::free);
    if (!text && errno == ENOMEM) throw std::bad_alloc();
    return text ? std::string(reinterpret_cast<const char*>(text.get()), length) : std::string(utf8);
}

/// The characters of two octets whose first one is C2 to C9: U+0080 to U+027F.
constexpr uint8_t kFirstLead = 0xC2, kLastLead = 0xC9;
constexpr size_t kTrails = 64;
using LatinLetters = std::array<std::string, (kLastLead - kFirstLead + 1) * kTrails>;

/// What becomes of each of them wherever it stands; empty where that is nothing, or depends on what is beside it: only
/// characters from U+0300 on, whose first octet is CC or above, combine with those before them.
LatinLetters foldLatinLetters() {
    LatinLetters letters;
    for (size_t i = 0; i < letters.size(); ++i) {
        const char letter[] = {static_cast<char>(kFirstLead + i / kTrails), static_cast<char>(0x80 + i % kTrails)};
        const std::string alone = folded(mapped({letter, sizeof letter}));
        const bool stands = std::ranges::all_of(alone, [](char c) { return static_cast<uint8_t>(c) < 0xCC; });
        if (stands) letters[i] = alone;
    }
    return letters;
}

/// False where the text has to be folded as a whole.
bool foldLatin(std::string_view utf8, std::string& out) {
    static const LatinLetters letters = foldLatinLetters();
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size(); ++i) {
        if (isPlain(utf8[i])) {
            out += utf8[i];
            continue;
        }
        const auto lead = static_cast<uint8_t>(utf8[i]);
        if (lead < kFirstLead || lead > kLastLead || ++i == utf8.size()) return false;
        const auto trail = static_cast<size_t>(static_cast<uint8_t>(utf8[i])) - 0x80;
        if (trail >= kTrails) return false;
        const std::string& letter = letters[(lead - kFirstLead) * kTrails + trail];
        if (letter.empty()) return false;
        out += letter;
    }
    return true;
}

}  // namespace

std::string preparedAsciiText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (c == ' ' && (out.empty() || out.back() == ' ')) continue;
        out += asciiLower(c);
    }
    if (out.ends_with(' ')) out.pop_back();
    return out;
}

std::string preparedText(std::string_view utf8) {
    if (std::ranges::all_of(utf8, isPlain)) return preparedAsciiText(utf8);
    std::string text;
    return preparedAsciiText(foldLatin(utf8, text) ? text : folded(mapped(utf8)));
}

}  // namespace crv
