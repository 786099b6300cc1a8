#include "asn/x509/ext_distribution.h"

namespace crv {

std::vector<std::string> ReasonFlags::names() const {
    static constexpr const char* kNames[] = {
        "unused",      "keyCompromise",        "cACompromise",    "affiliationChanged",
        "superseded",  "cessationOfOperation", "certificateHold", "privilegeWithdrawn",
        "aACompromise"};
    std::vector<std::string> out;
    for (size_t i = 0; i < std::size(kNames); ++i)
        if (bit(i)) out.emplace_back(kNames[i]);
    return out;
}

std::vector<std::string> CrlDistributionPoints::uris() const {
    std::vector<std::string> out;
    for (const DistributionPoint& point : *this) {
        const GeneralNames* names = point.distributionPoint ? point.distributionPoint->fullName() : nullptr;
        if (!names) continue;
        for (std::string& uri : names->values(GeneralName::kUri)) out.push_back(std::move(uri));
    }
    return out;
}

std::vector<std::string> InfoAccess::uris(const KnownOid& method) const {
    std::vector<std::string> out;
    for (const AccessDescription& access : *this) {
        if (access.accessMethod == method && access.accessLocation.is(GeneralName::kUri))
            out.push_back(access.accessLocation.value());
    }
    return out;
}

MemberTable DistributionPoint::members() const {
    static constexpr Member kMembers[] = {member<&DistributionPoint::distributionPoint>,
                                          member<&DistributionPoint::reasons>, member<&DistributionPoint::cRLIssuer>};
    return kMembers;
}

MemberTable IssuingDistributionPoint::members() const {
    using T = IssuingDistributionPoint;
    static constexpr Member kMembers[] = {
        member<&T::distributionPoint>,         defaulted<&T::onlyContainsUserCerts, 0>,
        defaulted<&T::onlyContainsCaCerts, 0>, member<&T::onlySomeReasons>,
        defaulted<&T::indirectCrl, 0>,         defaulted<&T::onlyContainsAttributeCerts, 0>};
    return kMembers;
}

MemberTable AccessDescription::members() const {
    static constexpr Member kMembers[] = {member<&AccessDescription::accessMethod>,
                                          member<&AccessDescription::accessLocation>};
    return kMembers;
}

}  // namespace crv
