// OCSP answers that came along with something, a message for instance.
#pragma once

#include <map>
#include <vector>

#include "pki/ocsp_client.h"

namespace crv {

/// Answers that count for status beside what the manager knows while somebody holds this. None is believed before it
/// was verified for the certificate and the moment asked about, by CRLs as to who signed it. Objects end in the reverse
/// order of their beginning.
class MoreOcsp {
  public:
    /// Answers about one certificate that are looked at.
    static constexpr size_t kMostTried = 4;

    MoreOcsp(CertificateManager& certificates, RevocationManager& revocation, std::vector<Bytes> answers);
    MoreOcsp(const MoreOcsp&) = delete;
    MoreOcsp& operator=(const MoreOcsp&) = delete;
    ~MoreOcsp();

    /// When the answers were given, as they say.
    [[nodiscard]] const std::vector<int64_t>& moments() const { return moments_; }

  private:
    /// What a part of an answer is about.
    struct About {
        size_t answer;
        KcHashAlgo hash;  // of the names in it
    };
    [[nodiscard]] CrtStatus status(const StatusQuestion& question);
    void take(size_t answer);

    CertificateManager& certificates_;
    StatusSource before_;
    OcspClient client_;
    std::vector<Bytes> answers_;
    std::multimap<Bytes, About> bySerial_;
    std::vector<int64_t> moments_;
    bool judging_ = false;  // who signed an answer is told of by CRLs only
};

}  // namespace crv
