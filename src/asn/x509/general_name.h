// GeneralName (RFC 5280 4.2.1.6).
#pragma once

#include "asn/asn_choice.h"
#include "asn/asn_strings.h"
#include "asn/asn_tagged.h"
#include "asn/x509/distinguished_name.h"

namespace crv {

/// A name of a kind that an identifier tells.
class OtherName : public ASNsequenceF {
  public:
    ASNobjectId typeId;
    Explicit<0, ASNany> value;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// A structure that is carried and not looked into.
class OpaqueSequence : public ASNsequenceList<ASNany> {};

/// A name in one of nine forms; the enumerators are the indices of the alternatives.
class GeneralName
    : public ASNchoiceOf<Implicit<0, OtherName>, Implicit<1, ASNia5String>, Implicit<2, ASNia5String>,
                         Implicit<3, OpaqueSequence>, Explicit<4, DistinguishedName>, Implicit<5, OpaqueSequence>,
                         Implicit<6, ASNia5String>, Implicit<7, ASNoctstr>, Implicit<8, ASNobjectId>> {
  public:
    enum Form {
        kOtherName,
        kRfc822Name,
        kDnsName,
        kX400Address,
        kDirectoryName,
        kEdiPartyName,
        kUri,
        kIpAddress,
        kRegisteredId
    };

    /// An e-mail address, DNS name or URI.
    void setText(Form form, std::string_view text);
    void setName(const DistinguishedName& name);

    [[nodiscard]] bool is(Form form) const { return getChosenIndex() == form; }
    [[nodiscard]] const DistinguishedName* name() const { return chosenAs<DistinguishedName>(); }
    /// The value alone in UTF-8: an address (with a mask for a range of addresses), a name, an identifier, hexadecimal
    /// digits for what has no text.
    [[nodiscard]] std::string value() const;
    /// The value with the form in front: "DNS:example.org".
    [[nodiscard]] std::string text() const;
};

class GeneralNames : public ASNsequenceList<GeneralName> {
  public:
    /// Values of all names of one form.
    [[nodiscard]] std::vector<std::string> values(GeneralName::Form form) const;
};

}  // namespace crv
