#include "asn/x509/distinguished_name.h"

#include <algorithm>

#include "asn/asn_strings.h"
#include "asn/known_oids.h"
#include "asn/tlv_view.h"
#include "asn/x509/name_prep.h"
#include "misc/ascii.h"
#include "misc/exceptions.h"
#include "misc/hex.h"
#include "misc/utf8.h"
#include "misc/windows1250.h"

namespace crv {

namespace {

struct Label {
    const KnownOid& type;
    const char* text;
};

constexpr Label kLabels[] = {
    {OID_AT_COMMON_NAME, "CN"},
    {OID_AT_ORGANIZATION, "O"},
    {OID_AT_ORGANIZATIONAL_UNIT, "OU"},
    {OID_AT_COUNTRY, "C"},
    {OID_AT_SURNAME, "SN"},
    {OID_AT_GIVEN_NAME, "GN"},
    {OID_AT_LOCALITY, "L"},
    {OID_AT_STATE, "ST"},
    {OID_AT_STREET, "STREET"},
    {OID_AT_TITLE, "T"},
    {OID_AT_SERIAL_NUMBER, "SERIALNUMBER"},
    {OID_AT_DOMAIN_COMPONENT, "DC"},
    {OID_AT_USER_ID, "UID"},
    {OID_PKCS9_EMAIL, "E"},
    {OID_PKCS9_UNSTRUCTURED_NAME, "UNSTRUCTUREDNAME"},
    {OID_PKCS9_UNSTRUCTURED_ADDRESS, "UNSTRUCTUREDADDRESS"},
    {OID_AT_DESCRIPTION, "DESCRIPTION"},
    {OID_AT_POSTAL_ADDRESS, "POSTALADDRESS"},
    {OID_AT_POSTAL_CODE, "POSTALCODE"},
    {OID_AT_TELEPHONE, "PHONE"},
    {OID_AT_NAME, "NAME"},
    {OID_AT_INITIALS, "INITIALS"},
    {OID_AT_GENERATION, "GENERATION"},
    {OID_AT_DN_QUALIFIER, "DNQUALIFIER"},
    {OID_AT_PSEUDONYM, "PSEUDONYM"},
    {OID_AT_ORGANIZATION_ID, "ORGANIZATIONID"},
};

constexpr std::string_view kSpecial = ",+\"\\<>;=";

char toWindows1250(char32_t c) {
    const size_t at = c < 0x80     ? std::u16string_view::npos
                      : c > 0xFFFF ? std::u16string_view::npos
                                   : kWindows1250High.find(static_cast<char16_t>(c));
    if (c < 0x80) return static_cast<char>(c);
    return at == std::u16string_view::npos ? '?' : static_cast<char>(0x80 + at);
}

std::string escapeValue(std::string_view value) {
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        const bool edge = (c == ' ' && (i == 0 || i + 1 == value.size())) || (c == '#' && i == 0);
        if (static_cast<uint8_t>(c) < 0x20 || c == 0x7F) {
            (out += '\\') += toHex(c);
        } else if (edge || kSpecial.find(c) != std::string_view::npos) {
            (out += '\\') += c;
        } else {
            out += c;
        }
    }
    return out;
}

std::string joined(const std::vector<std::string>& texts, const char* separator) {
    std::string out;
    for (const std::string& text : texts) out += (&text == &texts.front() ? "" : separator) + text;
    return out;
}

/// The sets of a name in their order.
std::vector<std::string> textsOf(const DistinguishedName& name, const char* plus) {
    std::vector<std::string> texts;
    for (const RelativeDistinguishedName& set : name) {
        std::vector<std::string> attributes;
        for (const AttributeTypeAndValue& one : set) {
            const std::string value = one.valueUtf8();
            attributes.push_back(one.label() + "=" + (one.isText() ? escapeValue(value) : value));
        }
        texts.push_back(joined(attributes, plus));
    }
    return texts;
}

unsigned char stringTagOf(const ASNobjectId& type, std::string_view value) {
    const bool ascii = std::ranges::all_of(value, [](char c) { return static_cast<uint8_t>(c) < 0x80; });
    if (ascii && (type == OID_PKCS9_EMAIL || type == OID_AT_DOMAIN_COMPONENT)) return ASN_TAG_IA5;
    return stringTagFor(value);
}

void setText(AttributeTypeAndValue& attribute, std::string_view utf8) {
    const unsigned char tag = stringTagOf(attribute.type, utf8);
    attribute.value.build(tag, utf8ToString(tag, utf8));
}

/// Parser of the text form.
class NameText {
  public:
    explicit NameText(std::string_view text) : rest_(text) {}

    bool parse(DistinguishedName& name) {
        skipSpaces();
        if (rest_.empty()) return true;
        for (char separator = ','; separator == ',';) {
            RelativeDistinguishedName& set = name.add();
            do {
                if (!parseAttribute(set.add())) return false;
                separator = takeSeparator();
            } while (separator == '+');
        }
        return rest_.empty() && !danglingSeparator_;
    }

