// Who signed a message, and whether the signer's certificate was good when it was signed.
#pragma once

#include "messages/signature_check.h"
#include "pki/revocation_manager.h"

namespace crv {

/// Judges the signers of one message with what came along with it.
class SignerJudge {
  public:
    /// `certificates` and `crls` are the encodings in the message; the rest lives as long as this.
    SignerJudge(const VerifyParams& params, CertificateManager& certificates, RevocationManager& revocation,
                const std::vector<Bytes>& certificatesInside, const std::vector<Bytes>& crlsInside);

    [[nodiscard]] SignerVerdict judge(const SignerInfo& signer, const SignedContent& content);

    [[nodiscard]] const CertList& certificates() const { return inside_; }
    [[nodiscard]] size_t crlCount() const { return crls_.size(); }
    [[nodiscard]] size_t ocspCount() const { return ocsp_.size(); }

  private:
    [[nodiscard]] CertList candidates(const SignerInfo& signer);
    void takeStored(const SignerInfo& signer, CertList& list);
    template <class Ask>
    [[nodiscard]] auto atCost(Ask ask);
    [[nodiscard]] PathVerdict pathOf(const CertPtr& certificate, const PathOptions& options);
    [[nodiscard]] int64_t policyTime(const SignerVerdict& verdict) const;
    void chooseMoment(SignerVerdict& verdict) const;
    void judgeAlgorithm(SignerVerdict& verdict);
    void judgePath(SignerVerdict& verdict);
    void judgeExpiry(SignerVerdict& verdict, PathOptions options);
    void judgeStatus(SignerVerdict& verdict, size_t index);

    const VerifyParams& params_;
    CertificateManager& manager_;
    RevocationManager& revocation_;
    CertList inside_, extra_;
    CrlFactsList crls_;
    std::vector<Bytes> ocsp_;
    WorkLimits left_;  // of the work that the message may cost
};

}  // namespace crv
