// Any octets as the answer of an OCSP responder: what is accepted must survive all that judging it reads.
#include "asn/ocsp/ocsp_response.h"
#include "asn/x509/signed_certificate.h"
#include "round_trip.h"

using namespace crv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    OcspResponse response;
    OcspBasicResponse basic;
    if (!fuzz::roundTrip(ByteView(data, size), response)) return 0;
    static_cast<void>(response.responseStatus.decimal());
    if (!response.getBasic(basic)) return 0;
    static_cast<void>(basic.tbs.nonce());
    static_cast<void>(readSignAlgorithm(basic.signatureAlgorithm));
    for (const CertPtr& one : basic.certificates()) static_cast<void>(basic.tbs.responderId.matches(*one));
    for (const OcspSingleResponse& single : basic.tbs.responses) {
        static_cast<void>(single.certId == basic.tbs.responses[0].certId);
        static_cast<void>(single.thisUpdate.seconds());
        if (single.nextUpdate) static_cast<void>(single.nextUpdate->seconds());
        if (const auto* revoked = single.certStatus.chosenAs<OcspRevokedInfo>())
            static_cast<void>(revoked->revocationTime.seconds());
    }
    return 0;
}
