// Answers of OCSP responders (RFC 6960 4.2).
#pragma once

#include "asn/asn_time.h"
#include "asn/ocsp/ocsp_request.h"
#include "asn/x509/cert_ptr.h"
#include "asn/x509/revoked_certificate.h"

namespace crv {

class PublicKey;

/// responseStatus (RFC 6960 4.2.1).
enum class OcspResponseStatus : long {
    Successful = 0,
    MalformedRequest = 1,
    InternalError = 2,
    TryLater = 3,
    SigRequired = 5,
    Unauthorized = 6
};

class OcspRevokedInfo : public ASNsequenceF {
  public:
    ASNgenTime revocationTime;
    std::optional<Explicit<0, ASNenum>> revocationReason;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// The enumerators are the indices of the alternatives.
class OcspCertStatus : public ASNchoiceOf<Implicit<0, ASNnull>, Implicit<1, OcspRevokedInfo>, Implicit<2, ASNnull>> {
  public:
    enum Kind { kGood, kRevoked, kUnknown };
};

class OcspSingleResponse : public ASNsequenceF {
  public:
    OcspCertId certId;
    OcspCertStatus certStatus;
    ASNgenTime thisUpdate;
    std::optional<Explicit<0, ASNgenTime>> nextUpdate;
    std::optional<Explicit<1, Extensions>> extensions;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Who answers: by name, or by the SHA-1 of the key's bits.
class OcspResponderId : public ASNchoiceOf<Explicit<1, DistinguishedName>, Explicit<2, ASNoctstr>> {
  public:
    [[nodiscard]] bool matches(const SignedCertificate& certificate) const;
};

class OcspResponseData : public ASNsequenceF {
  public:
    Explicit<0, ASNinteger> version;
    OcspResponderId responderId;
    ASNgenTime producedAt;
    ASNsequenceList<OcspSingleResponse> responses;
    std::optional<Explicit<1, Extensions>> extensions;

    /// The nonce that the responder repeats; nothing when there is none or it is malformed.
    [[nodiscard]] std::optional<Bytes> nonce() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// Read it in keeping mode: the signature is over the octets as they came.
class OcspBasicResponse : public ASNsequenceF {
  public:
    OcspResponseData tbs;
    AlgorithmIdentifier signatureAlgorithm;
    ASNbitstr signature;
    std::optional<Explicit<0, ASNsequenceList<ASNany>>> certs;

    /// Whether the signature is right under the key. Throws CryptoError when the primitive itself fails.
    [[nodiscard]] bool isSignedBy(const PublicKey& key) const;
    /// The certificates that came along, each with octets of its own; what is none is passed over.
    [[nodiscard]] CertList certificates() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class OcspResponseBytes : public ASNsequenceF {
  public:
    ASNobjectId responseType;
    ASNoctstr response;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

class OcspResponse : public ASNsequenceF {
  public:
    ASNenum responseStatus;
    std::optional<Explicit<0, OcspResponseBytes>> responseBytes;

    [[nodiscard]] bool isSuccessful() const { return responseStatus.value() == 0 && responseBytes; }
    /// Reads the basic response that is inside, in keeping mode with octets of its own; false when there is none.
    [[nodiscard]] bool getBasic(OcspBasicResponse& basic) const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
