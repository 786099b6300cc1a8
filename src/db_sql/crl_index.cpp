#include "db_sql/crl_index.h"

#include <algorithm>
#include <compare>

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
    if (order == std::strong_ordering::equal) return 0;
    return order == std::strong_ordering::less ? -1 : 1;
}

}  // namespace crv
