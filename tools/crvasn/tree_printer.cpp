#include "crvasn/tree_printer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include "asn/asn_any.h"
#include "asn/asn_object_id.h"
#include "asn/asn_strings.h"
#include "asn/asn_time.h"
#include "misc/hex.h"
#include "misc/memory_file.h"
#include "misc/utf8.h"

namespace crv {

namespace {

std::string hexText(ByteView octets, size_t shown) {
    const std::string text = toHex(octets.first(std::min(shown, octets.size())));
    return octets.size() > shown ? text + "..." : text;
}

/// A text in quotes; what could do something to a terminal becomes "\xx".
std::string quoted(std::string_view utf8, size_t shown) {
    std::string text = "\"";
    std::string_view rest = utf8;
    while (!rest.empty() && utf8.size() - rest.size() < shown) {
        const std::string_view before = rest;
        const char32_t character = takeUtf8(rest);
        const std::string_view octets = before.substr(0, before.size() - rest.size());
        if (!isHarmful(character) && character != '"' && character != '\\') {
            text += octets;
        } else {
            for (const char c : octets) text += '\\' + toHex(c);
        }
    }
    text += '"';
    return rest.empty() ? text : text + "...";
}

template <class T>
bool readAs(T& object, const ASNany& any) {
    return any.decode(object, ASN_FLAG_CONST);
}

std::string boolText(const ASNany& any, size_t) {
    ASNbool value;
    return readAs(value, any) ? (value.value() ? "TRUE" : "FALSE") : "malformed";
}

template <class T>
std::string integerText(const ASNany& any, size_t shown) {
    constexpr size_t kDecimalOctets = 8;
    T value;
    if (!readAs(value, any)) return "malformed";
    return value.contents().size() <= kDecimalOctets ? value.decimal() : "0x" + hexText(value.contents(), shown);
}

std::string oidText(const ASNany& any, size_t) {
    ASNobjectId value;
    if (!readAs(value, any)) return "malformed";
    const std::string name = value.name();
    const std::string dotted = value.text();
    return name == dotted ? dotted : name + " (" + dotted + ")";
}

std::string bitsText(const ASNany& any, size_t shown) {
    ASNbitstr value;
    if (!readAs(value, any)) return "malformed";
    return std::to_string(value.bitCount()) + " bits " + hexText(value.octets(), shown);
}

std::string octetsText(const ASNany& any, size_t shown) {
    return hexText(any.contents(), shown);
}

std::string nullText(const ASNany&, size_t) {
    return {};
}

std::string stringText(const ASNany& any, size_t shown) {
    return quoted(stringToUtf8(any.getTag() & ASN_NUMBER_BITS, any.contents()), shown);
}

template <class T>
std::string timeValueText(const ASNany& any, size_t shown) {
    T value;
    if (!readAs(value, any)) return "malformed";
    const auto seconds = value.seconds();
    return quoted(value.text(), shown) + (seconds ? " " + timeText(*seconds) + " UTC" : " no point in time");
}

struct TypeRow {
    unsigned char tag;
    const char* name;
    std::string (*value)(const ASNany& any, size_t shown);
};
constexpr TypeRow kTypes[] = {
    {1, "BOOLEAN", boolText},
    {2, "INTEGER", integerText<ASNinteger>},
    {3, "BIT STRING", bitsText},
    {4, "OCTET STRING", octetsText},
    {5, "NULL", nullText},
    {6, "OBJECT IDENTIFIER", oidText},
    {10, "ENUMERATED", integerText<ASNenum>},
    {ASN_TAG_UTF8, "UTF8String", stringText},
    {16, "SEQUENCE", octetsText},
    {17, "SET", octetsText},
    {ASN_TAG_NUMERIC, "NumericString", stringText},
    {ASN_TAG_PRINTABLE, "PrintableString", stringText},
    {ASN_TAG_T61, "T61String", stringText},
    {ASN_TAG_IA5, "IA5String", stringText},
    {23, "UTCTime", timeValueText<ASNutcTime>},
    {24, "GeneralizedTime", timeValueText<ASNgenTime>},
    {ASN_TAG_VISIBLE, "VisibleString", stringText},
    {ASN_TAG_GENERAL, "GeneralString", stringText},
    {ASN_TAG_UNIVERSAL, "UniversalString", stringText},
    {ASN_TAG_BMP, "BMPString", stringText},
};

const TypeRow* findType(unsigned char tag) {
    if ((tag & ASN_CLASS_BITS) != 0) return nullptr;
    const auto* row = std::ranges::find(kTypes, tag & ASN_NUMBER_BITS, &TypeRow::tag);
    return row == std::end(kTypes) ? nullptr : row;
}

/// What stands before the contents of an element (X.690 8.1.2, 8.1.3). The tag may have any number.
struct Header {
    uint8_t first = 0;
    uint64_t number = 0;
    long length = 0;  // -1: indefinite
    size_t size = 0;

