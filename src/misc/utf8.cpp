#include "misc/utf8.h"

#include <cstdint>

namespace crv {

namespace {

bool isTail(char octet) {
    return (static_cast<uint8_t>(octet) & 0xC0) == 0x80;
}

/// The octets that a character of this first one has, and the least number that needs so many.
struct Form {
    uint8_t mask, lead;
    char32_t least;
};
constexpr Form kForms[] = {{0x80, 0, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};

}  // namespace

bool isCharacter(char32_t c) {
    return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

std::optional<char32_t> takeCharacter(std::string_view& text) {
    const auto first = static_cast<uint8_t>(text.front());
    text.remove_prefix(1);
    if (first < 0x80) return first;
    size_t more = 0;
    while (more < std::size(kForms) && (first & kForms[more].mask) != kForms[more].lead) ++more;
    if (more == std::size(kForms) || text.size() < more) return std::nullopt;
    char32_t c = first & static_cast<uint8_t>(~kForms[more].mask);
    for (size_t i = 0; i < more; ++i) {
        if (!isTail(text[i])) return std::nullopt;
        c = c << 6 | (static_cast<uint8_t>(text[i]) & 0x3F);
    }
    if (c < kForms[more].least || !isCharacter(c)) return std::nullopt;
    text.remove_prefix(more);
    return c;
}

Utf8Character toUtf8(char32_t c) {
    if (!isCharacter(c)) c = kReplacementCharacter;
    const size_t more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    Utf8Character out{{}, more + 1};
    for (size_t i = more; i > 0; --i, c >>= 6) out.octets[i] = static_cast<char>(0x80 | (c & 0x3F));
    out.octets[0] = static_cast<char>(kForms[more].lead | c);
    return out;
}

std::string_view cutText(std::string_view text, size_t count) {
    if (text.size() <= count) return text;
    while (count > 0 && isTail(text[count])) --count;
    return text.substr(0, count);
}

bool isHarmful(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x61C || (c >= 0x200B && c <= 0x200F) ||
           (c >= 0x2028 && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF;
}

bool isUtf8(std::string_view text) {
    while (!text.empty())
        if (!takeCharacter(text)) return false;
    return true;
}

std::string harmlessUtf8(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto character = takeCharacter(text);
        !character || isHarmful(*character) ? out.push_back('?') : appendUtf8(out, *character);
    }
    return out;
}

}  // namespace crv
