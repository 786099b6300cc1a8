#include "asn/x509/ext_names.h"

namespace crv {

MemberTable GeneralSubtree::members() const {
    static constexpr Member kMembers[] = {member<&GeneralSubtree::base>, defaulted<&GeneralSubtree::minimum, 0>,
                                          member<&GeneralSubtree::maximum>};
    return kMembers;
}

MemberTable NameConstraints::members() const {
    static constexpr Member kMembers[] = {member<&NameConstraints::permittedSubtrees>,
                                          member<&NameConstraints::excludedSubtrees>};
    return kMembers;
}

}  // namespace crv
