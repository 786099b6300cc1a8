#include "asn/x509/general_name.h"

#include <arpa/inet.h>

#include "misc/c_string.h"
#include "misc/hex.h"

namespace crv {

namespace {

constexpr const char* kForms[] = {"otherName",    "email", "DNS",        "X400Name",     "DirName",
                                  "EdiPartyName", "URI",   "IP Address", "Registered ID"};

std::string addressText(ByteView octets) {
    char text[INET6_ADDRSTRLEN];
    const int family = octets.size() == 4 ? AF_INET : AF_INET6;
    return orEmpty(inet_ntop(family, octets.data(), text, sizeof text));
}

/// An address, or an address and its mask as name constraints have them.
std::string ipText(ByteView octets) {
    if (octets.size() == 4 || octets.size() == 16) return addressText(octets);
    if (octets.size() != 8 && octets.size() != 32) return toHex(octets);
    const size_t half = octets.size() / 2;
    return addressText(octets.first(half)) + "/" + addressText(octets.subspan(half));
}

std::string otherNameText(const OtherName& other) {
    const unsigned char tag = other.value.valueTag();
    return other.typeId.name() + ":" +
           (isStringTag(tag) ? stringToUtf8(tag, other.value.contents()) : toHex(other.value.contents()));
}

}  // namespace

MemberTable OtherName::members() const {
    static constexpr Member kMembers[] = {member<&OtherName::typeId>, member<&OtherName::value>};
    return kMembers;
}

void GeneralName::setText(Form form, std::string_view text) {
    dynamic_cast<ASNia5String&>(*setChosenIndex(form)).setUtf8(text);
}

void GeneralName::setName(const DistinguishedName& name) {
    dynamic_cast<DistinguishedName&>(*setChosenIndex(kDirectoryName)) = name;
}

std::string GeneralName::value() const {
    if (const auto* text = chosenAs<ASNia5String>()) return text->utf8();
    if (const auto* name = chosenAs<DistinguishedName>()) return name->text();
    if (const auto* oid = chosenAs<ASNobjectId>()) return oid->text();
    if (const auto* other = chosenAs<OtherName>()) return otherNameText(*other);
    if (is(kIpAddress)) return ipText(chosenAs<ASNoctstr>()->value());
    return getChosen() ? toHex(getChosen()->encoded()) : "";
}

std::string GeneralName::text() const {
    return getChosen() ? std::string(kForms[getChosenIndex()]) + ":" + value() : "";
}

std::vector<std::string> GeneralNames::values(GeneralName::Form form) const {
    std::vector<std::string> out;
    for (const GeneralName& name : *this)
        if (name.is(form)) out.push_back(name.value());
    return out;
}

}  // namespace crv
