// Asking OCSP responders and judging what they answer (RFC 6960, RFC 5019).
#pragma once

#include "asn/ocsp/ocsp_response.h"
#include "pki/network_run.h"
#include "pki/revocation_manager.h"

namespace crv {

/// About one certificate.
struct OcspQuestion {
    CertPtr certificate;
    CertPtr issuer;
    std::shared_ptr<const PublicKey> issuerKey{};
    OcspCertId id{};
    Bytes nonce{};  ///< that was sent; empty: an answer of before, whose nonce does not matter
    int64_t time = 0;
};

struct OcspAnswer {
    CrtStatus status{};
    bool keeps = false;  ///< says until when it holds, so it may be kept that long
};

class OcspClient {
  public:
    /// Thirty-two octets (RFC 8954 2.1).
    static constexpr size_t kNonceSize = 32;
    static constexpr int64_t kClockSkew = 300;             ///< seconds
    static constexpr int64_t kLongestWithoutEnd = 86'400;  ///< seconds that an answer without nextUpdate holds

    void init(CertificateManager& certificates, RevocationManager& revocation);

    /// What is to be asked at a time; `fresh` with a nonce. Empty issuerKey: nobody can answer it.
    [[nodiscard]] OcspQuestion question(const CertPtr& certificate, const WorkingKey& issuerKey, const CertPtr& issuer,
                                        int64_t time, bool fresh) const;
    /// The request as it is posted.
    [[nodiscard]] static NetObject object(const OcspQuestion& question);
    /// Judges an answer: 0, or 107 with the reason. Believed is who signs with the issuer's key, whom that key
    /// certified for it (valid, and nocheck or good by CRL), and a trust point that is for signing such answers.
    [[nodiscard]] NetVerdict judge(const OcspQuestion& question, ByteView response, OcspAnswer& answer) const;

  private:
    [[nodiscard]] bool isResponder(const CertificateFacts& facts, int64_t time) const;
    [[nodiscard]] std::string faultOfSigner(const OcspQuestion& question, const OcspBasicResponse& basic,
                                            std::string& signer) const;
    [[nodiscard]] std::string faultOfDelegate(const OcspQuestion& question, const SignedCertificate& delegate) const;

    CertificateManager* certificates_ = nullptr;
    RevocationManager* revocation_ = nullptr;
};

}  // namespace crv
