#include "keystore/signed_configuration.h"

#include "asn/known_oids.h"
#include "crypto/crypto_error.h"
#include "keystore/token_session.h"

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

KeyManagerResult signData(ByteView content, const SignOrder& order, RandomBridge& random, Bytes& signedData) {
    SignedData data;
    try {
        data.sign(content, order, random);
    } catch (const TokenFailure& failure) {
        return failure.result();
    } catch (const CryptoError& error) {
        const KeyManagerResult result = keyResultOf(error.failure(), isRsa(order.scheme));
        return result == kKmAlgorithmNotSupported ? kKmHashNotSupported : result;
    }
    ContentInfo wrapped;
    wrapped.build(OID_PKCS7_SIGNED_DATA, data);
    signedData = wrapped.encoded();
    return kKmOk;
}

}  // namespace crv
