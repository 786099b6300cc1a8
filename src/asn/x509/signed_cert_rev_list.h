// Certificate revocation lists (RFC 5280 5).
#pragma once

#include "asn/x509/algorithm_identifier.h"
#include "asn/x509/distinguished_name.h"
#include "asn/x509/ext_distribution.h"
#include "asn/x509/revoked_certificate.h"
#include "asn/x509/time.h"
#include "crypto/public_key.h"

namespace crv {

/// TBSCertList: what the signature covers.
class TbsCertList : public ASNsequenceF {
  public:
    std::optional<ASNinteger> version;  ///< 1 is v2; a list without extensions may leave it out
    AlgorithmIdentifier signature;
    DistinguishedName issuer;
    Time thisUpdate;
    std::optional<Time> nextUpdate;
    std::optional<RevokedCertificates> revokedCertificates;
    std::optional<Explicit<0, Extensions>> crlExtensions;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// A signed list. Read it in keeping mode: the signature is over the octets as they came.
class SignedCertRevList : public ASNsequenceF {
  public:
    TbsCertList tbs;
    AlgorithmIdentifier signatureAlgorithm;
    ASNbitstr signature;

    [[nodiscard]] const DistinguishedName& issuer() const { return tbs.issuer; }
    /// Empty for a list without extensions.
    [[nodiscard]] const Extensions& extensions() const;
    [[nodiscard]] std::optional<int64_t> thisUpdate() const { return tbs.thisUpdate.seconds(); }
    /// Nothing also when the list promises no next one.
    [[nodiscard]] std::optional<int64_t> nextUpdate() const;

    /// cRLNumber; nothing when it is absent or malformed.
    [[nodiscard]] std::optional<ASNinteger> crlNumber() const;
    /// Number of the list that this one only amends; nothing for a complete list.
    [[nodiscard]] std::optional<ASNinteger> baseCrlNumber() const;
    /// Key identifier of the issuer, from authorityKeyIdentifier; empty when it says none.
    [[nodiscard]] Bytes authorityKeyId() const;
    [[nodiscard]] std::optional<IssuingDistributionPoint> issuingDistributionPoint() const;
    /// Whether an extension of the list or of an entry is critical and unknown here, or one that changes what the list
    /// means is malformed, so that the list must not be relied on (RFC 5280 5.2, 5.3).
    [[nodiscard]] bool hasUnknownCriticalExtension() const;

    /// The entries; none for a list without.
    [[nodiscard]] RevokedCertificates::Cursor entries() const;
    [[nodiscard]] size_t entryCount() const;
    /// A copy of the entry for a certificate. `certificateIssuer` matters for indirect lists, whose entries may belong
    /// to other issuers than the list's.
    [[nodiscard]] std::optional<RevokedCertificate> find(const ASNinteger& serialNumber,
                                                         const DistinguishedName& certificateIssuer) const;

    /// Whether the signature is right under the key and the algorithms inside and outside agree (5.1.1.2). Throws
    /// CryptoError when the primitive itself fails.
    [[nodiscard]] bool isSignedBy(const PublicKey& key) const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
