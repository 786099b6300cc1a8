#include "asn/pkcs/signature_policy.h"

namespace crv {

MemberTable OtherHashAlgAndValue::members() const {
    static constexpr Member kMembers[] = {member<&OtherHashAlgAndValue::hashAlgorithm>,
                                          member<&OtherHashAlgAndValue::hashValue>};
    return kMembers;
}

MemberTable SignaturePolicyId::members() const {
    static constexpr Member kMembers[] = {member<&SignaturePolicyId::sigPolicyId>,
                                          member<&SignaturePolicyId::sigPolicyHash>,
                                          member<&SignaturePolicyId::sigPolicyQualifiers>};
    return kMembers;
}

}  // namespace crv
