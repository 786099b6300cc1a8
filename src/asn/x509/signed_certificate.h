// Certificates (RFC 5280 4.1).
#pragma once

#include <string>
#include <vector>

#include "asn/known_oids.h"
#include "asn/x509/distinguished_name.h"
#include "asn/x509/ext_key.h"
#include "asn/x509/extension.h"
#include "asn/x509/sign_algo.h"
#include "asn/x509/subject_public_key_info.h"
#include "asn/x509/time.h"

namespace crv {

/// TBSCertificate: what the signature covers.
class TbsCertificate : public ASNsequenceF {
  public:
    Explicit<0, ASNinteger> version;  ///< 0 is v1, 2 is v3
    ASNinteger serialNumber;
    AlgorithmIdentifier signature;
    DistinguishedName issuer;
    Validity validity;
    DistinguishedName subject;
    SubjectPublicKeyInfo subjectPublicKeyInfo;
    std::optional<Implicit<1, ASNbitstr>> issuerUniqueId;
    std::optional<Implicit<2, ASNbitstr>> subjectUniqueId;
    std::optional<Explicit<3, Extensions>> extensions;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// A signed certificate. Read it in keeping mode: the signature is over the octets as they came.
class SignedCertificate : public ASNsequenceF {
  public:
    TbsCertificate tbs;
    AlgorithmIdentifier signatureAlgorithm;
    ASNbitstr signature;

    [[nodiscard]] const DistinguishedName& subject() const { return tbs.subject; }
    [[nodiscard]] const DistinguishedName& issuer() const { return tbs.issuer; }
    [[nodiscard]] const ASNinteger& serialNumber() const { return tbs.serialNumber; }
    [[nodiscard]] const SubjectPublicKeyInfo& keyInfo() const { return tbs.subjectPublicKeyInfo; }
    /// Empty for a certificate without extensions.
    [[nodiscard]] const Extensions& extensions() const;

    /// Whether it is the certificate of an authority: basicConstraints says so and keyUsage, where there is one, allows
    /// signing certificates. One of version 1 counts when it is self-issued.
    [[nodiscard]] bool isCaCrt() const;
    [[nodiscard]] bool isSelfIssued() const { return tbs.subject == tbs.issuer; }
    /// Every e-mail address: the rfc822Names of the alternative names, then those of the subject; each once.
    [[nodiscard]] std::vector<std::string> emails() const;
    /// The first of them, empty when there is none.
    [[nodiscard]] std::string email() const;
    /// Nothing when there is no (readable) keyUsage extension.
    [[nodiscard]] std::optional<KeyUsage> keyUsage() const { return extensions().get<KeyUsage>(OID_CE_KEY_USAGE); }
    [[nodiscard]] bool isValidAt(int64_t seconds) const { return tbs.validity.includes(seconds); }

    /// SHA-1 of the public key's bits.
    [[nodiscard]] KeyId computeKeyIdentifierSha1Hash() const { return keyInfo().computeKeyIdentifierSha1Hash(); }
    /// Key identifier under which the certificate is kept in a database: that of its subjectKeyIdentifier extension
    /// when it has one of 1 to 40 octets, else the SHA-1 of the key's bits.
    [[nodiscard]] Bytes getKeyIdFromCert() const;
    /// Key identifier of the issuer, from authorityKeyIdentifier; empty when it says none.
    [[nodiscard]] Bytes authorityKeyId() const;
    [[nodiscard]] Bytes fingerprint(KcHashAlgo algo) const;

    /// Whether the signature is right under the key and the algorithms inside and outside agree (4.1.1.2). Throws
    /// CryptoError when the primitive itself fails.
    [[nodiscard]] bool isSignedBy(const PublicKey& key) const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Longest key identifier that a database index has room for, in octets.
inline constexpr size_t kMaxKeyIdLength = 40;

/// A certificate with a description for people.
class SignedCertificateWithDesc : public ASNsequenceF {
  public:
    SignedCertificate certificate;
    std::optional<ASNutf8String> description;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
