#include "pki/path_judge.h"

#include <algorithm>

#include "corvane/crverrors.h"

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

/// What a list or an answer says that was issued after the certificate expired: a revocation counts, silence does not,
/// because entries of what has expired may be dropped (RFC 5280 3.3).
CrtStatus heard(CrtStatus status, const CertificateFacts& certificate) {
    if (status.state != Good || status.source.thisUpdate <= certificate.notAfter) return status;
    status.state = Unknown;
    status.code = ECRV_CRL_NOT_FOUND;
    status.text = "what is known was issued after it expired, when the revoked need not be told any more";
    return status;
}

}  // namespace

/// The first moments behind one at which something was issued about a certificate.
std::vector<int64_t> PathJudge::momentsBehind(const PathVerdict& path, size_t index, int64_t moment) const {
    if (!moments_) return {};
    CertificateCache& cache = manager_.cache();
    const size_t issuer = std::min(index + 1, path.certs.size() - 1);
    std::vector<int64_t> list = moments_(*cache.facts(path.certs[index]), *cache.facts(path.certs[issuer]));
    std::erase_if(list, [&](int64_t one) { return one <= moment || one >= now_; });
    std::ranges::sort(list);
    list.erase(std::unique(list.begin(), list.end()), list.end());
    if (list.size() > kMostMoments) list.resize(kMostMoments);
    return list;
}

/// Answers a question at the cost of the whole. Each has a budget of its own around what is left, because answers for
/// one moment are none for another.
template <class Ask>
auto PathJudge::atCost(Ask ask) {
    WorkBudget budget(left_);
    auto answer = ask(budget);
    left_ = budget.left;
    exhausted_ = budget.exhausted;
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
        CrtStatus status =
            atCost([&](WorkBudget& budget) { return manager_.statusOnPath(path, index, options, extra, budget); });
        return heard(std::move(status), *manager_.cache().facts(path.certs[index]));
    };
    Standing standing;
    const CrtStatus today = at(now_);
    // A list that is late or missing today gives way to one of then; what cannot be used or finished does not.
    const bool givesWay =
        !exhausted_ && (today.state == Unknown || (today.state == Unusable && today.code == ECRV_CRL_EXPIRED));
    standing.status = today;
    note(standing, today, moment);
    if (moment >= now_) return standing;
    const CrtStatus then = at(moment);
    // An answer may have been given a little after the moment that it is taken for.
    if (then.state == Revoked && then.source.ocsp) {
        note(standing, then, moment);
    } else if (then.state == Revoked) {
        standing = {then, true, false};
    } else if (belief == Belief::Shown) {
        if (givesWay && then.state == Good) standing.status = then;
        for (const int64_t one : momentsBehind(path, index, moment)) {
            const CrtStatus later = at(one);
            if (givesWay && later.state == Good && standing.status.state != Good && standing.status.state != Revoked)
                standing.status = later;
            note(standing, later, moment);
        }
    }
    return standing;
}

}  // namespace crv
