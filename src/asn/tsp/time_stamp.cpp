#include "asn/tsp/time_stamp.h"

#include <algorithm>

namespace crv {

namespace {

struct FailureName {
    size_t bit;
    const char* name;
};
constexpr FailureName kFailureNames[] = {{0, "badAlg"},
                                         {2, "badRequest"},
                                         {5, "badDataFormat"},
                                         {14, "timeNotAvailable"},
                                         {15, "unacceptedPolicy"},
                                         {16, "unacceptedExtension"},
                                         {17, "addInfoNotAvailable"},
                                         {25, "systemFailure"}};

}  // namespace

MemberTable MessageImprint::members() const {
    static constexpr Member kMembers[] = {member<&MessageImprint::hashAlgorithm>,
                                          member<&MessageImprint::hashedMessage>};
    return kMembers;
}

MemberTable TimeStampReq::members() const {
    using T = TimeStampReq;
    static constexpr Member kMembers[] = {member<&T::version>, member<&T::messageImprint>,    member<&T::reqPolicy>,
                                          member<&T::nonce>,   defaulted<&T::certReq, false>, member<&T::extensions>};
    return kMembers;
}

MemberTable PkiStatusInfo::members() const {
    static constexpr Member kMembers[] = {member<&PkiStatusInfo::status>, member<&PkiStatusInfo::statusString>,
                                          member<&PkiStatusInfo::failInfo>};
    return kMembers;
}

MemberTable TimeStampResp::members() const {
    static constexpr Member kMembers[] = {member<&TimeStampResp::status>, member<&TimeStampResp::timeStampToken>};
    return kMembers;
}

MemberTable TstAccuracy::members() const {
    static constexpr Member kMembers[] = {member<&TstAccuracy::seconds>, member<&TstAccuracy::millis>,
                                          member<&TstAccuracy::micros>};
    return kMembers;
}

MemberTable TstInfo::members() const {
    using T = TstInfo;
    static constexpr Member kMembers[] = {
        member<&T::version>, member<&T::policy>,    member<&T::messageImprint>,     member<&T::serialNumber>,
        member<&T::genTime>, member<&T::accuracy>,  defaulted<&T::ordering, false>, member<&T::nonce>,
        member<&T::tsa>,     member<&T::extensions>};
    return kMembers;
}

void MessageImprint::set(KcHashAlgo hash, ByteView digest) {
    hashAlgorithm = crv::hashAlgorithm(hash);
    hashedMessage.build(digest);
}

bool operator==(const MessageImprint& a, const MessageImprint& b) {
    return a.hashAlgorithm == b.hashAlgorithm && a.hashedMessage == b.hashedMessage;
}

std::string PkiStatusInfo::text() const {
    std::string line;
    const auto add = [&](const std::string& more) { line += (line.empty() ? "" : "; ") + more; };
    if (statusString)
        for (const ASNutf8String& one : *statusString) add(one.utf8());
    for (const FailureName& row : kFailureNames)
        if (failInfo && failInfo->bit(row.bit)) add(row.name);
    if (line.empty()) add("status " + status.decimal());
    return line;
}

std::optional<int64_t> TstAccuracy::microseconds() const {
    constexpr long kMostSeconds = 1'000'000'000;
    const long whole = seconds ? seconds->valueOr(-1) : 0;
    const long thousandths = millis ? millis->valueOr(-1) : 0;
    const long millionths = micros ? micros->valueOr(-1) : 0;
    if (whole < 0 || whole > kMostSeconds || thousandths < 0 || thousandths > 999 || millionths < 0 ||
        millionths > 999) {
        return std::nullopt;
    }
    return (int64_t{whole} * 1000 + thousandths) * 1000 + millionths;
}

}  // namespace crv
