// SignedData of PKCS#7 and CMS (RFC 5652 5): signed contents, and bundles of certificates and CRLs.
#pragma once

#include <vector>

#include "asn/pkcs/attribute.h"
#include "asn/pkcs/content_info.h"
#include "asn/x509/signed_certificate.h"

namespace crv {

class Signer;
class RandomBridge;

class IssuerAndSerialNumber : public ASNsequenceF {
  public:
    DistinguishedName issuer;
    ASNinteger serialNumber;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// The signer's certificate: by issuer and number, or by its subject key identifier.
class SignerIdentifier : public ASNchoiceOf<IssuerAndSerialNumber, Implicit<0, ASNoctstr>> {
  public:
    void set(const SignedCertificate& certificate);
    void set(const KeyId& keyId);
    [[nodiscard]] bool matches(const SignedCertificate& certificate) const;
};

class SignerInfo : public ASNsequenceF {
  public:
    ASNinteger version;
    SignerIdentifier sid;
    AlgorithmIdentifier digestAlgorithm;
    std::optional<Implicit<0, Attributes>> signedAttrs;
    AlgorithmIdentifier signatureAlgorithm;
    ASNoctstr signature;
    std::optional<Implicit<1, Attributes>> unsignedAttrs;

    /// When the signer says that it was signed; nothing when it does not.
    [[nodiscard]] std::optional<int64_t> signingTime() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Scheme, hash and parameters of its signature; an identifier of a bare scheme (rsaEncryption) leaves the hash to
/// digestAlgorithm. Nothing for an algorithm that is unknown here.
[[nodiscard]] std::optional<SignatureAlgorithm> signatureAlgorithmOf(const SignerInfo& signer);
/// Whether the signature over the digest is right; an algorithm that does not suit the key makes a wrong signature.
/// Throws CryptoError when the primitive itself fails.
[[nodiscard]] bool isRightSignature(const PublicKey& key, const SignatureAlgorithm& algorithm, ByteView digest,
                                    ByteView signature);

enum class SignatureCheck {
    Good,
    Bad,            ///< the signature or the digest is wrong, or the signed attributes are not those of the content
    Unsupported,    ///< an algorithm that is unknown here
    NoSignature,    ///< nobody signed
    NoCertificate,  ///< the signer's certificate is not among the certificates
    NoContent,      ///< the content is neither inside nor given
};

/// How and by whom a content is to be signed.
struct SignOrder {
    const Signer& key;
    const SignedCertificate* certificate;  ///< null: the signer is told by its key identifier (SHA-1)
    KeyScheme scheme;
    KcHashAlgo hash;
    int64_t time;           ///< the signing time, seconds since 1970 UTC
    bool detached = false;  ///< whether to leave the content out
};

class SignedData : public ASNsequenceF {
  public:
    ASNinteger version{1};
    ASNsetList<AlgorithmIdentifier> digestAlgorithms;
    ContentInfo encapContentInfo;
    std::optional<Implicit<0, ASNsetList<ASNany>>> certificates;
    std::optional<Implicit<1, ASNsetList<ASNany>>> crls;
    ASNsetList<SignerInfo> signerInfos;

    /// A bundle: certificates and CRLs without content and signature.
    SignedData();
    void addCertificate(const SignedCertificate& certificate);
    void addCrl(const ASNobject& crl);
    /// Every X.509 certificate, in keeping mode with octets of its own; others are passed over.
    [[nodiscard]] std::vector<SignedCertificate> certificateList() const;

    /// Signs a content of type data with signed attributes (content type, digest, time) and adds the certificate, when
    /// there is one. Throws CryptoError.
    void sign(ByteView content, const SignOrder& order, RandomBridge& random);
    /// The octets of the content that is inside; nothing when it is detached. Valid until the object changes.
    [[nodiscard]] std::optional<Bytes> content() const;

    /// Checks every signature with the certificates that are inside; the first result that is not good. `detached`: the
    /// content when it is not inside. Says nothing about the certificates themselves. Throws CryptoError for a
    /// certificate's key that cannot be used.
    [[nodiscard]] SignatureCheck verify(std::optional<ByteView> detached = std::nullopt) const;
    /// Checks every signature with one key.
    [[nodiscard]] SignatureCheck verify(const PublicKey& key, std::optional<ByteView> detached = std::nullopt) const;

  protected:
    [[nodiscard]] MemberTable members() const override;

  private:
    [[nodiscard]] SignatureCheck verifySigner(const SignerInfo& signer, const PublicKey& key, ByteView octets) const;
    [[nodiscard]] bool attributesFit(const SignerInfo& signer, KcHashAlgo hash, ByteView octets) const;
    template <class KeyOf>
    [[nodiscard]] SignatureCheck verifyAll(std::optional<ByteView> detached, KeyOf keyOf) const;
};

}  // namespace crv
