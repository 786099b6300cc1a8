// The bags of a PKCS#12 file (RFC 7292 4.2).
#pragma once

#include <string>

#include "asn/pkcs/attribute.h"
#include "asn/pkcs/explicit_any.h"

namespace crv {

/// SafeBag: a value of the kind that the identifier names, with attributes.
class SafeBag : public ASNsequenceF {
  public:
    ASNobjectId bagId;
    ExplicitAny<0> bagValue;
    std::optional<Attributes> bagAttributes;

    SafeBag() = default;
    SafeBag(const KnownOid& kind, const ASNobject& value);

    /// The octets that pair a key with its certificate; empty when there are none.
    [[nodiscard]] Bytes localKeyId() const;
    /// Leaves the attribute out for an empty id.
    void setLocalKeyId(ByteView id);
    /// The name for people in UTF-8; empty when there is none.
    [[nodiscard]] std::string friendlyName() const;
    void setFriendlyName(std::string_view utf8);
    /// The encoding of all attributes but localKeyId; empty when there are none.
    [[nodiscard]] Bytes otherAttributes() const;
    void addAttributes(ByteView encoding);

  protected:
    [[nodiscard]] MemberTable members() const override;

  private:
    void setAttribute(const KnownOid& type, const ASNobject& value);
};

using SafeContents = ASNsequenceList<SafeBag>;

/// CertBag: a certificate, for kind x509Certificate as an OCTET STRING of its encoding.
class CertBag : public ASNsequenceF {
  public:
    ASNobjectId certId;
    ExplicitAny<0> certValue;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// The bag of an X.509 certificate.
[[nodiscard]] CertBag certificateBag(ByteView encoding);

/// A secret with its type. The standard puts it into a secretBag as it is; the security file puts an EncryptedData of
/// it there.
class SecretBag : public ASNsequenceF {
  public:
    ASNobjectId secretTypeId;
    ExplicitAny<0> secretValue;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
