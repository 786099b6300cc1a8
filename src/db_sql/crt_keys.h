// The keys under which the database stores a certificate, made from the certificate.
#pragma once

#include "asn/x509/distinguished_name.h"
#include "db_sql/crt_record.h"

namespace crv {

class ASNinteger;
class ASNobjectId;
class SignedCertificate;

/// Makes the record of a certificate given by its DER octets, to which the record refers. False when they are not
/// exactly one certificate; a record that the store refuses is still made.
[[nodiscard]] bool makeCrtRecord(ByteView der, CrtRecord& record);
/// The same from a parsed certificate; `der` is its encoding.
void makeCrtRecord(const SignedCertificate& certificate, ByteView der, CrtRecord& record);

/// Whether the certificate shows that it was found only because the key identifiers are equal up to a zero octet.
[[nodiscard]] bool hasOtherKeyId(ByteView der, ByteView keyId);

/// SHA-1 of a name after normalisation: what sbjDnHash holds.
[[nodiscard]] DbHash dnHash(const DistinguishedName& name, NameFolding folding = NameFolding::Unicode);
/// SHA-1 of a serial number's DER encoding: what serNumHash holds.
[[nodiscard]] DbHash serNumHash(const ASNinteger& serialNumber);
/// SHA-1 of a certificate: what crtHash holds.
[[nodiscard]] DbHash crtHash(ByteView der);
/// The type byte under which attributes of that type are stored.
[[nodiscard]] uint8_t dnFldType(const ASNobjectId& type);

}  // namespace crv
