// The key record of the key manager.
#pragma once

#include "asn/pkcs/digested_record.h"
#include "asn/x509/signed_certificate.h"

namespace crv {

/// SEQUENCE {presence BIT STRING, [0] IMPLICIT INTEGER OPTIONAL, eight INTEGERs, two Names, two INTEGERs, Certificate
/// OPTIONAL, digest OCTET STRING (20) OPTIONAL}. The certificate is there when more than 23 octets follow the last
/// INTEGER: a digest alone takes 22.
class KMKeyFile : public DigestedRecord {
  public:
    /// Bits of the presence string.
    enum Presence {
        kSigningKey = 0,
        kEncryptionKey = 1,
        kCombinedKey = 2,  ///< signs, and is kept as the signing key
    };

    ASNbitstr presence;
    std::optional<Implicit<0, ASNinteger>> option;
    ASNinteger number1, number2, number3, number4, number5, number6, number7, number8;
    DistinguishedName name1, name2;
    ASNinteger number9, number10;
    std::optional<SignedCertificate> certificate;
    std::optional<ASNoctstr> digest;

  protected:
    [[nodiscard]] MemberTable members() const override;
    [[nodiscard]] bool validMembers() const override;
    [[nodiscard]] ASNoctstr& digestField() override { return digest ? *digest : digest.emplace(); }
    [[nodiscard]] ByteView digestOctets() const override { return digest ? digest->value() : ByteView(); }
};

}  // namespace crv
