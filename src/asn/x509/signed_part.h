// What certificates, CRLs and requests share: a body, the algorithm and a signature over the body (RFC 5280 4.1.1).
#pragma once

#include "asn/x509/algorithm_identifier.h"
#include "crypto/crypto_error.h"
#include "crypto/public_key.h"

namespace crv {

/// Whether the signature over the body is right; over its octets as they came when it was read in keeping mode. False
/// for an algorithm that is unknown here or does not suit the key. Throws CryptoError when the primitive itself fails.
[[nodiscard]] bool isPartSigned(const ASNobject& part, const AlgorithmIdentifier& algorithm, const ASNbitstr& signature,
                                const PublicKey& key);

/// Whether it is known to be signed with the key: false as well where key or algorithm leave that open. Throws
/// CryptoError when the primitive itself fails, of which nothing follows.
template <class Signed>
[[nodiscard]] bool isKnownSignedBy(const Signed& object, const PublicKey& key) {
    try {
        return object.isSignedBy(key);
    } catch (const CryptoError& error) {
        if (!error.isOfInput()) throw;
        return false;
    }
}

}  // namespace crv
