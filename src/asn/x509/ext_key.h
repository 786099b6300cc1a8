// Extensions about keys: what they are for, which one it is, whether it is that of a CA (RFC 5280 4.2.1).
#pragma once

#include "asn/asn_time.h"
#include "asn/x509/general_name.h"

namespace crv {

/// keyUsage (4.2.1.3); the enumerators are bit numbers.
class KeyUsage : public ASNbitstr {
  public:
    enum Bit {
        kDigitalSignature,
        kNonRepudiation,
        kKeyEncipherment,
        kDataEncipherment,
        kKeyAgreement,
        kKeyCertSign,
        kCrlSign,
        kEncipherOnly,
        kDecipherOnly,
    };
    /// Names of the bits that are set, in order.
    [[nodiscard]] std::vector<std::string> names() const;
};

/// extKeyUsage (4.2.1.12).
class ExtKeyUsage : public ASNsequenceList<ASNobjectId> {};

/// basicConstraints (4.2.1.9).
class BasicConstraints : public ASNsequenceF {
  public:
    ASNbool cA;
    std::optional<ASNinteger> pathLenConstraint;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// subjectKeyIdentifier (4.2.1.2).
class SubjectKeyIdentifier : public ASNoctstr {};

/// authorityKeyIdentifier (4.2.1.1).
class AuthorityKeyIdentifier : public ASNsequenceF {
  public:
    std::optional<Implicit<0, ASNoctstr>> keyIdentifier;
    std::optional<Implicit<1, GeneralNames>> authorityCertIssuer;
    std::optional<Implicit<2, ASNinteger>> authorityCertSerialNumber;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// privateKeyUsagePeriod (RFC 3280 4.2.1.4).
class PrivateKeyUsagePeriod : public ASNsequenceF {
  public:
    std::optional<Implicit<0, ASNgenTime>> notBefore;
    std::optional<Implicit<1, ASNgenTime>> notAfter;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
