#include "pki/network_run.h"

#include <algorithm>
#include <new>

#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr std::chrono::milliseconds kRunStep{100};

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

/// What cannot be judged, for want of memory or for a failure of the database, is no success, and holds up nothing
/// else.
NetVerdict verdictOf(const NetErrand& errand, const NetAttempt& attempt, FetchResult& result) {
    try {
        return errand.judge(attempt, result);
    } catch (const std::bad_alloc&) {
        return {ECRV_TCP_PROT, "not enough memory for what came"};
    } catch (const CryptoError& error) {
        return {ECRV_TCP_PROT, error.what()};
    } catch (const StoreError& error) {
        return {ECRV_TCP_PROT, error.what()};
    }
}

}  // namespace

int codeOfOutcome(FetchOutcome outcome, int notFound) {
    if (outcome == FetchOutcome::NotFound && notFound != 0) return notFound;
    const auto* row = std::ranges::find(kOutcomes, outcome, &OutcomeRow::outcome);
    return row == std::end(kOutcomes) ? ECRV_TCP_PROT : row->code;
}

NetRun::NetRun(std::vector<NetErrand> errands) : errands_(std::move(errands)) {
    for (size_t i = 0; i < errands_.size(); ++i) {
        NetErrand& errand = errands_[i];
        errand.done = errand.attempts.empty();
        if (errand.done && errand.verdict.code == 0) errand.verdict = {ECRV_TCP_NO_SRV, "no server is set up for it"};
        if (!errand.done) send(i);
    }
}

/// The errand's next source.
void NetRun::send(size_t number) {
    NetErrand& errand = errands_[number];
    std::stable_partition(errand.attempts.begin() + static_cast<std::ptrdiff_t>(errand.next), errand.attempts.end(),
                          [](const NetAttempt& attempt) { return !FailedHosts::instance().isBehind(attempt.request); });
    const FetchRequest& request = errand.attempts[errand.next].request;
    const auto same = std::ranges::find_if(sent_, [&](const auto& one) { return one.second.request == request; });
    if (same != sent_.end()) {
        same->second.errands.push_back(number);
    } else {
        sent_.emplace(scheduler_.add({errand.name, request}), Sent{request, {number}});
    }
}

void NetRun::judge(NetErrand& errand, FetchResult& result) {
    const NetAttempt& attempt = errand.attempts[errand.next++];
    NetVerdict verdict{codeOfOutcome(result.outcome, errand.notFound), result.cause};
    if (result.good()) verdict = verdictOf(errand, attempt, result);
    // That another one has nothing of the kind says less than why the one before failed.
    if (verdict.code != ECRV_SRV_BAD_CA || errand.verdict.code == 0) {
        errand.verdict = std::move(verdict);
        errand.url = result.url;
        errand.server = attempt.server;
        errand.size = sizeOf(result);
    }
    errand.done = errand.verdict.code == 0 || errand.verdict.code == ECRV_ACTION_CANCELLED ||
                  errand.next == errand.attempts.size();
}

bool NetRun::advance(std::chrono::milliseconds wait) {
    if (sent_.empty()) return true;
    for (FetchScheduler::Ended& ended : scheduler_.take(wait)) {
        const Sent sent = std::move(sent_.extract(ended.job).mapped());
        for (const size_t number : sent.errands) judge(errands_[number], ended.result);
        for (const size_t number : sent.errands)
            if (!errands_[number].done) send(number);
    }
    return sent_.empty();
}

/// What was at work is ended; nothing more is asked.
void NetRun::stop() {
    scheduler_.stop();
    sent_.clear();
    for (NetErrand& errand : errands_) {
        if (errand.done) continue;
        errand.verdict = {ECRV_ACTION_CANCELLED, "stopped"};
        errand.done = true;
    }
}

void NetRun::finish(const NetProgress& progress) {
    while (!advance(kRunStep))
        if (progress && !progress(scheduler_.progress())) return stop();
}

}  // namespace crv
