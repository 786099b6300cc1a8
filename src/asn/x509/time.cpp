#include "asn/x509/time.h"

#include <algorithm>

namespace crv {

namespace {
constexpr int64_t kYear0 = -62167219200;
constexpr int64_t kEndOf9999 = 253402300799;
}  // namespace

std::optional<int64_t> Time::seconds() const {
    const auto* time = chosenAs<ASNtimeString>();
    return time ? time->seconds() : std::nullopt;
}

void Time::setSeconds(int64_t seconds) {
    ASNutcTime utc;
    const bool fits = utc.setSeconds(seconds);
    auto* chosen = setChosenIndex(fits ? 0 : 1);
    if (fits) {
        static_cast<ASNutcTime&>(*chosen) = utc;
    } else {
        static_cast<void>(static_cast<ASNgenTime&>(*chosen).setSeconds(std::clamp(seconds, kYear0, kEndOf9999)));
    }
}

bool Validity::includes(int64_t seconds) const {
    const auto from = notBefore.seconds();
    const auto to = notAfter.seconds();
    return from && to && *from <= seconds && seconds <= *to;
}

MemberTable Validity::members() const {
    static constexpr Member kMembers[] = {member<&Validity::notBefore>, member<&Validity::notAfter>};
    return kMembers;
}

}  // namespace crv
