#include "crvasn/tree_printer.h"

#include <algorithm>
#include <array>
#include <cstdio>

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

std::string typeName(unsigned char tag) {
    constexpr std::array kClasses = {"UNIVERSAL ", "APPLICATION ", "", "PRIVATE "};
    if (const TypeRow* row = findType(tag)) return row->name;
    return std::string("[") + kClasses[tag >> 6] + std::to_string(tag & ASN_NUMBER_BITS) + "]";
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

    bool printAll(ByteView octets, int depth);
    [[nodiscard]] std::string take() { return std::move(text_); }

  private:
    [[nodiscard]] long offsetOf(const uint8_t* at) const { return at - input_.data(); }
    bool printOne(const ASNany& any, int depth);
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

bool Printer::printOne(const ASNany& any, int depth) {
    const ByteView kept = any.keptEncoding();
    const std::string length = any.wasIndefinite() ? "indef" : std::to_string(any.contents().size());
    const std::string name = typeName(any.getTag());
    const ByteView inside = isConstructed(any) ? any.contents() : encodingInside(any, depth + 1);
    if (isConstructed(any) || !inside.empty()) {
        line(offsetOf(kept.data()), length, depth, name);
        return printAll(inside, depth + 1);
    }
    const TypeRow* row = findType(any.getTag());
    const std::string value = row ? row->value(any, options_.shownOctets) : octetsText(any, options_.shownOctets);
    line(offsetOf(kept.data()), length, depth, value.empty() ? name : name + " " + value);
    return true;
}

bool Printer::printAll(ByteView octets, int depth) {
    MemoryFile file(octets, depth);
    while (file.peek() >= 0) {
        const long at = file.position();
        ASNany any;
        if (any.read(&file, 0, ASN_FLAG_CONST) <= 0) {
            line(offsetOf(octets.data()) + at, "-", depth, "malformed");
            return false;
        }
        if (!printOne(any, depth)) return false;
    }
    return true;
}

}  // namespace

Tree printTree(ByteView input, const TreeOptions& options) {
    Printer printer(input, options);
    Tree tree;
    tree.whole = printer.printAll(input, 0);
    tree.text = printer.take();
    return tree;
}

}  // namespace crv
