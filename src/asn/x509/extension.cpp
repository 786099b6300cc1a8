#include "asn/x509/extension.h"

#include <algorithm>

#include "asn/tlv_view.h"

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

bool Extensions::soundContents(ByteView contents) const {
    while (!contents.empty()) {
        const auto extension = takeTlv(contents, ASNsequenceF::kTag);
        if (!extension) return false;
        ByteView rest = extension->body;
        const auto id = takeTlv(rest, ASNobjectId::kTag);
        const auto critical = takeTlv(rest, ASNbool::kTag);
        const auto value = takeTlv(rest, ASNoctstr::kTag);
        if (!id || !ASNobjectId::areArcs(id->body) || (critical && critical->body.size() != 1)) return false;
        if (!value || !rest.empty()) return false;
    }
    return true;
}

void Extensions::set(const KnownOid& oid, const ASNobject& value, bool isCritical) {
    add(Extension(oid, value, isCritical));
}

}  // namespace crv
