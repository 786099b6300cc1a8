// Fields of a subject name as the database finds them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace crv {

/// Type bytes of the fields.
enum DnFldType : uint8_t {
    kDnCommonName = 'n',
    kDnOrganization = 'o',
    kDnOrganizationalUnit = 'u',
    kDnCountry = 'c',
    kDnSurname = 's',
    kDnGivenName = 'g',
    kDnLocality = 'l',
    kDnState = 'p',
    kDnTitle = 't',
    kDnSerialNumber = 'd',
    kDnDomainComponent = 'D',
    kDnOther = 'x',
    kDnEmail = 'e'  ///< 101: every e-mail address of the certificate, wherever it stands
};

/// Octets of a value that take part in a search; longer values are cut on insertion and search alike.
constexpr size_t kMaxDnFldValue = 128;

/// A field's type and its value in UTF-8.
struct DnFld {
    uint8_t type = 0;
    std::string value;
    bool operator==(const DnFld&) const = default;
};

using DnFldList = std::vector<DnFld>;

/// Appends the field unless the list has the same type and value already. The value is cut to maxDnFldValue octets,
/// and at a zero octet.
void addToListNoRepeat(DnFldList& list, uint8_t type, std::string value);

/// As much of a value as the database keeps.
std::string dnFldValue(std::string value);

}  // namespace crv
