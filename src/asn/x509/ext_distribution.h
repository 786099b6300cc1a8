// Extensions that tell where things are: CRLs (RFC 5280 4.2.1.13, 4.2.1.15, 5.2.5) and further information (4.2.2).
#pragma once

#include "asn/x509/general_name.h"

namespace crv {

/// Where a CRL is: full names, or a name relative to the issuer's.
class DistributionPointName : public ASNchoiceOf<Implicit<0, GeneralNames>, Implicit<1, RelativeDistinguishedName>> {
  public:
    /// The full names; null for the other form.
    [[nodiscard]] const GeneralNames* fullName() const { return chosenAs<GeneralNames>(); }
};

/// Reasons of revocation that a CRL covers; bit numbers are those of RFC 5280 4.2.1.13.
class ReasonFlags : public ASNbitstr {
  public:
    [[nodiscard]] std::vector<std::string> names() const;
};

class DistributionPoint : public ASNsequenceF {
  public:
    std::optional<Explicit<0, DistributionPointName>> distributionPoint;
    std::optional<Implicit<1, ReasonFlags>> reasons;
    std::optional<Implicit<2, GeneralNames>> cRLIssuer;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// cRLDistributionPoints and freshestCRL.
class CrlDistributionPoints : public ASNsequenceList<DistributionPoint> {
  public:
    /// Every address of a CRL among the full names.
    [[nodiscard]] std::vector<std::string> uris() const;
};

/// issuingDistributionPoint of a CRL.
class IssuingDistributionPoint : public ASNsequenceF {
  public:
    std::optional<Explicit<0, DistributionPointName>> distributionPoint;
    Implicit<1, ASNbool> onlyContainsUserCerts;
    Implicit<2, ASNbool> onlyContainsCaCerts;
    std::optional<Implicit<3, ReasonFlags>> onlySomeReasons;
    Implicit<4, ASNbool> indirectCrl;
    Implicit<5, ASNbool> onlyContainsAttributeCerts;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class AccessDescription : public ASNsequenceF {
  public:
    ASNobjectId accessMethod;
    GeneralName accessLocation;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// authorityInfoAccess and subjectInfoAccess.
class InfoAccess : public ASNsequenceList<AccessDescription> {
  public:
    /// Every address under the method.
    [[nodiscard]] std::vector<std::string> uris(const KnownOid& method) const;
};

}  // namespace crv
