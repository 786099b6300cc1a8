// DSA and ECDSA signatures as PKCS#11 (2.40, 2.2.2 and 2.3.1) has them: the two numbers r and s, each as long as the
// group's order, one behind the other.
#pragma once

#include "misc/bytes.h"

namespace crv {

/// The DER Ecdsa-Sig-Value (RFC 3279 2.2.3) of the two halves; empty when there are no two halves.
[[nodiscard]] Bytes toDerSignature(ByteView plain);
/// The reverse, with `half` octets for each number. CryptoError (badKey) for what is no such signature.
[[nodiscard]] Bytes toPlainSignature(ByteView der, size_t half);

}  // namespace crv
