#include "asn/pkcs/attribute.h"

#include "misc/exceptions.h"

namespace crv {

MemberTable Attribute::members() const {
    static constexpr Member kMembers[] = {member<&Attribute::type>, member<&Attribute::values>};
    return kMembers;
}

const ASNany* Attributes::find(const KnownOid& type) const {
    for (const Attribute& attribute : *this)
        if (attribute.type == type) return attribute.values.empty() ? nullptr : &attribute.values[0];
    return nullptr;
}

bool Attributes::get(const KnownOid& type, ASNobject& value) const {
    const ASNany* found = find(type);
    return found && found->decode(value);
}

void Attributes::set(const KnownOid& type, const ASNobject& value) {
    for (size_t i = size(); i-- > 0;)
        if ((*this)[i].type == type) static_cast<void>(remove(i));
    Attribute& attribute = add();
    attribute.type = type;
    attribute.values.add().build(value);
}

Bytes Attributes::encodedWithout(const KnownOid& type) const {
    Attributes others;
    for (const Attribute& attribute : *this)
        if (!(attribute.type == type)) others.add(attribute);
    return others.empty() ? Bytes() : others.encoded();
}

void Attributes::addEncoded(ByteView encoding) {
    if (encoding.empty()) return;
    Attributes more;
    VTEST(more.readExactly(encoding), "src/asn/pkcs/attribute");
    for (const Attribute& attribute : more) add(attribute);
}

}  // namespace crv
