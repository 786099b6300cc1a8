#include "asn/asn_sequence.h"

#include <algorithm>
#include <vector>

namespace crv {

long ASNsequenceF::read_contents(GenericFile* in, long len) {
    return readMembers({*in, len});
}

long ASNsequenceF::read_ndfl_contents(GenericFile* in, long maxLen) {
    return readMembers(BodyCursor::indefinite(*in, maxLen));
}

long ASNsequenceF::readMembers(BodyCursor body) {
    for (const Member& row : members()) {
        if (body.broken()) return -1;
        if (row.leaveOut && !row.make(*this).acceptsTag(body.peek())) {
            static_cast<void>(leaveOut(row));
            continue;
        }
        const long used = readMember(body, row);
        if (used <= 0) return used;
    }
    if (body.broken()) return -1;
    return body.atEnd() && validMembers() ? 1 : 0;
}

long ASNsequenceF::readMember(BodyCursor& body, const Member& row) {
    return body.atEnd() ? 0 : body.read(row.make(*this), modeOfParts());
}

bool ASNsequenceF::leaveOut(const Member& row) {
    if (!row.leaveOut) return false;
    if (ASNobject* part = row.leaveOut(*this)) part->takeModeOf(*this);
    return true;
}

bool ASNsequenceF::write_contents(GenericFile* out) const {
    return std::ranges::all_of(members(), [&](const Member& row) {
        const ASNobject* part = row.written(*this);
        return !part || part->write(out);
    });
}

long ASNsequenceF::lenOfBody() const {
    long length = 0;
    for (const Member& row : members())
        if (const ASNobject* part = row.written(*this)) length += part->getLength();
    return length;
}

void ASNsequenceF::releaseParts() {
    ASNobject::releaseParts();
    for (const Member& row : members())
        if (row.find(*this)) releasePart(row.make(*this));
}

long ASNsetF::readMembers(BodyCursor body) {
    const MemberTable table = members();
    std::vector<bool> read(table.size());
    while (!body.atEnd()) {
        const int identifier = body.peek();
        if (identifier < 0) return -1;
        size_t at = 0;
        while (at < table.size() && (read[at] || !table[at].make(*this).acceptsTag(identifier))) ++at;
        if (at == table.size()) return 0;
        const long used = readMember(body, table[at]);
        if (used <= 0) return used;
        read[at] = true;
    }
    for (size_t at = 0; at < table.size(); ++at)
        if (!read[at] && !leaveOut(table[at])) return 0;
    return validMembers() ? 1 : 0;
}

}  // namespace crv
