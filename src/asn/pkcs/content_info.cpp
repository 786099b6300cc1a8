#include "asn/pkcs/content_info.h"

#include "asn/known_oids.h"

namespace crv {

MemberTable ContentInfo::members() const {
    static constexpr Member kMembers[] = {member<&ContentInfo::contentType>, member<&ContentInfo::content>};
    return kMembers;
}

void ContentInfo::build(const KnownOid& type, const ASNobject& value) {
    contentType = type;
    content.emplace().value.build(value);
}

void ContentInfo::buildData(ByteView octets) {
    build(OID_PKCS7_DATA, ASNoctstr(octets));
}

bool ContentInfo::get(const KnownOid& type, ASNobject& value, unsigned char f) const {
    return is(type) && content && content->value.decode(value, f);
}

bool ContentInfo::getData(ASNoctstr& octets, unsigned char f) const {
    return get(OID_PKCS7_DATA, octets, f);
}

}  // namespace crv
