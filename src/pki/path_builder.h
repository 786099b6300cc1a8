// Finding a path from a certificate to a trust point (RFC 4158).
#pragma once

#include <map>

#include "pki/path_validator.h"

namespace crv {

/// Looks for paths depth first, the likeliest issuers first, and tries them until one is good. What leads to no trust
/// point is left out beforehand; no path meets the same name and key twice. Hostile webs end at a limit of work that is
/// counted.
class PathBuilder {
  public:
    /// Certificates that may have issued the given one: those with its issuer's name.
    using IssuerSource = std::function<CertList(const SignedCertificate& certificate)>;

    PathBuilder(CertificateCache& cache, const CertList& trustPoints, IssuerSource issuers,
                const PathValidator& validator);

    /// The first good path, else the verdict on the likeliest one.
    [[nodiscard]] PathVerdict build(const CertPtr& certificate, const PathOptions& options, WorkBudget& budget);
    /// The issuer that is tried first where nothing speaks against it; null without one.
    [[nodiscard]] FactsPtr likelyIssuer(const CertificateFacts& certificate) const;

  private:
    struct Search;
    void collect(Search& search, bool all);
    void measure(Search& search) const;
    [[nodiscard]] FactsList issuersOf(const Search& search, const CertificateFacts& certificate) const;
    [[nodiscard]] PathFault hindrance(const Search& search, const CertificateFacts& issuer) const;
    void extend(Search& search);
    void judge(Search& search);
    [[nodiscard]] PathVerdict withoutPath(Search& search, FactsList path) const;
    [[nodiscard]] bool isTrustPoint(const CertificateFacts& certificate) const {
        return trusted_.contains(certificate.digest);
    }

    CertificateCache& cache_;
    std::map<Bytes, FactsList> trustPoints_;  // by subject
    std::set<Digest> trusted_;
    IssuerSource issuers_;
    const PathValidator& validator_;
};

}  // namespace crv
