// Paths and the status of certificates at moments that are past, at the cost of one question.
#pragma once

#include <algorithm>
#include <vector>

#include "pki/certificate_manager.h"

namespace crv {

/// Judges what one question is about: a message with all its signers, a time stamp. Used by one thread at a time; the
/// manager outlives it.
class PathJudge {
  public:
    /// Moments behind the one asked about that are looked at, too.
    static constexpr size_t kMostMoments = 8;

    PathJudge(CertificateManager& manager, const WorkLimits& limits, int64_t now)
        : manager_(manager), left_(limits), now_(now) {}

    [[nodiscard]] CertificateManager& manager() const { return manager_; }
    [[nodiscard]] int64_t now() const { return now_; }
    /// The work that is still permitted.
    [[nodiscard]] WorkLimits& left() { return left_; }
    /// Moments at which lists and answers were issued that came along: what they tell then, they tell of before.
    void setMoments(std::vector<int64_t> moments);

    [[nodiscard]] PathVerdict path(const CertPtr& certificate, const PathOptions& options, const CertList& extra);

    /// How far a moment in the past is to be believed.
    enum class Belief {
        Shown,   ///< what was known then counts where nothing is known today
        Claimed  ///< only what is known today counts: nobody chooses the lists by which he is judged
    };
    struct Standing {
        CrtStatus status{};
        bool revokedThen = false;   ///< at the moment
        bool revokedSince = false;  ///< behind it
    };
    /// The status of a certificate of a path at a moment, by all that is known until now. `options` are those of the
    /// path but the time.
    [[nodiscard]] Standing standing(const PathVerdict& path, size_t index, PathOptions options, const CertList& extra,
                                    int64_t moment, Belief belief);

  private:
    template <class Ask>
    [[nodiscard]] auto atCost(Ask ask);

    CertificateManager& manager_;
    WorkLimits left_;
    int64_t now_;
    std::vector<int64_t> moments_;  // ascending
};

}  // namespace crv