  private:
    void skipSpaces() {
        while (!rest_.empty() && rest_.front() == ' ') rest_.remove_prefix(1);
    }
    /// "," (also for ";"), "+", or 0 at the end and before anything else.
    char takeSeparator() {
        skipSpaces();
        if (rest_.empty() || std::string_view(",;+").find(rest_.front()) == std::string_view::npos) return 0;
        const char separator = rest_.front() == ';' ? ',' : rest_.front();
        rest_.remove_prefix(1);
        skipSpaces();
        danglingSeparator_ = rest_.empty();
        return danglingSeparator_ ? '\0' : separator;
    }
    bool parseAttribute(AttributeTypeAndValue& attribute) {
        const size_t equals = rest_.find('=');
        if (equals == std::string_view::npos) return false;
        std::string_view type = rest_.substr(0, equals);
        while (type.ends_with(' ')) type.remove_suffix(1);
        rest_.remove_prefix(equals + 1);
        skipSpaces();
        return parseType(type, attribute.type) &&
               (rest_.starts_with('#') ? parseEncoding(attribute) : parseText(attribute));
    }
    static bool parseType(std::string_view text, ASNobjectId& type) {
        for (const Label& label : kLabels) {
            if (!equalIgnoreCase(text, label.text)) continue;
            type = label.type;
            return true;
        }
        return type.setText(text);
    }
    bool parseEncoding(AttributeTypeAndValue& attribute) {
        Bytes octets;
        for (rest_.remove_prefix(1); hexOctet(rest_) >= 0; rest_.remove_prefix(2))
            octets.push_back(static_cast<uint8_t>(hexOctet(rest_)));
        return attribute.value.build(octets);
    }
    bool parseText(AttributeTypeAndValue& attribute) {
        std::string value;
        size_t kept = 0;  // spaces behind this are not part of the value
        const bool quoted = rest_.starts_with('"');
        if (quoted) rest_.remove_prefix(1);
        while (!rest_.empty()) {
            const char c = rest_.front();
            if (quoted ? c == '"' : c == ',' || c == ';' || c == '+') break;
            rest_.remove_prefix(1);
            if (c == '\\' && !takeEscape(value)) return false;
            if (c != '\\') value += c;
            if (c != ' ' || quoted) kept = value.size();
        }
        if (quoted) {
            if (rest_.empty()) return false;
            rest_.remove_prefix(1);
        }
        value.resize(kept);
        setText(attribute, value);
        return true;
    }
    bool takeEscape(std::string& value) {
        if (const int octet = hexOctet(rest_); octet >= 0) {
            value += static_cast<char>(octet);
            rest_.remove_prefix(2);
            return true;
        }
        if (rest_.empty()) return false;
        value += rest_.front();
        rest_.remove_prefix(1);
        return true;
    }

    std::string_view rest_;
    bool danglingSeparator_ = false;
};

void putHeader(Bytes& out, unsigned char tag, size_t length) {
    uint8_t header[6] = {tag};
    const int size = 1 + write_length(static_cast<long>(length), header + 1);
    out.insert(out.end(), header, header + size);
}

void putElement(Bytes& out, unsigned char tag, ByteView body) {
    putHeader(out, tag, body.size());
    out.insert(out.end(), body.begin(), body.end());
}

/// Whether an AttributeTypeAndValue of definite length stands at the front, which is taken.
bool takeAttribute(ByteView& octets) {
    const auto attribute = takeTlv(octets, ASNsequenceF::kTag);
    if (!attribute) return false;
    ByteView rest = attribute->body;
    const auto type = takeTlv(rest, ASNobjectId::kTag);
    const auto value = takeTlv(rest);
    return type && ASNobjectId::areArcs(type->body) && value && value->tag != 0 && rest.empty();
}

void putEncoding(Bytes& out, const ASNobject& object) {
    const Bytes made = object.keptEncoding().empty() ? object.encoded() : Bytes();
    const ByteView octets = made.empty() ? object.keptEncoding() : ByteView(made);
    out.insert(out.end(), octets.begin(), octets.end());
}

Bytes normalizedAttribute(const AttributeTypeAndValue& attribute, NameFolding folding) {
    Bytes body;
    body.reserve(attribute.value.contents().size() + 16);
    putEncoding(body, attribute.type);
    if (attribute.isText() && isValidString(attribute.value.getTag(), attribute.value.contents())) {
        const auto prepared = folding == NameFolding::Unicode ? preparedText : preparedAsciiText;
        const std::string text = prepared(attribute.valueUtf8());
        putElement(body, ASN_TAG_UTF8, asBytes(text));
    } else {
        putEncoding(body, attribute.value);
    }
    return body;
}

/// The attributes in the order of their encodings. Nearly every set has one.
void putNormalizedSet(Bytes& out, const RelativeDistinguishedName& set, NameFolding folding) {
    std::vector<Bytes> attributes;
    size_t length = 0;
    for (const AttributeTypeAndValue& attribute : set) {
        const Bytes body = normalizedAttribute(attribute, folding);
        putElement(attributes.emplace_back(), ASNsequenceF::kTag, body);
        length += attributes.back().size();
    }
    std::ranges::sort(attributes);
    putHeader(out, RelativeDistinguishedName::kTag, length);
    for (const Bytes& attribute : attributes) out.insert(out.end(), attribute.begin(), attribute.end());
}

}  // namespace

