// Attributes as PKCS#8, PKCS#10, PKCS#12 and CMS hang them on their structures (RFC 2985, RFC 5652 5.3).
#pragma once

#include <optional>
#include <string_view>

#include "asn/asn_any.h"
#include "asn/asn_list.h"
#include "asn/asn_object_id.h"
#include "asn/asn_sequence.h"

namespace crv {

/// An attribute: its type and a set of values, of which the attributes used here have one.
class Attribute : public ASNsequenceF {
  public:
    ASNobjectId type;
    ASNsetList<ASNany> values;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// SET OF Attribute.
class Attributes : public ASNsetList<Attribute> {
  public:
    /// The first value of the attribute, null when it is absent or has none.
    [[nodiscard]] const ASNany* find(const KnownOid& type) const;
    /// Reads the first value; false when there is none or it is of another type.
    [[nodiscard]] bool get(const KnownOid& type, ASNobject& value) const;
    /// Gives the attribute this one value; others of the type go.
    void set(const KnownOid& type, const ASNobject& value);

    /// The encoding of all attributes but those of the type; empty when there are no others.
    [[nodiscard]] Bytes encodedWithout(const KnownOid& type) const;
    /// Adds the attributes of such an encoding; an empty one adds none.
    void addEncoded(ByteView encoding);
};

/// The attributes of a structure that may have none, made when there are none yet.
template <class Some>
Some& ensured(std::optional<Some>& attributes) {
    return attributes ? *attributes : attributes.emplace();
}

}  // namespace crv
