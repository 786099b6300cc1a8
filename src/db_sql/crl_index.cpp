#include "db_sql/crl_index.h"

#include <algorithm>

namespace crv {

std::optional<int64_t> CrlIndexEntry::expires() const {
    return nextUpdate ? nextUpdate->seconds() : std::nullopt;
}

MemberTable CrlIndexEntry::members() const {
    static constexpr Member kMembers[] = {member<&CrlIndexEntry::number>,         member<&CrlIndexEntry::issuer>,
                                          member<&CrlIndexEntry::thisUpdate>,     member<&CrlIndexEntry::nextUpdate>,
                                          member<&CrlIndexEntry::crlNumber>,      member<&CrlIndexEntry::baseCrlNumber>,
                                          member<&CrlIndexEntry::authorityKeyId>, member<&CrlIndexEntry::sha256>};
    return kMembers;
}

int compareNumbers(const ASNinteger& a, const ASNinteger& b) {
    const ByteView x = a.magnitude(), y = b.magnitude();
    if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
    const auto order = std::lexicographical_compare_three_way(x.begin(), x.end(), y.begin(), y.end());
    return order < 0 ? -1 : order > 0;
}

}  // namespace crv
