#include "db_sql/crt_keys.h"

#include <algorithm>
#include <array>
#include <utility>

#include "asn/x509/signed_certificate.h"
#include "crypto/kc_hash.h"
#include "db_sql/no_oop.h"

namespace crv {

namespace {

struct FieldType {
    const KnownOid& oid;
    uint8_t type;
};

constexpr std::array<FieldType, 12> kFieldTypes{{
    {OID_AT_COMMON_NAME, kDnCommonName},
    {OID_AT_ORGANIZATION, kDnOrganization},
    {OID_AT_ORGANIZATIONAL_UNIT, kDnOrganizationalUnit},
    {OID_AT_COUNTRY, kDnCountry},
    {OID_AT_SURNAME, kDnSurname},
    {OID_AT_GIVEN_NAME, kDnGivenName},
    {OID_AT_LOCALITY, kDnLocality},
    {OID_AT_STATE, kDnState},
    {OID_AT_TITLE, kDnTitle},
    {OID_AT_SERIAL_NUMBER, kDnSerialNumber},
    {OID_AT_DOMAIN_COMPONENT, kDnDomainComponent},
    {OID_PKCS9_EMAIL, kDnEmail},
}};

DbHash sha1(ByteView octets) {
    DbHash hash;
    hashInto(KcHashAlgo::Sha1, octets, hash);
    return hash;
}

/// Stops behind the first field too many.
void addSubjectFields(DnFldList& list, const DistinguishedName& subject) {
    for (const RelativeDistinguishedName& set : subject) {
        for (const AttributeTypeAndValue& attribute : set) {
            if (list.size() > kMaxCrtFields) return;
            addToListNoRepeat(list, dnFldType(attribute.type), attribute.valueUtf8());
        }
    }
}

}  // namespace

uint8_t dnFldType(const ASNobjectId& type) {
    const auto row = std::ranges::find_if(kFieldTypes, [&](const FieldType& known) { return type == known.oid; });
    return row == kFieldTypes.end() ? static_cast<uint8_t>(kDnOther) : row->type;
}

DbHash dnHash(const DistinguishedName& name, NameFolding folding) {
    return sha1(name.normalizedEncoding(folding));
}

DbHash crtHash(ByteView der) {
    return sha1(der);
}

DbHash serNumHash(const ASNinteger& serialNumber) {
    return sha1(serialNumber.encoded());
}

void makeCrtRecord(const SignedCertificate& certificate, ByteView der, CrtRecord& record) {
    record = {};
    record.serNumHash = serNumHash(certificate.serialNumber());
    record.sbjDnHash = dnHash(certificate.subject());
    record.crtHash = crtHash(der);
    record.keyId = certificate.getKeyIdFromCert();
    record.der = der;
    record.isCa = certificate.isCaCrt();
    record.notAfter = certificate.tbs.validity.notAfter.seconds();
    addSubjectFields(record.dnFlds, certificate.subject());
    std::vector<std::string> emails = certificate.emails();
    for (const std::string& email : emails) {
        if (record.dnFlds.size() > kMaxCrtFields) break;
        addToListNoRepeat(record.dnFlds, kDnEmail, email);
    }
    if (!emails.empty()) record.email = std::move(emails.front());
}

bool makeCrtRecord(ByteView der, CrtRecord& record) {
    SignedCertificate certificate;
    if (!certificate.readExactly(der, ASN_FLAG_CONST)) return false;
    makeCrtRecord(certificate, der, record);
    return true;
}

bool hasOtherKeyId(ByteView der, ByteView keyId) {
    SignedCertificate certificate;
    if (!certificate.readExactly(der, ASN_FLAG_CONST)) return false;
    const Bytes own = certificate.getKeyIdFromCert();
    const auto seen = [](ByteView octets) { return octets.first(std::min(octets.size(), asText(octets).find('\0'))); };
    return std::ranges::equal(seen(own), seen(keyId)) && !std::ranges::equal(own, keyId);
}

}  // namespace crv
