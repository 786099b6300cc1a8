#include "asn/x509/ext_key.h"

namespace crv {

std::vector<std::string> KeyUsage::names() const {
    static constexpr const char* kNames[] = {"digitalSignature", "nonRepudiation", "keyEncipherment",
                                             "dataEncipherment", "keyAgreement",   "keyCertSign",
                                             "cRLSign",          "encipherOnly",   "decipherOnly"};
    std::vector<std::string> out;
    for (size_t i = 0; i < std::size(kNames); ++i)
        if (bit(i)) out.emplace_back(kNames[i]);
    return out;
}

MemberTable BasicConstraints::members() const {
    static constexpr Member kMembers[] = {defaulted<&BasicConstraints::cA, 0>,
                                          member<&BasicConstraints::pathLenConstraint>};
    return kMembers;
}

MemberTable AuthorityKeyIdentifier::members() const {
    static constexpr Member kMembers[] = {member<&AuthorityKeyIdentifier::keyIdentifier>,
                                          member<&AuthorityKeyIdentifier::authorityCertIssuer>,
                                          member<&AuthorityKeyIdentifier::authorityCertSerialNumber>};
    return kMembers;
}

MemberTable PrivateKeyUsagePeriod::members() const {
    static constexpr Member kMembers[] = {member<&PrivateKeyUsagePeriod::notBefore>,
                                          member<&PrivateKeyUsagePeriod::notAfter>};
    return kMembers;
}

}  // namespace crv
