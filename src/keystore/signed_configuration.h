// Signed configurations.
#pragma once

#include "asn/pkcs/signed_data.h"
#include "keystore/key_manager_result.h"
#include "misc/bytes.h"

namespace crv {

/// Checks a CMS SignedData (RFC 5652 5) in DER with a public key and gives its content. kKmBadFormat, kKmBadSignature.
[[nodiscard]] KeyManagerResult verifySignedData(ByteView signedData, const PublicKey& signer, Bytes& content);

/// Signs octets the same way. kKmHashNotSupported for an algorithm that the key does not make; what a token answers.
[[nodiscard]] KeyManagerResult signData(ByteView content, const SignOrder& order, RandomBridge& random,
                                        Bytes& signedData);

}  // namespace crv
