// Any octets as a revocation list: what is accepted must survive everything that a view or a status check does with it.
#include "asn/x509/signed_cert_rev_list.h"
#include "round_trip.h"

using namespace crv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SignedCertRevList crl;
    if (!fuzz::roundTrip(ByteView(data, size), crl)) return 0;
    static_cast<void>(crl.issuer().text());
    static_cast<void>(crl.thisUpdate());
    static_cast<void>(crl.nextUpdate());
    static_cast<void>(crl.crlNumber());
    static_cast<void>(crl.baseCrlNumber());
    static_cast<void>(crl.authorityKeyId());
    static_cast<void>(crl.issuingDistributionPoint());
    static_cast<void>(crl.hasUnknownCriticalExtension());
    size_t count = 0;
    auto entries = crl.entries();
    while (const RevokedCertificate* entry = entries.next()) {
        ++count;
        static_cast<void>(entry->revokedAt());
        static_cast<void>(crlReasonName(entry->reason()));
        static_cast<void>(entry->invalidityDate());
        static_cast<void>(entry->certificateIssuer());
        if (count < 20) static_cast<void>(crl.find(entry->userCertificate, crl.issuer()));
    }
    fuzz::check(entries.intact() && count == crl.entryCount());
    return 0;
}
