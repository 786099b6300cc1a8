#include "pki/network_run.h"

#include <algorithm>
#include <map>

#include "corvane/crverrors.h"

namespace crv {

namespace {

struct OutcomeRow {
    FetchOutcome outcome;
    int code;
};
constexpr OutcomeRow kOutcomes[] = {
    {FetchOutcome::Done, 0},
    {FetchOutcome::Unresolved, ECRV_TCP_CON},
    {FetchOutcome::NotConnected, ECRV_TCP_CON},
    {FetchOutcome::Socket, ECRV_TCP_SOCK},
    {FetchOutcome::Closed, ECRV_TCP_CLOSED},
    {FetchOutcome::Timeout, ECRV_TCP_TIMEOUT},
    {FetchOutcome::Cancelled, ECRV_ACTION_CANCELLED},
    {FetchOutcome::NoHelper, ECRV_TCP_SOCK},
    {FetchOutcome::HelperDied, ECRV_TCP_CLOSED},
};

uint64_t sizeOf(const FetchResult& result) {
    uint64_t size = 0;
    for (const Bytes& value : result.values) size += value.size();
    return size;
}

}  // namespace

int codeOfOutcome(FetchOutcome outcome, int notFound) {
    if (outcome == FetchOutcome::NotFound && notFound != 0) return notFound;
    const auto* row = std::ranges::find(kOutcomes, outcome, &OutcomeRow::outcome);
    return row == std::end(kOutcomes) ? ECRV_TCP_PROT : row->code;
}

NetRun::NetRun(std::vector<NetErrand> errands) : errands_(std::move(errands)) {
    for (NetErrand& errand : errands_) {
        std::stable_partition(errand.attempts.begin(), errand.attempts.end(), [](const NetAttempt& attempt) {
            return !FailedHosts::instance().isBehind(attempt.request);
        });
        errand.done = errand.attempts.empty();
        if (errand.done && errand.verdict.code == 0) errand.verdict = {ECRV_TCP_NO_SRV, "no server is set up for it"};
    }
    startRound();
}

void NetRun::startRound() {
    std::map<std::pair<std::string, Bytes>, size_t> known;
    std::vector<FetchJob> jobs;
    jobs_.clear();
    for (size_t i = 0; i < errands_.size(); ++i) {
        NetErrand& errand = errands_[i];
        if (errand.done) continue;
        const FetchRequest& request = errand.attempts[errand.next].request;
        const auto [at, isNew] = known.try_emplace({request.url, request.body}, jobs.size());
        if (isNew) {
            jobs.push_back({errand.name, request});
            jobs_.emplace_back();
        }
        jobs_[at->second].push_back(i);
    }
    round_ = jobs.empty() ? nullptr : std::make_unique<FetchScheduler>(std::move(jobs));
}

void NetRun::judgeRound(std::vector<FetchResult> results) {
    for (size_t job = 0; job < results.size(); ++job) {
        for (const size_t i : jobs_[job]) {
            NetErrand& errand = errands_[i];
            FetchResult& result = results[job];
            const NetAttempt& attempt = errand.attempts[errand.next++];
            errand.url = result.url;
            errand.server = attempt.server;
            errand.size = sizeOf(result);
            errand.verdict = {codeOfOutcome(result.outcome, errand.notFound), result.cause};
            if (result.good()) errand.verdict = errand.judge(attempt, result);
            errand.done = errand.verdict.code == 0 || errand.verdict.code == ECRV_ACTION_CANCELLED ||
                          errand.next == errand.attempts.size();
        }
    }
}

bool NetRun::advance() {
    if (!round_) return true;
    if (!round_->done()) return false;
    judgeRound(round_->wait());
    startRound();
    return !round_;
}

void NetRun::finish(const NetProgress& progress) {
    while (round_) {
        judgeRound(round_->wait(progress));
        startRound();
    }
}

}  // namespace crv
