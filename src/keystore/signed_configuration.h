// Signed configurations.
#pragma once

#include "crypto/public_key.h"
#include "keystore/key_manager_result.h"
#include "misc/bytes.h"

namespace crv {

/// Checks a CMS SignedData (RFC 5652 5) in DER with a public key and gives its content. kKmBadFormat, kKmBadSignature.
[[nodiscard]] KeyManagerResult verifySignedData(ByteView signedData, const PublicKey& signer, Bytes& content);

}  // namespace crv
