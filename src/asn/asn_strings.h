// The character string types (X.680 41).
#pragma once

#include <string>
#include <string_view>

#include "asn/asn_primitives.h"

namespace crv {

/// Universal tags of the string types.
enum AsnStringTag : unsigned char {
    ASN_TAG_UTF8 = 12,
    ASN_TAG_NUMERIC = 18,
    ASN_TAG_PRINTABLE = 19,
    ASN_TAG_T61 = 20,
    ASN_TAG_IA5 = 22,
    ASN_TAG_VISIBLE = 26,
    ASN_TAG_GENERAL = 27,
    ASN_TAG_UNIVERSAL = 28,
    ASN_TAG_BMP = 30,
};

/// Whether the universal tag is that of a string type that `stringToUtf8` knows.
[[nodiscard]] bool isStringTag(unsigned char tag);
/// The text of a string's content octets in UTF-8. T61String is taken as ISO 8859-1, as its writers do; what is no
/// valid character becomes U+FFFD. An octet string of another tag is read as UTF-8.
[[nodiscard]] std::string stringToUtf8(unsigned char tag, ByteView octets);
/// Whether every character of a string's content octets is one of its type; a text of another is shown with U+FFFD in
/// places, so different ones may look the same.
[[nodiscard]] bool isValidString(unsigned char tag, ByteView octets);
/// Content octets of a text given in UTF-8 for a string type; what that type cannot express becomes "?".
[[nodiscard]] Bytes utf8ToString(unsigned char tag, std::string_view text);
/// PrintableString when every character is of its set, else UTF8String (RFC 5280 4.1.2.4).
[[nodiscard]] unsigned char stringTagFor(std::string_view text);

/// A string type with its universal tag.
template <unsigned char Tag>
class ASNstringOf : public ASNoctstr {
  public:
    static constexpr unsigned char kTag = Tag;
    ASNstringOf() : ASNoctstr(Tag) { setFlag(kSegments); }
    explicit ASNstringOf(std::string_view utf8) : ASNstringOf() { setUtf8(utf8); }

    [[nodiscard]] std::string utf8() const { return stringToUtf8(Tag, contents()); }
    void setUtf8(std::string_view text) { build(utf8ToString(Tag, text)); }
    [[nodiscard]] unsigned char getDefaultTag() const override { return Tag; }
};

using ASNutf8String = ASNstringOf<ASN_TAG_UTF8>;
using ASNnumericString = ASNstringOf<ASN_TAG_NUMERIC>;
using ASNprintableString = ASNstringOf<ASN_TAG_PRINTABLE>;
using ASNt61String = ASNstringOf<ASN_TAG_T61>;
using ASNia5String = ASNstringOf<ASN_TAG_IA5>;
using ASNvisibleString = ASNstringOf<ASN_TAG_VISIBLE>;
using ASNgeneralString = ASNstringOf<ASN_TAG_GENERAL>;
using ASNuniversalString = ASNstringOf<ASN_TAG_UNIVERSAL>;
using ASNbmpString = ASNstringOf<ASN_TAG_BMP>;

}  // namespace crv
