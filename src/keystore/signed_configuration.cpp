#include "keystore/signed_configuration.h"

#include "asn/known_oids.h"
#include "asn/pkcs/signed_data.h"

namespace crv {

KeyManagerResult verifySignedData(ByteView signedData, const PublicKey& signer, Bytes& content) {
    ContentInfo wrapped;
    SignedData data;
    if (!wrapped.readExactly(signedData, ASN_FLAG_CONST) || !wrapped.get(OID_PKCS7_SIGNED_DATA, data, ASN_FLAG_CONST))
        return kKmBadFormat;
    const auto octets = data.content();
    if (!octets) return kKmBadFormat;
    if (data.verify(signer) != SignatureCheck::Good) return kKmBadSignature;
    content = *octets;
    return kKmOk;
}

}  // namespace crv
