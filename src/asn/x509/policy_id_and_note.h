// An object identifier with a note for people: user policies and accepted extended key usages in the configuration.
#pragma once

#include <string>

#include "asn/asn_object_id.h"
#include "asn/asn_sequence.h"

namespace crv {

/// SEQUENCE {identifier, note}. The note's octets are the text and one zero octet behind it.
class PolicyIdAndNote : public ASNsequenceF {
  public:
    ASNobjectId policyId;
    ASNoctstr note;

    PolicyIdAndNote() = default;
    PolicyIdAndNote(const ASNobjectId& id, std::string_view noteText) : policyId(id) { setNoteText(noteText); }

    /// Stores the text with its terminating zero.
    void setNoteText(std::string_view text);
    /// The text up to the first zero octet or the end.
    [[nodiscard]] std::string_view noteText() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
