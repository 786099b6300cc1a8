// OCSP answers that came along with something, a message for instance.
#pragma once

#include <map>
#include <set>
#include <vector>

#include "pki/ocsp_client.h"

namespace crv {

/// Answers that count for status beside what the manager knows while somebody holds this. None is believed before it
/// was verified for the certificate and the moment asked about, by CRLs as to who signed it. Objects end in the reverse
/// order of their beginning.
class MoreOcsp {
  public:
    /// Answers about one certificate at one moment that are looked at, and those who may have signed one.
    static constexpr size_t kMostTried = 8;
    /// Octets of an answer that is looked at, as of one that is fetched.
    static constexpr size_t kMostOctets = size_t{256} << 10;
    /// Certificates told of by all answers together that are kept in mind.
    static constexpr size_t kMostKept = 10'000;

    MoreOcsp(CertificateManager& certificates, RevocationManager& revocation, std::vector<Bytes> answers);
    MoreOcsp(const MoreOcsp&) = delete;
    MoreOcsp& operator=(const MoreOcsp&) = delete;
    ~MoreOcsp();

    /// When the answers about a certificate were given, as they say.
    [[nodiscard]] std::vector<int64_t> moments(const CertificateFacts& of, const CertificateFacts& issuer) const;

  private:
    /// What a part of an answer says of itself.
    struct About {
        size_t answer;
        size_t cost;        // signatures that judging it takes at most
        int64_t from, end;  // seconds since 1970 UTC
    };
    struct Found {
        OcspQuestion question;
        About about;
    };
    [[nodiscard]] static bool pay(WorkBudget& budget, size_t pieces);
    [[nodiscard]] std::vector<Found> answersAbout(const CertificateFacts& of, const CertificateFacts& issuer,
                                                  int64_t time) const;
    [[nodiscard]] std::vector<Found> answersTo(const StatusQuestion& question) const;
    [[nodiscard]] CrtStatus status(const StatusQuestion& question);
    void take(size_t answer);

    CertificateManager& certificates_;
    RevocationManager& revocation_;
    StatusSource before_;
    OcspClient client_;
    std::vector<Bytes> answers_;
    std::multimap<Bytes, About> about_;  // by who it is about
    std::set<KcHashAlgo> hashes_;        // of the names in them
    bool judging_ = false;
};

}  // namespace crv
