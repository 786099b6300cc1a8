// What is asked for of servers of certificates and CRLs.
#pragma once

#include "pki/network_sources.h"

namespace crv {

class DistinguishedName;
struct CertQuery;

/// DER of a name.
[[nodiscard]] Bytes encodedName(const DistinguishedName& name);
/// The certificates in what came.
struct FetchedCerts {
    CertList list{};
    bool tooMany = false;  ///< there are more of them than are looked at
};
[[nodiscard]] FetchedCerts certificatesIn(const FetchResult& result);
/// The CRLs of an authority: in a directory those of its entry.
[[nodiscard]] NetObject crlObject(const DistinguishedName& authority);
/// The certificates of an authority.
[[nodiscard]] NetObject issuerObject(const DistinguishedName& authority);
/// Certificates of people: a search in a directory, a query of RFC 4387 2 over HTTP.
[[nodiscard]] NetObject certObject(const CertQuery& query);

}  // namespace crv