std::string displayText(std::string_view utf8, DnDisplay display) {
    std::string out;
    while (!utf8.empty()) {
        const char32_t c = takeUtf8(utf8);
        std::string octets;
        appendUtf8(octets, c);
        if (isHarmful(c) || (display.escaped && c >= 0x80)) {
            for (const char octet : octets) (out += '\\') += toHex(octet);
        } else if (display.utf8) {
            out += octets;
        } else {
            out += toWindows1250(c);
        }
    }
    return out;
}

MemberTable AttributeTypeAndValue::members() const {
    static constexpr Member kMembers[] = {member<&AttributeTypeAndValue::type>, member<&AttributeTypeAndValue::value>};
    return kMembers;
}

std::string AttributeTypeAndValue::label() const {
    for (const Label& row : kLabels)
        if (type == row.type) return row.text;
    return type.text();
}

bool AttributeTypeAndValue::isText() const {
    return isStringTag(value.getTag());
}

std::string AttributeTypeAndValue::valueUtf8() const {
    return isText() ? stringToUtf8(value.getTag(), value.contents()) : "#" + toHex(value.getMemory());
}

std::optional<DistinguishedName> DistinguishedName::fromText(std::string_view text) {
    DistinguishedName name;
    if (!NameText(text).parse(name)) return std::nullopt;
    return name;
}

std::string DistinguishedName::text() const {
    return joined(textsOf(*this, " + "), ", ");
}

std::string DistinguishedName::rfc4514() const {
    std::vector<std::string> texts = textsOf(*this, "+");
    std::ranges::reverse(texts);
    return joined(texts, ",");
}

DistinguishedName DistinguishedName::reversed() const {
    std::vector<const RelativeDistinguishedName*> sets;
    for (const RelativeDistinguishedName& set : *this) sets.insert(sets.begin(), &set);
    DistinguishedName name;
    for (const RelativeDistinguishedName* set : sets) name.add() = *set;
    return name;
}

std::vector<std::string> DistinguishedName::lines(DnDisplay display) const {
    std::vector<std::string> out;
    for (const RelativeDistinguishedName& set : *this) {
        for (const AttributeTypeAndValue& attribute : set)
            out.push_back(attribute.label() + "=" + displayText(attribute.valueUtf8(), display));
    }
    return out;
}

void DistinguishedName::add(const KnownOid& type, std::string_view utf8) {
    AttributeTypeAndValue& attribute = add().add();
    attribute.type = type;
    setText(attribute, utf8);
}

std::optional<std::string> DistinguishedName::find(const KnownOid& type) const {
    for (const RelativeDistinguishedName& set : *this) {
        for (const AttributeTypeAndValue& attribute : set)
            if (attribute.type == type) return attribute.valueUtf8();
    }
    return std::nullopt;
}

bool DistinguishedName::soundContents(ByteView contents) const {
    while (!contents.empty()) {
        const auto set = takeTlv(contents, RelativeDistinguishedName::kTag);
        if (!set) return false;
        for (ByteView rest = set->body; !rest.empty();) {
            if (!takeAttribute(rest)) return false;
        }
    }
    return true;
}

DistinguishedName DistinguishedName::normalize(NameFolding folding) const {
    DistinguishedName out;
    VTEST(out.readExactly(normalizedEncoding(folding)), "src/asn/x509/distinguished_name");
    return out;
}

Bytes DistinguishedName::normalizedEncoding(NameFolding folding) const {
    Bytes sets;
    for (const RelativeDistinguishedName& set : *this) putNormalizedSet(sets, set, folding);
    Bytes out;
    putElement(out, kTag, sets);
    return out;
}

std::vector<Bytes> DistinguishedName::normalizedSets(NameFolding folding) const {
    std::vector<Bytes> sets;
    for (const RelativeDistinguishedName& set : *this) putNormalizedSet(sets.emplace_back(), set, folding);
    return sets;
}

bool operator==(const DistinguishedName& a, const DistinguishedName& b) {
    if (a.size() != b.size()) return false;
    if (!a.keptEncoding().empty() && std::ranges::equal(a.keptEncoding(), b.keptEncoding())) return true;
    return a.normalizedEncoding() == b.normalizedEncoding();
}

}  // namespace crv
