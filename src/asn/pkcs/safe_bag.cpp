#include "asn/pkcs/safe_bag.h"

#include "asn/asn_strings.h"
#include "asn/known_oids.h"

namespace crv {

SafeBag::SafeBag(const KnownOid& kind, const ASNobject& value) : bagId(kind) {
    bagValue.value.build(value);
}

MemberTable SafeBag::members() const {
    static constexpr Member kMembers[] = {member<&SafeBag::bagId>, member<&SafeBag::bagValue>,
                                          member<&SafeBag::bagAttributes>};
    return kMembers;
}

Bytes SafeBag::localKeyId() const {
    ASNoctstr id;
    return bagAttributes && bagAttributes->get(OID_PKCS9_LOCAL_KEY_ID, id) ? toBytes(id.value()) : Bytes();
}

void SafeBag::setLocalKeyId(ByteView id) {
    if (!id.empty()) setAttribute(OID_PKCS9_LOCAL_KEY_ID, ASNoctstr(id));
}

std::string SafeBag::friendlyName() const {
    ASNbmpString name;
    return bagAttributes && bagAttributes->get(OID_PKCS9_FRIENDLY_NAME, name) ? name.utf8() : std::string();
}

void SafeBag::setFriendlyName(std::string_view utf8) {
    setAttribute(OID_PKCS9_FRIENDLY_NAME, ASNbmpString(utf8));
}

Bytes SafeBag::otherAttributes() const {
    return bagAttributes ? bagAttributes->encodedWithout(OID_PKCS9_LOCAL_KEY_ID) : Bytes();
}

void SafeBag::addAttributes(ByteView encoding) {
    if (!encoding.empty()) ensured(bagAttributes).addEncoded(encoding);
}

void SafeBag::setAttribute(const KnownOid& type, const ASNobject& value) {
    assertChangeable();
    ensured(bagAttributes).set(type, value);
}

MemberTable CertBag::members() const {
    static constexpr Member kMembers[] = {member<&CertBag::certId>, member<&CertBag::certValue>};
    return kMembers;
}

CertBag certificateBag(ByteView encoding) {
    CertBag bag;
    bag.certId = OID_PKCS9_X509_CERTIFICATE;
    bag.certValue.value.build(ASNoctstr(encoding));
    return bag;
}

MemberTable SecretBag::members() const {
    static constexpr Member kMembers[] = {member<&SecretBag::secretTypeId>, member<&SecretBag::secretValue>};
    return kMembers;
}

}  // namespace crv
