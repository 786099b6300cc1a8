// Paths and the status of certificates at moments that are past, at the cost of one question.
#pragma once

#include <functional>
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
    /// When lists and answers were issued that came along and may be about a certificate: what they tell then, they
    /// tell of before.
    using MomentsOf = std::function<std::vector<int64_t>(const CertificateFacts& of, const CertificateFacts& issuer)>;
    void setMoments(MomentsOf moments) { moments_ = std::move(moments); }

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
    /// The status of a certificate of a path at a moment, by all that is known until now. A list that was issued after
    /// the certificate expired tells of revocations only. `options` are those of the path but the time.
    [[nodiscard]] Standing standing(const PathVerdict& path, size_t index, PathOptions options, const CertList& extra,
                                    int64_t moment, Belief belief);

  private:
    template <class Ask>
    [[nodiscard]] auto atCost(Ask ask);
    [[nodiscard]] std::vector<int64_t> momentsBehind(const PathVerdict& path, size_t index, int64_t moment) const;

    CertificateManager& manager_;
    WorkLimits left_;
    int64_t now_;
    bool exhausted_ = false;  // the last question found no more work permitted
    MomentsOf moments_;
};

}  // namespace crv
