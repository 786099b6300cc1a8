// SubjectPublicKeyInfo (RFC 5280 4.1.2.7).
#pragma once

#include <optional>

#include "asn/x509/algorithm_identifier.h"
#include "crypto/public_key.h"

namespace crv {

/// A public key as it stands in certificates and requests. Reading it makes no key object and checks no numbers.
class SubjectPublicKeyInfo : public ASNsequenceF {
  public:
    AlgorithmIdentifier algorithm;
    ASNbitstr subjectPublicKey;

    SubjectPublicKeyInfo() = default;
    explicit SubjectPublicKeyInfo(const PublicKey& key);

    /// SHA-1 of the octets of the key bits (RFC 5280 4.2.1.2 (1)).
    [[nodiscard]] KeyId computeKeyIdentifierSha1Hash() const;
    /// The key, made and checked now. Throws CryptoError as PublicKey::fromSpki does.
    [[nodiscard]] PublicKey publicKey() const;
    /// The same; nothing for a key that is unknown here, malformed or without its parameters.
    [[nodiscard]] std::optional<PublicKey> usableKey() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
