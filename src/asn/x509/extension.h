// Extensions of certificates, CRLs and requests (RFC 5280 4.1).
#pragma once

#include <optional>

#include "asn/asn_list.h"
#include "asn/asn_object_id.h"
#include "asn/asn_sequence.h"

namespace crv {

/// One extension; its value is the DER encoding of a type that the identifier tells (asn/x509/ext_*.h).
class Extension : public ASNsequenceF {
  public:
    ASNobjectId extnId;
    ASNbool critical;
    ASNoctstr extnValue;

    Extension() = default;
    Extension(const KnownOid& oid, const ASNobject& value, bool isCritical = false);

    /// Reads the value; false when it is not of the type. The object refers to this extension's octets when asked to
    /// with ASN_FLAG_CONST.
    [[nodiscard]] bool decode(ASNobject& value, unsigned char f = 0) const {
        return value.readExactly(extnValue.value(), f);
    }

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class Extensions : public ASNsequenceList<Extension> {
  public:
    /// The first extension of the kind, null when there is none.
    [[nodiscard]] const Extension* find(const KnownOid& oid) const;
    /// The decoded value of an extension; nothing when it is absent or not of the type.
    template <class T>
    [[nodiscard]] std::optional<T> get(const KnownOid& oid) const {
        const Extension* extension = find(oid);
        std::optional<T> value;
        if (extension && !extension->decode(value.emplace())) value.reset();
        return value;
    }
    /// Appends an extension.
    void set(const KnownOid& oid, const ASNobject& value, bool isCritical = false);

  protected:
    [[nodiscard]] bool soundContents(ByteView contents) const override;
};

}  // namespace crv
