#include "asn/asn_strings.h"

#include <algorithm>

#include "misc/utf8.h"

namespace crv {

namespace {

/// Octets a character of a type; 0 for UTF-8.
struct StringKind {
    unsigned char tag;
    int width;
    char32_t last;  // highest character that the type expresses
};

constexpr StringKind kKinds[] = {
    {ASN_TAG_UTF8, 0, 0x10FFFF}, {ASN_TAG_NUMERIC, 1, 0x7F},       {ASN_TAG_PRINTABLE, 1, 0x7F},
    {ASN_TAG_T61, 1, 0xFF},      {ASN_TAG_IA5, 1, 0x7F},           {ASN_TAG_VISIBLE, 1, 0x7F},
    {ASN_TAG_GENERAL, 1, 0xFF},  {ASN_TAG_UNIVERSAL, 4, 0x10FFFF}, {ASN_TAG_BMP, 2, 0xFFFF},
};

const StringKind* kindOf(unsigned char tag) {
    const auto* kind = std::ranges::find(kKinds, tag, &StringKind::tag);
    return kind == std::end(kKinds) ? nullptr : kind;
}

/// A pair of UTF-16 surrogates, which some writers put into a BMPString.
bool isPair(char32_t high, char32_t low) {
    return high >= 0xD800 && high < 0xDC00 && low >= 0xDC00 && low < 0xE000;
}

char32_t wideAt(ByteView octets, size_t at, size_t width) {
    char32_t c = 0;
    for (size_t i = 0; i < width; ++i) c = c << 8 | octets[at + i];
    return c;
}

/// Hands each character of the octets on, nothing for what is none.
template <class Visit>
void eachCharacter(const StringKind* kind, ByteView octets, Visit visit) {
    if (!kind || kind->width == 0) {
        for (std::string_view text = asText(octets); !text.empty();) visit(takeCharacter(text));
        return;
    }
    const auto width = static_cast<size_t>(kind->width);
    for (size_t at = 0; at + width <= octets.size(); at += width) {
        char32_t c = wideAt(octets, at, width);
        if (width == 2 && at + 4 <= octets.size() && isPair(c, wideAt(octets, at + 2, 2))) {
            at += 2;
            c = 0x10000 + ((c - 0xD800) << 10) + (wideAt(octets, at, 2) - 0xDC00);
        }
        const bool valid = (c <= kind->last || width == 2) && isCharacter(c);
        visit(valid ? std::optional(c) : std::nullopt);
    }
    if (octets.size() % width != 0) visit(std::nullopt);
}

/// Most strings are ASCII, which stands for itself in all types of octets.
bool isPlainAscii(const StringKind* kind, ByteView octets) {
    return (!kind || kind->width <= 1) && std::ranges::all_of(octets, [](uint8_t c) { return c < 0x80; });
}

}  // namespace

bool isStringTag(unsigned char tag) {
    return kindOf(tag) != nullptr;
}

std::string stringToUtf8(unsigned char tag, ByteView octets) {
    const StringKind* kind = kindOf(tag);
    if (isPlainAscii(kind, octets)) return std::string(asText(octets));
    std::string out;
    out.reserve(octets.size());
    eachCharacter(kind, octets, [&](std::optional<char32_t> c) { appendUtf8(out, c.value_or(kReplacementCharacter)); });
    return out;
}

bool isValidString(unsigned char tag, ByteView octets) {
    const StringKind* kind = kindOf(tag);
    bool valid = true;
    if (isPlainAscii(kind, octets)) return valid;
    eachCharacter(kind, octets, [&](std::optional<char32_t> c) { valid = valid && c; });
    return valid;
}

Bytes utf8ToString(unsigned char tag, std::string_view text) {
    const StringKind* kind = kindOf(tag);
    if (!kind || kind->width == 0) return toBytes(asBytes(text));
    Bytes out;
    while (!text.empty()) {
        char32_t c = takeUtf8(text);
        if (c > kind->last) c = '?';
        for (int i = kind->width - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(c >> (8 * i)));
    }
    return out;
}

unsigned char stringTagFor(std::string_view text) {
    constexpr std::string_view kSigns = " '()+,-./:=?";
    const bool printable = std::ranges::all_of(text, [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               kSigns.find(c) != std::string_view::npos;
    });
    return printable ? ASN_TAG_PRINTABLE : ASN_TAG_UTF8;
}

}  // namespace crv
