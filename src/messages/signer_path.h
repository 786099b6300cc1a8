// Who signed a message, and whether the signer's certificate was good when it was signed.
#pragma once

#include "messages/signature_check.h"
#include "pki/more_ocsp.h"
#include "pki/path_judge.h"

namespace crv {

/// Judges the signers of one message with what came along with it, which counts for status as long as this lives: only
/// after it verified, as everything else.
class SignerJudge {
  public:
    /// `certificates` and `crls` are the encodings in the message; the rest lives as long as this.
    SignerJudge(const VerifyParams& params, CertificateManager& certificates, RevocationManager& revocation,
                const std::vector<Bytes>& certificatesInside, const std::vector<Bytes>& crlsInside);

    [[nodiscard]] SignerVerdict judge(const SignerInfo& signer, const SignedContent& content);

    [[nodiscard]] const CertList& certificates() const { return inside_; }
    [[nodiscard]] size_t crlCount() const { return crls_.size(); }
    [[nodiscard]] size_t ocspCount() const { return ocspCount_; }

  private:
    void takeRevocation(const std::vector<Bytes>& inside);
    [[nodiscard]] CertList candidates(const SignerInfo& signer);
    void takeStored(const SignerInfo& signer, CertList& list);
    void judgeStamps(const SignerInfo& signer, SignerVerdict& verdict);
    [[nodiscard]] std::string judgeStamp(ByteView token, const SignerInfo& signer, SignerVerdict& verdict);
    [[nodiscard]] int64_t policyTime(const SignerVerdict& verdict) const;
    void chooseMoment(SignerVerdict& verdict) const;
    void judgeAlgorithm(SignerVerdict& verdict);
    void judgePath(SignerVerdict& verdict);
    void judgeExpiry(SignerVerdict& verdict, PathOptions options);
    void judgeStatus(SignerVerdict& verdict, size_t index);

    const VerifyParams& params_;
    CertificateManager& manager_;
    RevocationManager& revocation_;
    PathJudge judge_;  // its work is what the message may cost
    CertList inside_, extra_;
    CrlFactsList crls_;
    size_t ocspCount_ = 0;
    std::optional<RevocationManager::MoreCrls> moreCrls_;
    std::optional<MoreOcsp> moreOcsp_;
};

}  // namespace crv
