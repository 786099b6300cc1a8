// Attributes by which a signature names the certificate of its signer (RFC 2634 5.4, RFC 5035 3).
#pragma once

#include "asn/pkcs/attribute.h"
#include "asn/x509/algorithm_identifier.h"
#include "asn/x509/ext_policies.h"
#include "asn/x509/general_name.h"

namespace crv {

class SignedCertificate;

class IssuerSerial : public ASNsequenceF {
  public:
    GeneralNames issuer;
    ASNinteger serialNumber;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// ESSCertID: SHA-1 of the certificate.
class EssCertId : public ASNsequenceF {
  public:
    ASNoctstr certHash;
    std::optional<IssuerSerial> issuerSerial;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// ESSCertIDv2: any hash of the certificate, SHA-256 where none is named.
class EssCertIdV2 : public ASNsequenceF {
  public:
    std::optional<AlgorithmIdentifier> hashAlgorithm;
    ASNoctstr certHash;
    std::optional<IssuerSerial> issuerSerial;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Whether the identifier is that of the certificate: its hash and, where they stand there, issuer and number.
[[nodiscard]] bool namesCertificate(const EssCertId& id, const SignedCertificate& certificate);
[[nodiscard]] bool namesCertificate(const EssCertIdV2& id, const SignedCertificate& certificate);

template <class Id>
class SigningCertificateOf : public ASNsequenceF {
  public:
    ASNsequenceList<Id> certs;
    std::optional<CertificatePolicies> policies;

    /// The first identifier is that of the signer.
    [[nodiscard]] bool isOf(const SignedCertificate& certificate) const {
        return !certs.empty() && namesCertificate(certs[0], certificate);
    }

  protected:
    [[nodiscard]] MemberTable members() const override {
        static constexpr Member kMembers[] = {member<&SigningCertificateOf::certs>,
                                              member<&SigningCertificateOf::policies>};
        return kMembers;
    }
};

using SigningCertificateAttr = SigningCertificateOf<EssCertId>;
using SigningCertificateV2Attr = SigningCertificateOf<EssCertIdV2>;

/// Whether signed attributes name the certificate, in each of the two ways that they use; nothing when they name none.
[[nodiscard]] std::optional<bool> namedBy(const Attributes& attributes, const SignedCertificate& certificate);

}  // namespace crv
