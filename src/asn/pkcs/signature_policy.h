// The attribute by which a signature names the policy that it follows (ETSI EN 319 122-1 5.2.9.1).
#pragma once

#include "asn/pkcs/attribute.h"
#include "asn/x509/algorithm_identifier.h"

namespace crv {

class OtherHashAlgAndValue : public ASNsequenceF {
  public:
    AlgorithmIdentifier hashAlgorithm;
    ASNoctstr hashValue;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class SignaturePolicyId : public ASNsequenceF {
  public:
    ASNobjectId sigPolicyId;
    std::optional<OtherHashAlgAndValue> sigPolicyHash;
    std::optional<ASNsequenceList<ASNany>> sigPolicyQualifiers;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
