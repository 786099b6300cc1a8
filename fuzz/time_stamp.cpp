// Any octets as the answer of a time-stamp server, and as the contents of a token.
#include "asn/tsp/time_stamp.h"
#include "asn/known_oids.h"
#include "asn/pkcs/signed_data.h"
#include "asn/tsp/signing_certificate.h"
#include "crypto/crypto_error.h"
#include "round_trip.h"

using namespace crv;

namespace {

void lookAtToken(const ContentInfo& token) {
    SignedData data;
    TstInfo info;
    if (!token.get(OID_PKCS7_SIGNED_DATA, data, ASN_FLAG_CONST | ASN_FLAG_COPY)) return;
    if (const auto content = data.content(); content && info.readExactly(*content)) {
        static_cast<void>(info.genTime.seconds());
        if (info.accuracy) static_cast<void>(info.accuracy->microseconds());
    }
    for (const SignerInfo& signer : data.signerInfos) {
        SigningCertificateV2Attr named;
        if (!signer.signedAttrs || !signer.signedAttrs->get(OID_AA_SIGNING_CERTIFICATE_V2, named)) continue;
        for (const SignedCertificate& one : data.certificateList()) static_cast<void>(named.isOf(one));
    }
    try {
        static_cast<void>(data.verify());
    } catch (const CryptoError&) {
        // a key that cannot be used
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    TimeStampResp response;
    if (!fuzz::roundTrip(ByteView(data, size), response)) return 0;
    static_cast<void>(response.status.text());
    if (response.timeStampToken) lookAtToken(*response.timeStampToken);
    return 0;
}
