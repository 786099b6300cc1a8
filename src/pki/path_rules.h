// The rules of RFC 5280 6.1 along one path, step by step from the trust point down; revocation is asked elsewhere.
#pragma once

#include <atomic>
#include <map>

#include "pki/algorithm_policy.h"
#include "pki/certificate_cache.h"
#include "pki/name_constraints.h"
#include "pki/path_verdict.h"
#include "pki/policy_graph.h"

namespace crv {

/// What a question has cost so far; shared by all that it leads to.
struct WorkBudget {
    /// `state`: a state of the database that the question shares with others, the number of the first of them; 0 for
    /// one of its own.
    explicit WorkBudget(const WorkLimits& limits, uint64_t state = 0)
        : left(limits), question(nextQuestion()), storeState(state == 0 ? question : state) {}
    [[nodiscard]] static uint64_t nextQuestion() {
        static std::atomic<uint64_t> questions = 0;
        return ++questions;
    }
    /// Takes one piece of work; false, and noted, when there is none left.
    bool take(size_t WorkLimits::*kind) {
        if (left.*kind == 0) exhausted = true;
        return !exhausted && (left.*kind)-- > 0;
    }
    WorkLimits left;
    bool exhausted = false;
    uint64_t question;    ///< tells questions apart
    uint64_t storeState;  ///< tells states of the database apart
    /// Signatures that were looked at and do not hold, by the digest of what is signed and that of the key.
    std::map<std::pair<Digest, Digest>, PathFault> wrong{};
};

/// A key that may sign what stands below it.
struct WorkingKey {
    std::shared_ptr<const PublicKey> key{};
    Digest digest{};
};

/// The key of a certificate, with the DSA parameters of the one above where it has none (6.1.4 (d) to (f)); no key when
/// it cannot be used.
[[nodiscard]] WorkingKey keyOf(const CertificateFacts& certificate, const WorkingKey& above);

/// Checks a signature by the key: 0, 70 or 66, or 155 when the work limit is reached.
template <class Facts>
[[nodiscard]] PathFault signatureFault(CertificateCache& cache, WorkBudget& budget, const Facts& object,
                                       const WorkingKey& key);

/// What is wrong with a certificate whatever path it stands on; `issuer`: as one that signs certificates.
[[nodiscard]] PathFault ownFault(const CertificateFacts& certificate, const PathOptions& options, bool issuer);

/// One walk along a path.
class PathRules {
  public:
    PathRules(CertificateCache& cache, const AlgorithmPolicy& algorithms, const PathOptions& options,
              WorkBudget& budget);

    /// 6.1.1 (d), 6.1.2: `length` certificates stand below the trust point.
    [[nodiscard]] PathFault start(const CertificateFacts& trustPoint, size_t length);
    /// 6.1.3, then 6.1.4 or 6.1.5 for the next certificate. Fills in what the step tells of algorithms.
    [[nodiscard]] PathFault next(const CertificateFacts& certificate, PathStep& step);
    /// user-constrained-policy-set.
    [[nodiscard]] PolicyGraph::Policies policies() const { return graph_.constrained(options_.policies); }

  private:
    [[nodiscard]] int64_t policyTime() const { return options_.policyTime.value_or(options_.time); }
    [[nodiscard]] PathFault checkAlgorithms(const CertificateFacts& certificate, PathStep& step) const;
    [[nodiscard]] PathFault basic(const CertificateFacts& certificate, PathStep& step);
    [[nodiscard]] PathFault prepare(const CertificateFacts& certificate);
    void count(const CertificateFacts& certificate);
    [[nodiscard]] PathFault wrapUp(const CertificateFacts& certificate);

    CertificateCache& cache_;
    const AlgorithmPolicy& algorithms_;
    const PathOptions& options_;
    WorkBudget& budget_;
    NameConstraintsState names_;
    PolicyGraph graph_;
    WorkingKey key_{};
    Bytes issuer_{};
    size_t left_ = 0;  // certificates still to come
    size_t explicitPolicy_ = 0, policyMapping_ = 0, inhibitAny_ = 0, pathLength_ = 0;
};

}  // namespace crv
