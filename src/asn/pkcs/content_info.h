// ContentInfo: the outermost wrapping of every PKCS#7 and CMS structure (RFC 5652 3).
#pragma once

#include "asn/asn_object_id.h"
#include "asn/asn_sequence.h"
#include "asn/pkcs/explicit_any.h"

namespace crv {

/// A content and the identifier of its type.
class ContentInfo : public ASNsequenceF {
  public:
    ASNobjectId contentType;
    std::optional<ExplicitAny<0>> content;

    /// Wraps a content of any type.
    void build(const KnownOid& type, const ASNobject& value);
    /// Wraps octets as a content of type data (RFC 5652 4).
    void buildData(ByteView octets);

    [[nodiscard]] bool is(const KnownOid& type) const { return contentType == type; }
    /// Reads the content when it is of the type; `f` as for ASNany::decode.
    [[nodiscard]] bool get(const KnownOid& type, ASNobject& value, unsigned char f = 0) const;
    /// The octets of a content of type data; in the default mode copied.
    [[nodiscard]] bool getData(ASNoctstr& octets, unsigned char f = 0) const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
