#include "db_sql/crl_index.h"

#include <algorithm>
#include <compare>

#include "asn/known_oids.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "crypto/kc_hash.h"

namespace crv {

std::optional<int64_t> CrlIndexEntry::expires() const {
    return nextUpdate ? nextUpdate->seconds() : std::nullopt;
}

MemberTable CrlIndexEntry::members() const {
    static constexpr Member kMembers[] = {member<&CrlIndexEntry::number>,         member<&CrlIndexEntry::issuer>,
                                          member<&CrlIndexEntry::thisUpdate>,     member<&CrlIndexEntry::nextUpdate>,
                                          member<&CrlIndexEntry::crlNumber>,      member<&CrlIndexEntry::baseCrlNumber>,
                                          member<&CrlIndexEntry::authorityKeyId>, member<&CrlIndexEntry::sha256>,
                                          member<&CrlIndexEntry::verified>};
    return kMembers;
}

bool parseCrl(ByteView der, ParsedCrl& parsed) {
    SignedCertRevList crl;
    if (!crl.readExactly(der, ASN_FLAG_CONST) || !crl.thisUpdate()) return false;
    CrlIndexEntry& entry = parsed.entry;
    static_cast<void>(entry.issuer.copyObject(crl.issuer()));
    entry.thisUpdate.setSeconds(*crl.thisUpdate());
    if (const auto next = crl.nextUpdate()) entry.nextUpdate.emplace().setSeconds(*next);
    if (const auto number = crl.crlNumber()) entry.crlNumber.emplace().setUnsigned(number->magnitude());
    if (const auto base = crl.baseCrlNumber()) entry.baseCrlNumber.emplace().setUnsigned(base->magnitude());
    if (const Bytes keyId = crl.authorityKeyId(); !keyId.empty()) entry.authorityKeyId.emplace().build(keyId);
    entry.sha256.build(hashOf(KcHashAlgo::Sha256, der));
    if (const Extension* point = crl.extensions().find(OID_CE_ISSUING_DISTRIBUTION_POINT)) {
        parsed.scope = toBytes(point->extnValue.value());
    }
    return true;
}

bool parseCrlIndex(ByteView der, CrlIndex& index) {
    return index.readExactly(der) && std::ranges::all_of(index, [](const CrlIndexEntry& row) {
               return row.fileNumber() > 0 && row.fileNumber() <= kMostCrlFiles;
           });
}

int compareNumbers(const ASNinteger& a, const ASNinteger& b) {
    const ByteView x = a.magnitude(), y = b.magnitude();
    if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
    const auto order = std::lexicographical_compare_three_way(x.begin(), x.end(), y.begin(), y.end());
    if (order == std::strong_ordering::equal) return 0;
    return order == std::strong_ordering::less ? -1 : 1;
}

/// By the number, which only grows (RFC 5280 5.2.3); the time orders two with one number, issued anew, and those
/// without one.
bool isNewer(const CrlIndexEntry& a, const CrlIndexEntry& b) {
    const int order = a.crlNumber && b.crlNumber ? compareNumbers(*a.crlNumber, *b.crlNumber) : 0;
    return order != 0 ? order > 0 : a.issued() > b.issued();
}

}  // namespace crv
