// Signature algorithms: rows of (key scheme, hash) as AlgorithmIdentifiers and back.
#pragma once

#include <optional>

#include "asn/x509/algorithm_identifier.h"
#include "crypto/key_scheme.h"
#include "crypto/public_key.h"

namespace crv {

/// What an AlgorithmIdentifier of a signature says.
struct SignatureAlgorithm {
    KeyScheme scheme = KeyScheme::None;
    KcHashAlgo hash = KcHashAlgo::None;
    PssParams pss;  ///< for KeyScheme::rsaPss
};

/// The identifier of the row: NULL parameters for RSA, none for DSA and ECDSA, RSASSA-PSS-params with MGF1 over the
/// same hash and a salt as long as it for RSA-PSS (RFC 4055, RFC 5758). Nothing when there is no such row.
[[nodiscard]] std::optional<AlgorithmIdentifier> signAlgorithm(KeyScheme scheme, KcHashAlgo hash);
/// The row that an identifier names; nothing for one that is unknown here or has parameters that are not understood.
[[nodiscard]] std::optional<SignatureAlgorithm> readSignAlgorithm(const AlgorithmIdentifier& algorithm);
/// Whether the signature over the octets is right; false for an algorithm that does not suit the key. CryptoError
/// (unsupported) for one that is unknown here: nothing is known of the signature then.
[[nodiscard]] bool verifySignature(const PublicKey& key, const AlgorithmIdentifier& algorithm, ByteView data,
                                   ByteView signature);
/// The name of an algorithm for people: that of the signature table, else of the known identifiers, else dotted text.
[[nodiscard]] std::string signAlgorithmName(const AlgorithmIdentifier& algorithm);

}  // namespace crv
