// Any octets as a PKCS#7 or CMS content, and as a certification request.
#include "asn/known_oids.h"
#include "asn/pkcs/certification_request.h"
#include "asn/pkcs/encrypted_data.h"
#include "asn/pkcs/signed_data.h"
#include "cheap_pbe.h"
#include "crypto/crypto_error.h"
#include "round_trip.h"

using namespace crv;

namespace {

void lookAtContent(const ContentInfo& info) {
    SignedData data;
    if (info.get(OID_PKCS7_SIGNED_DATA, data, ASN_FLAG_CONST)) {
        static_cast<void>(data.certificateList());
        static_cast<void>(data.verify(ByteView()));
        for (const SignerInfo& signer : data.signerInfos) static_cast<void>(signer.signingTime());
    }
    EncryptedData enciphered;
    if (info.get(OID_PKCS7_ENCRYPTED_DATA, enciphered)) static_cast<void>(enciphered.decrypt(PbePassword("x")));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ByteView octets(data, size);
    if (!fuzz::pbeIsCheap(octets)) return 0;
    ContentInfo info;
    CertificationRequest request;
    try {
        if (fuzz::roundTrip(octets, info)) lookAtContent(info);
        if (fuzz::roundTrip(octets, request)) {
            static_cast<void>(request.requestedExtensions());
            static_cast<void>(request.isSigned());
        }
    } catch (const CryptoError&) {
    }
    return 0;
}
