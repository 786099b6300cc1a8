#include "asn/asn_primitives.h"

#include <algorithm>
#include <bit>

#include "asn/asn_stream_ctx.h"
#include "misc/hex.h"
#include "misc/memory_file.h"

namespace crv {

long ASNprimitive::read_contents(GenericFile* in, long len) {
    if (isConst()) {
        contents_.refer(in->window().first(static_cast<size_t>(len)));
        in->consume(static_cast<size_t>(len));
    } else if (contents_.load(*in, len) != len) {
        return -1;
    }
    return validContents() ? 1 : 0;
}

bool ASNprimitive::write_contents(GenericFile* out) const {
    return contents_.empty() || out->write(contents());
}

void ASNprimitive::setContents(ByteView octets) {
    assertChangeable();
    contents_.assign(octets);
}

bool operator==(const ASNoctstr& a, const ASNoctstr& b) {
    return std::ranges::equal(a.contents(), b.contents());
}

void ASNoctstr::build(const char* data, unsigned long length) {
    build(std::string_view(data, length));
}

void ASNoctstr::build(std::string& text) {
    build(std::string_view{text});
}

long ASNoctstr::read_contents(GenericFile* in, long len) {
    return hasFlag(kMetSegments) ? joinSegments({*in, len}) : ASNprimitive::read_contents(in, len);
}

long ASNoctstr::read_ndfl_contents(GenericFile* in, long maxLen) {
    return joinSegments(BodyCursor::indefinite(*in, maxLen));
}

/// The segments of any string type are OCTET STRINGs or of the type itself; they may be constructed again.
long ASNoctstr::joinSegments(BodyCursor body) {
    MemoryFile joined;
    while (!body.atEnd()) {
        ASNoctstr segment;
        if ((body.peek() & ~ASN_CONSTRUCTED_BIT) != ASNoctstr::kTag) segment.setOwnTag(getDefaultTag());
        const long used = body.read(segment, 0);
        if (used <= 0) return used;
        if (!joined.write(segment.contents())) return -1;
    }
    contents_.assign(joined.written());
    return validContents() ? 1 : 0;
}

ASNinteger::ASNinteger(unsigned char tag, long value) : ASNoctstr(tag) {
    setValue(value);
}

void ASNinteger::setValue(long value) {
    uint8_t octets[sizeof value];
    for (size_t i = 0; i < sizeof value; ++i) octets[i] = static_cast<uint8_t>(value >> (8 * (sizeof value - 1 - i)));
    size_t first = 0;
    const uint8_t sign = value < 0 ? 0xFF : 0;
    while (first + 1 < sizeof value && octets[first] == sign && ((octets[first + 1] ^ sign) & 0x80) == 0) ++first;
    setContents(ByteView(octets).subspan(first));
}

void ASNinteger::setUnsigned(ByteView magnitude) {
    while (!magnitude.empty() && magnitude.front() == 0) magnitude = magnitude.subspan(1);
    SecretBytes octets;
    octets.reserve(magnitude.size() + 1);
    if (magnitude.empty() || (magnitude.front() & 0x80) != 0) octets.push_back(0);
    octets.insert(octets.end(), magnitude.begin(), magnitude.end());
    setContents(octets);
}

std::optional<long> ASNinteger::value() const {
    ByteView octets = contents();
    const uint8_t sign = isNegative() ? 0xFF : 0;
    while (octets.size() > 1 && octets[0] == sign && ((octets[1] ^ sign) & 0x80) == 0) octets = octets.subspan(1);
    if (octets.size() > sizeof(long)) return std::nullopt;
    auto value = static_cast<unsigned long>(isNegative() ? -1L : 0L);
    for (const uint8_t octet : octets) value = value << 8 | octet;
    return static_cast<long>(value);
}

ByteView ASNinteger::magnitude() const {
    ByteView octets = contents();
    while (!octets.empty() && octets.front() == 0) octets = octets.subspan(1);
    return octets;
}

std::string ASNinteger::decimal() const {
    if (contents().size() > kLongestDecimal) return "0x" + toHex(contents());
    Bytes number = toBytes(contents());
    const bool negative = isNegative();
    if (negative) {
        for (uint8_t& octet : number) octet = static_cast<uint8_t>(~octet);
        for (size_t i = number.size(); i-- > 0 && ++number[i] == 0;) continue;
    }
    // Digits from the least significant up, nine at a time, kept in base 10^9.
    std::vector<uint32_t> groups;
    for (const uint8_t octet : number) {
        uint64_t carry = octet;
        for (uint32_t& group : groups) {
            carry += static_cast<uint64_t>(group) << 8;
            group = static_cast<uint32_t>(carry % 1'000'000'000);
            carry /= 1'000'000'000;
        }
        if (carry != 0) groups.push_back(static_cast<uint32_t>(carry));
    }
    if (groups.empty()) return "0";
    std::string text = (negative ? "-" : "") + std::to_string(groups.back());
    for (size_t i = groups.size() - 1; i-- > 0;) {
        const std::string digits = std::to_string(groups[i]);
        text += std::string(9 - digits.size(), '0') + digits;
    }
    return text;
}

ASNbool::ASNbool(bool value) : ASNprimitive(kTag) {
    setValue(value);
}

void ASNbool::setValue(bool value) {
    const uint8_t octet = value ? 0xFF : 0;
    setContents({&octet, 1});
}

ASNbitstr::ASNbitstr() : ASNprimitive(kTag) {
    build({});
}

void ASNbitstr::build(ByteView octets, int unusedBits) {
    const uint8_t unused = octets.empty() ? 0 : static_cast<uint8_t>(unusedBits);
    if (octets.empty()) return setContents({&unused, 1});
    Bytes all(1, unused);
    all.insert(all.end(), octets.begin(), octets.end());
    all.back() &= static_cast<uint8_t>(0xFF << unused);
    setContents(all);
}

void ASNbitstr::setNamedBits(uint32_t bits) {
    uint8_t octets[4] = {};
    for (unsigned i = 0; i < 32; ++i)
        if ((bits >> i & 1) != 0) octets[i / 8] |= static_cast<uint8_t>(0x80 >> i % 8);
    const auto used = static_cast<unsigned>(std::bit_width(bits));
    build(ByteView(octets).first((used + 7) / 8), static_cast<int>((8 - used % 8) % 8));
}

bool ASNbitstr::bit(size_t index) const {
    return index < bitCount() && (octets()[index / 8] >> (7 - index % 8) & 1) != 0;
}

uint32_t ASNbitstr::namedBits() const {
    uint32_t bits = 0;
    for (unsigned i = 0; i < 32; ++i) bits |= static_cast<uint32_t>(bit(i)) << i;
    return bits;
}

bool ASNbitstr::validContents() const {
    const ByteView all = contents();
    return !all.empty() && all[0] <= 7 && (all.size() > 1 || all[0] == 0);
}

}  // namespace crv
