#include "pki/path_judge.h"

namespace crv {

namespace {

using enum CrtStatus::State;

/// Takes one more answer about the same certificate into account.
void note(PathJudge::Standing& standing, const CrtStatus& more, int64_t moment) {
    if (more.state != Revoked) return;
    const bool then = more.revokedAt <= moment;
    if (standing.revokedThen || (standing.revokedSince && !then)) return;
    standing.status = more;
    standing.revokedThen = then;
    standing.revokedSince = !then;
}

}  // namespace

void PathJudge::setMoments(std::vector<int64_t> moments) {
    std::ranges::sort(moments);
    moments.erase(std::unique(moments.begin(), moments.end()), moments.end());
    moments_ = std::move(moments);
}

/// Answers a question at the cost of the whole. Each has a budget of its own around what is left, because answers for
/// one moment are none for another.
template <class Ask>
auto PathJudge::atCost(Ask ask) {
    WorkBudget budget(left_);
    auto answer = ask(budget);
    left_ = budget.left;
    return answer;
}

PathVerdict PathJudge::path(const CertPtr& certificate, const PathOptions& options, const CertList& extra) {
    return atCost([&](WorkBudget& budget) {
        return manager_.buildPath(certificate, options, {manager_.trustPoints(), extra, budget});
    });
}

PathJudge::Standing PathJudge::standing(const PathVerdict& path, size_t index, PathOptions options,
                                        const CertList& extra, int64_t moment, Belief belief) {
    const auto at = [&](int64_t time) {
        options.time = time;
        return atCost([&](WorkBudget& budget) { return manager_.statusOnPath(path, index, options, extra, budget); });
    };
    Standing standing;
    const CrtStatus today = at(now_);
    standing.status = today;
    note(standing, today, moment);
    if (moment >= now_) return standing;
    const CrtStatus then = at(moment);
    if (then.state == Revoked) {
        standing = {then, true, false};
    } else if (belief == Belief::Shown) {
        if (today.state != Good && today.state != Revoked) standing.status = then;
        const auto behind = [&](int64_t one) { return one > moment && one < now_; };
        size_t looked = 0;
        for (const int64_t one : moments_) {
            if (!behind(one) || ++looked > kMostMoments) continue;
            const CrtStatus later = at(one);
            if (later.state == Good && standing.status.state != Good && standing.status.state != Revoked)
                standing.status = later;
            note(standing, later, moment);
        }
    }
    return standing;
}

}  // namespace crv
