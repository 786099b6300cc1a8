#include "asn/x509/extension.h"

#include <algorithm>

namespace crv {

Extension::Extension(const KnownOid& oid, const ASNobject& value, bool isCritical) : extnId(oid), critical(isCritical) {
    extnValue.build(value.encoded());
}

MemberTable Extension::members() const {
    static constexpr Member kMembers[] = {member<&Extension::extnId>, defaulted<&Extension::critical, 0>,
                                          member<&Extension::extnValue>};
    return kMembers;
}

const Extension* Extensions::find(const KnownOid& oid) const {
    const auto at = std::ranges::find_if(begin(), end(), [&](const Extension& e) { return e.extnId == oid; });
    return at == end() ? nullptr : &*at;
}

void Extensions::set(const KnownOid& oid, const ASNobject& value, bool isCritical) {
    add(Extension(oid, value, isCritical));
}

}  // namespace crv
