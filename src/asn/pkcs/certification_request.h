// Certification requests (PKCS#10, RFC 2986).
#pragma once

#include "asn/asn_tagged.h"
#include "asn/pkcs/attribute.h"
#include "asn/x509/distinguished_name.h"
#include "asn/x509/extension.h"
#include "asn/x509/subject_public_key_info.h"
#include "crypto/key_scheme.h"

namespace crv {

class Signer;
class RandomBridge;

/// CertificationRequestInfo: what the signature covers.
class CertificationRequestInfo : public ASNsequenceF {
  public:
    ASNinteger version;  ///< 0
    DistinguishedName subject;
    SubjectPublicKeyInfo subjectPublicKeyInfo;
    /// Some writers leave an empty set out, though the module does not allow it.
    std::optional<Implicit<0, Attributes>> attributes;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class CertificationRequest : public ASNsequenceF {
  public:
    CertificationRequestInfo info;
    AlgorithmIdentifier signatureAlgorithm;
    ASNbitstr signature;

    /// The extensions that the certificate is to have: the extensionRequest attribute, empty when there is none.
    [[nodiscard]] Extensions requestedExtensions() const;
    void setRequestedExtensions(const Extensions& extensions);

    /// Signs with the private key of the request's public key. Throws CryptoError (badParameter) for a scheme and hash
    /// that do not go together or with the key, and what the key's `signMessage` throws.
    void sign(const Signer& key, KeyScheme scheme, KcHashAlgo hash, RandomBridge& random);
    /// Whether the signature is right under the request's own key. Throws CryptoError for a key that is unknown here.
    [[nodiscard]] bool isSigned() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
