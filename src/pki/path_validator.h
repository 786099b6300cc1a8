// The verdict on one path: the rules, then the status of every certificate on it.
#pragma once

#include "pki/path_rules.h"

namespace crv {

/// Asks for the status of the certificate at an index of a path, which runs from the certificate to the trust point;
/// `extra` are certificates that came with the question.
struct StatusQuestion {
    const FactsList& path;
    size_t index;
    const CertList& extra;
    const PathOptions& options;
    WorkBudget& budget;
};
using StatusSource = std::function<CrtStatus(const StatusQuestion& question)>;

class PathValidator {
  public:
    /// Without a source of status revocation is not asked for.
    PathValidator(CertificateCache& cache, const AlgorithmPolicy& algorithms, const StatusSource& status,
                  const CertList& extra)
        : cache_(cache), algorithms_(algorithms), status_(status), extra_(extra) {}

    /// `path` runs from the certificate to the trust point.
    [[nodiscard]] PathVerdict validate(const FactsList& path, const PathOptions& options, WorkBudget& budget) const;

  private:
    [[nodiscard]] PathFault askStatus(const FactsList& path, size_t index, const PathOptions& options,
                                      WorkBudget& budget, PathStep& step) const;

    CertificateCache& cache_;
    const AlgorithmPolicy& algorithms_;
    const StatusSource& status_;
    const CertList& extra_;
};

/// Makes the path the verdict's, without a word on it.
[[nodiscard]] PathVerdict verdictOn(const FactsList& path);
/// The same with what is wrong with one certificate of it.
[[nodiscard]] PathVerdict verdictOn(const FactsList& path, const PathFault& fault, size_t index);

}  // namespace crv
