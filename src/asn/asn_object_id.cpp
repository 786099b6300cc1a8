#include "asn/asn_object_id.h"

#include <algorithm>

#include "asn/known_oids.h"

namespace crv {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr size_t kLongestArc = 19;  // septets of 128 bits, and of 2.(2^128 - 1) with the 80 that X.690 8.19.4 adds

/// An arc, or the first two in one number, which may need one bit more than an arc.
struct Arc {
    bool carry = false;
    Wide low = 0;
};

/// Takes one arc's digits off the text; false when they are malformed or the number is too large.
bool takeArc(std::string_view& text, Wide& arc) {
    const size_t length = std::min(text.find('.'), text.size());
    const std::string_view digits = text.substr(0, length);
    if (digits.empty() || (digits.size() > 1 && digits[0] == '0')) return false;
    arc = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return false;
        const auto digit = static_cast<Wide>(c - '0');
        if (arc > (~static_cast<Wide>(0) - digit) / 10) return false;
        arc = arc * 10 + digit;
    }
    text.remove_prefix(length);
    if (text.empty()) return true;
    text.remove_prefix(1);
    return !text.empty();
}

void putArc(Bytes& out, const Arc& arc) {
    uint8_t septets[kLongestArc];
    size_t count = 0;
    Wide rest = arc.low;
    bool carry = arc.carry;
    do {
        septets[count++] = static_cast<uint8_t>(rest & 0x7F);
        rest = rest >> 7 | static_cast<Wide>(carry) << 121;
        carry = false;
    } while (rest != 0);
    while (count > 1) out.push_back(static_cast<uint8_t>(0x80 | septets[--count]));
    out.push_back(septets[0]);
}

/// Takes one arc off content octets that `validContents` accepted.
Arc takeArc(ByteView& octets) {
    Arc arc;
    uint8_t octet = 0x80;
    while ((octet & 0x80) != 0) {
        octet = octets.front();
        octets = octets.subspan(1);
        arc.carry = (arc.low >> 121 & 1) != 0;
        arc.low = arc.low << 7 | (octet & 0x7F);
    }
    return arc;
}

void appendDecimal(std::string& out, Wide number) {
    char digits[40];
    char* first = std::end(digits);
    do *--first = static_cast<char>('0' + static_cast<int>(number % 10));
    while ((number /= 10) != 0);
    out.append(first, std::end(digits));
}

/// Splits the number of the first two arcs (X.690 8.19.4).
void appendFirstArcs(std::string& out, const Arc& both) {
    const int first = both.carry || both.low >= 80 ? 2 : both.low >= 40 ? 1 : 0;
    out += static_cast<char>('0' + first);
    out += '.';
    appendDecimal(out, both.low - static_cast<Wide>(40 * first));  // the carry cancels in unsigned arithmetic
}

constexpr const KnownOid* kKnownOids[] = {
#define CRV_OID(constant, dotted, name) &constant,
#include "asn/known_oids.inc"
#undef CRV_OID
};

}  // namespace

const KnownOid* findKnownOid(ByteView contents) {
    static const auto kSorted = [] {
        std::vector<const KnownOid*> rows(std::begin(kKnownOids), std::end(kKnownOids));
        std::ranges::sort(rows, std::ranges::lexicographical_compare, &KnownOid::octets);
        return rows;
    }();
    const auto at =
        std::ranges::lower_bound(kSorted, contents, std::ranges::lexicographical_compare, &KnownOid::octets);
    return at != kSorted.end() && std::ranges::equal((*at)->octets(), contents) ? *at : nullptr;
}

ASNobjectId& ASNobjectId::operator=(const KnownOid& oid) {
    setContents(oid.octets());
    return *this;
}

bool ASNobjectId::setText(std::string_view dotted) {
    Wide first = 0;
    Wide arc = 0;
    if (!takeArc(dotted, first) || dotted.empty() || !takeArc(dotted, arc)) return false;
    if (first > 2 || (first < 2 && arc > 39)) return false;
    Bytes octets;
    const Wide both = first * 40 + arc;
    putArc(octets, {both < arc, both});
    while (!dotted.empty()) {
        if (!takeArc(dotted, arc)) return false;
        putArc(octets, {false, arc});
    }
    setContents(octets);
    return true;
}

std::optional<ASNobjectId> ASNobjectId::fromText(std::string_view dotted) {
    ASNobjectId oid;
    if (!oid.setText(dotted)) return std::nullopt;
    return oid;
}

std::string ASNobjectId::text() const {
    std::string out;
    ByteView rest = contents();
    if (!areArcs(rest)) return out;  // a reading that failed left them
    appendFirstArcs(out, takeArc(rest));
    while (!rest.empty()) {
        out += '.';
        appendDecimal(out, takeArc(rest).low);
    }
    return out;
}

std::string ASNobjectId::name() const {
    const KnownOid* known = findKnownOid(contents());
    return known ? known->name() : text();
}

bool ASNobjectId::areArcs(ByteView octets) {
    if (octets.empty() || (octets.back() & 0x80) != 0) return false;
    size_t start = 0;
    for (size_t i = 0; i < octets.size(); ++i) {
        if (i == start && octets[i] == 0x80) return false;
        if ((octets[i] & 0x80) != 0) continue;
        const size_t length = i + 1 - start;
        // The first number may reach 2^128 + 79, every other one 2^128 - 1.
        const uint8_t highest = start == 0 ? 0x84 : 0x83;
        if (length > kLongestArc || (length == kLongestArc && octets[start] > highest)) return false;
        if (length == kLongestArc && octets[start] == 0x84) {
            ByteView arc = octets.subspan(start);
            if (takeArc(arc).low > 79) return false;
        }
        start = i + 1;
    }
    return true;
}

bool operator==(const ASNobjectId& a, const ASNobjectId& b) {
    return std::ranges::equal(a.contents(), b.contents());
}

bool operator==(const ASNobjectId& a, const KnownOid& b) {
    return std::ranges::equal(a.contents(), b.octets());
}

bool operator<(const ASNobjectId& a, const ASNobjectId& b) {
    return std::ranges::lexicographical_compare(a.contents(), b.contents());
}

}  // namespace crv
