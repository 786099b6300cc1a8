#include "asn/x509/policy_id_and_note.h"

namespace crv {

void PolicyIdAndNote::setNoteText(std::string_view text) {
    std::string terminated(text);
    terminated += '\0';
    note.build(terminated);
}

std::string_view PolicyIdAndNote::noteText() const {
    const std::string_view text = note.text();
    return text.substr(0, text.find('\0'));
}

MemberTable PolicyIdAndNote::members() const {
    static constexpr Member kMembers[] = {member<&PolicyIdAndNote::policyId>, member<&PolicyIdAndNote::note>};
    return kMembers;
}

}  // namespace crv