    [[nodiscard]] bool constructed() const { return (first & ASN_CONSTRUCTED_BIT) != 0; }
    [[nodiscard]] bool hasLongTag() const { return (first & ASN_NUMBER_BITS) == ASN_NUMBER_BITS; }
};

enum class Found { Header, CutOff, Malformed };

/// The number of a tag of 31 and more: seven bits an octet, the last one without its highest bit.
Found readLongTag(GenericFile& in, uint64_t& number) {
    constexpr uint64_t kMost = uint64_t{1} << 50;
    for (int octet = 0x80; (octet & 0x80) != 0; number = number << 7 | static_cast<uint64_t>(octet & 0x7F)) {
        octet = in.get();
        if (octet < 0) return Found::CutOff;
        if (number > kMost) return Found::Malformed;
    }
    return Found::Header;
}

Found readHeader(ByteView octets, Header& header) {
    MemoryFile in(octets);
    header.first = static_cast<uint8_t>(in.get());
    header.number = header.first & ASN_NUMBER_BITS;
    if (header.hasLongTag()) {
        header.number = 0;
        if (const Found tag = readLongTag(in, header.number); tag != Found::Header) return tag;
    }
    const int taken = read_length(in, header.length);
    if (taken <= 0) return taken < 0 ? Found::CutOff : Found::Malformed;
    header.size = static_cast<size_t>(in.position());
    return header.length < 0 && !header.constructed() ? Found::Malformed : Found::Header;
}

std::string typeName(const Header& header) {
    constexpr std::array kClasses = {"UNIVERSAL ", "APPLICATION ", "", "PRIVATE "};
    if (const TypeRow* row = header.hasLongTag() ? nullptr : findType(header.first)) return row->name;
    return std::string("[") + kClasses[header.first >> 6] + std::to_string(header.number) + "]";
}

bool isConstructed(const ASNany& any) {
    return (any.getTag() & ASN_CONSTRUCTED_BIT) != 0;
}

/// Whether octets inside a string are one encoding of universal type, all the way down.
bool isEncoding(ByteView octets, int nesting) {
    if (octets.empty() || (octets.front() & ASN_CLASS_BITS) != 0) return false;
    const auto wellFormed = [](auto& self, ByteView all, int depth) -> bool {
        MemoryFile file(all, depth);
        while (file.peek() >= 0) {
            ASNany any;
            if (any.read(&file, 0, ASN_FLAG_CONST) <= 0) return false;
            if (isConstructed(any) ? !self(self, any.contents(), depth + 1) : any.getTag() == 0) return false;
        }
        return true;
    };
    ASNany whole;
    const TypeRow* row = findType(octets.front());
    return row && whole.readExactly(octets, ASN_FLAG_CONST) &&
           (isConstructed(whole) ? wellFormed(wellFormed, whole.contents(), nesting)
                                 : row->value(whole, 1) != "malformed");
}

class Printer {
  public:
    Printer(ByteView input, const TreeOptions& options) : input_(input), options_(options) {}

    /// What surrounds elements: nothing, something that ends with these octets, something that was cut off there, or an
    /// indefinite form that is closed by end-of-contents octets.
    enum class Around { Nothing, Whole, CutOff, Indefinite };

    /// The elements one after the other. How many octets they have; nothing when something is wrong, of which the last
    /// line tells.
    std::optional<size_t> printAll(ByteView octets, int depth, Around around);
    [[nodiscard]] std::string take() { return std::move(text_); }

  private:
    [[nodiscard]] long offsetOf(const uint8_t* at) const { return at - input_.data(); }
    std::optional<size_t> printOne(ByteView octets, int depth, Around around);
    void printValue(const Header& header, ByteView element, int depth);
    std::nullopt_t damage(const uint8_t* at, int depth, const char* what);
    void line(long offset, const std::string& length, int depth, const std::string& rest);
    [[nodiscard]] ByteView encodingInside(const ASNany& any, int depth) const;

