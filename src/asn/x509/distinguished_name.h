// Distinguished names (RFC 5280 4.1.2.4).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "asn/asn_any.h"
#include "asn/asn_list.h"
#include "asn/asn_object_id.h"
#include "asn/asn_sequence.h"

namespace crv {

/// How names are shown: in UTF-8 or in windows-1250 (what that lacks becomes "?"); characters outside ASCII as a
/// backslash and two hexadecimal digits for each octet of their UTF-8 form.
struct DnDisplay {
    bool utf8 = true;
    bool escaped = false;
};

/// Text for a screen: as the display settings ask. Control characters and those that change the direction of writing
/// are always escaped, so that a name cannot do anything to the terminal.
[[nodiscard]] std::string displayText(std::string_view utf8, DnDisplay display);

/// One attribute of a name.
class AttributeTypeAndValue : public ASNsequenceF {
  public:
    ASNobjectId type;
    ASNany value;

    /// Short name of the type ("CN"), or its dotted text.
    [[nodiscard]] std::string label() const;
    /// The value in UTF-8; what is no string type as "#" and the hexadecimal digits of its encoding.
    [[nodiscard]] std::string valueUtf8() const;
    [[nodiscard]] bool isText() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Letters that normalising folds; databases of before know names folded in ASCII only.
enum class NameFolding { Unicode, Ascii };

class RelativeDistinguishedName : public ASNsetList<AttributeTypeAndValue> {};

/// A name: a sequence of sets of attributes, most of which hold one.
class DistinguishedName : public ASNsequenceList<RelativeDistinguishedName> {
  public:
    /// Parses "CN=Jan Kowalski, O=Firma" in the order of the encoding: labels or dotted types, the escapes of RFC 4514
    /// 2.4, "+" between the attributes of one set, "#" and hexadecimal digits for a value's encoding. Nothing for
    /// malformed text. Text becomes PrintableString or UTF8String, an e-mail address or domain component IA5String.
    [[nodiscard]] static std::optional<DistinguishedName> fromText(std::string_view text);
    /// The whole name on one line in UTF-8, in the form that `fromText` reads.
    [[nodiscard]] std::string text() const;
    /// As RFC 4514 2.1 writes it: the last element first, "CN=Jan Kowalski,O=Firma,C=PL".
    [[nodiscard]] std::string rfc4514() const;
    [[nodiscard]] DistinguishedName reversed() const;
    /// One attribute a line, "label=value", ready for a screen.
    [[nodiscard]] std::vector<std::string> lines(DnDisplay display) const;

    using ASNsequenceList::add;
    /// Appends a set of one attribute.
    void add(const KnownOid& type, std::string_view utf8);
    /// Value of the first attribute of the type in UTF-8.
    [[nodiscard]] std::optional<std::string> find(const KnownOid& type) const;

    /// The form under which equal names have equal encodings: every text a UTF8String prepared as name_prep.h says,
    /// what is no text of its type as it came.
    [[nodiscard]] DistinguishedName normalize(NameFolding folding = NameFolding::Unicode) const;
    /// Encoding of the normalised form, made without its objects: names are normalised for every certificate.
    [[nodiscard]] Bytes normalizedEncoding(NameFolding folding = NameFolding::Unicode) const;
    /// The same in the encodings of its sets.
    [[nodiscard]] std::vector<Bytes> normalizedSets(NameFolding folding = NameFolding::Unicode) const;
    /// Names are equal when their normalised forms are.
    friend bool operator==(const DistinguishedName& a, const DistinguishedName& b);

  protected:
    [[nodiscard]] bool soundContents(ByteView contents) const override;
};

}  // namespace crv
