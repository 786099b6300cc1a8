// nameConstraints (RFC 5280 4.2.1.10). subjectAltName, issuerAltName and certificateIssuer are GeneralNames.
#pragma once

#include "asn/x509/general_name.h"

namespace crv {

class GeneralSubtree : public ASNsequenceF {
  public:
    GeneralName base;
    Implicit<0, ASNinteger> minimum;
    std::optional<Implicit<1, ASNinteger>> maximum;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class GeneralSubtrees : public ASNsequenceList<GeneralSubtree> {};

class NameConstraints : public ASNsequenceF {
  public:
    std::optional<Implicit<0, GeneralSubtrees>> permittedSubtrees;
    std::optional<Implicit<1, GeneralSubtrees>> excludedSubtrees;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