    ByteView input_;
    const TreeOptions& options_;
    std::string text_;
};

void Printer::line(long offset, const std::string& length, int depth, const std::string& rest) {
    char columns[40];
    std::snprintf(columns, sizeof columns, "%7ld %7s  ", offset, length.c_str());
    text_ += columns;
    text_.append(static_cast<size_t>(depth) * 2, ' ');
    text_ += rest + '\n';
}

/// The octets of a string that are an encoding, where they are worth a look; else nothing.
ByteView Printer::encodingInside(const ASNany& any, int depth) const {
    constexpr unsigned char kBitString = 3;
    const unsigned char tag = any.getTag();
    ByteView octets = any.contents();
    if (!options_.inside || octets.empty() || (tag & ASN_CLASS_BITS) != 0) return {};
    if (tag == kBitString) {
        octets = octets.front() == 0 ? octets.subspan(1) : ByteView();
    } else if (tag != ASNoctstr::kTag) {
        return {};
    }
    return isEncoding(octets, depth) ? octets : ByteView();
}

std::nullopt_t Printer::damage(const uint8_t* at, int depth, const char* what) {
    line(offsetOf(at), "-", depth, what);
    return std::nullopt;
}

/// A primitive element that is there as a whole.
void Printer::printValue(const Header& header, ByteView element, int depth) {
    const std::string length = std::to_string(header.length);
    const std::string name = typeName(header);
    ASNany any;
    if (header.hasLongTag() || !any.readExactly(element, ASN_FLAG_CONST)) {
        line(offsetOf(element.data()), length, depth,
             name + " " + hexText(element.subspan(header.size), options_.shownOctets));
        return;
    }
    if (const ByteView inside = encodingInside(any, depth + 1); !inside.empty()) {
        line(offsetOf(element.data()), length, depth, name);
        static_cast<void>(printAll(inside, depth + 1, Around::Whole));
        return;
    }
    const TypeRow* row = findType(any.getTag());
    const std::string value = row ? row->value(any, options_.shownOctets) : octetsText(any, options_.shownOctets);
    line(offsetOf(element.data()), length, depth, value.empty() ? name : name + " " + value);
}

std::optional<size_t> Printer::printOne(ByteView octets, int depth, Around around) {
    Header header;
    const Found found = readHeader(octets, header);
    const char* const shortage = around == Around::Whole ? "malformed" : "cut off";
    if (found != Found::Header) return damage(octets.data(), depth, found == Found::CutOff ? shortage : "malformed");
    const ByteView rest = octets.subspan(header.size);
    const bool whole = header.length <= static_cast<long>(rest.size());
    if (!whole && (around == Around::Whole || !header.constructed())) return damage(octets.data(), depth, shortage);
    const ByteView body = header.length < 0 || !whole ? rest : rest.first(static_cast<size_t>(header.length));
    if (!header.constructed()) {
        printValue(header, octets.first(header.size + body.size()), depth);
        return header.size + body.size();
    }
    if (depth >= GenericFile::kMaxNesting) return damage(octets.data(), depth, "malformed");
    line(offsetOf(octets.data()), header.length < 0 ? "indef" : std::to_string(header.length), depth, typeName(header));
    const auto inside = header.length < 0 ? Around::Indefinite : whole ? Around::Whole : Around::CutOff;
    const auto used = printAll(body, depth + 1, inside);
    return used ? std::optional(header.size + *used) : std::nullopt;
}

std::optional<size_t> Printer::printAll(ByteView octets, int depth, Around around) {
    size_t at = 0;
    while (at < octets.size()) {
        const ByteView rest = octets.subspan(at);
        const bool end = rest.size() >= 2 && rest[0] == 0 && rest[1] == 0;
        if (end && around == Around::Indefinite) return at + 2;
        if (rest[0] == 0) return damage(rest.data(), depth, "malformed");
        const auto used = printOne(rest, depth, around);
        if (!used) return std::nullopt;
        at += *used;
    }
    if (around == Around::CutOff || around == Around::Indefinite) return damage(octets.data() + at, depth, "cut off");
    return at;
}

}  // namespace

Tree printTree(ByteView input, const TreeOptions& options) {
    Printer printer(input, options);
    Tree tree;
    tree.whole = printer.printAll(input, 0, Printer::Around::Nothing).has_value();
    tree.text = printer.take();
    return tree;
}

}  // namespace crv
