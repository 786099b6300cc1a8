// Requests for the status of certificates (RFC 6960 4.1).
#pragma once

#include "asn/x509/algorithm_identifier.h"
#include "asn/x509/extension.h"
#include "asn/x509/general_name.h"

namespace crv {

class SignedCertificate;

/// Names a certificate to a responder: its issuer by two hashes, and its number.
class OcspCertId : public ASNsequenceF {
  public:
    AlgorithmIdentifier hashAlgorithm;
    ASNoctstr issuerNameHash;
    ASNoctstr issuerKeyHash;
    ASNinteger serialNumber;

    /// With SHA-1, the only hash that every responder knows (RFC 5019 2.1.1): it is a name, nobody relies on it.
    void set(const SignedCertificate& certificate, const SignedCertificate& issuer, KcHashAlgo hash = KcHashAlgo::Sha1);
    friend bool operator==(const OcspCertId& a, const OcspCertId& b);

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class OcspSingleRequest : public ASNsequenceF {
  public:
    OcspCertId reqCert;
    std::optional<Explicit<0, Extensions>> extensions;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class OcspTbsRequest : public ASNsequenceF {
  public:
    Explicit<0, ASNinteger> version;
    std::optional<Explicit<1, GeneralName>> requestorName;
    ASNsequenceList<OcspSingleRequest> requestList;
    std::optional<Explicit<2, Extensions>> extensions;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class OcspRequest : public ASNsequenceF {
  public:
    OcspTbsRequest tbs;
    std::optional<Explicit<0, ASNany>> signature;

    /// About one certificate; a nonce that is not empty goes along (RFC 8954 2.1).
    void build(const OcspCertId& id, ByteView nonce);

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
