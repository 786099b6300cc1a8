#include "net/fetch_scheduler.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <system_error>

namespace crv {

namespace {

constexpr std::chrono::milliseconds kProgressStep{100};

int64_t monotonicSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// Whom a request goes to: "host:port".
std::string placeOf(const FetchRequest& request) {
    const Url url = parseUrl(request.url);
    return url.host + ":" + std::to_string(url.port);
}

/// Outcomes that say nothing against the server itself.
bool isServersFault(FetchOutcome outcome) {
    switch (outcome) {
        case FetchOutcome::Done:
        case FetchOutcome::NotFound:
        case FetchOutcome::Refused:
        case FetchOutcome::Cancelled:
        case FetchOutcome::NoHelper:
        case FetchOutcome::HelperDied:
            return false;
        default:
            return true;
    }
}

/// Threads of the library hear no signals: they are for those of the program.
class SignalBlock {
  public:
    SignalBlock() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

  private:
    sigset_t before_{};
};

}  // namespace

FailedHosts& FailedHosts::instance() {
    static FailedHosts one;
    return one;
}

void FailedHosts::note(const FetchRequest& request, bool good) {
    const std::lock_guard lock(mutex_);
    if (good) {
        until_.erase(placeOf(request));
    } else {
        until_[placeOf(request)] = monotonicSeconds() + kPenaltySeconds;
    }
}

bool FailedHosts::isBehind(const FetchRequest& request) {
    const std::lock_guard lock(mutex_);
    const auto found = until_.find(placeOf(request));
    return found != until_.end() && found->second > monotonicSeconds();
}

void FailedHosts::clear() {
    const std::lock_guard lock(mutex_);
    until_.clear();
}

FetchScheduler::FetchScheduler(std::vector<FetchJob> jobs) {
    for (FetchJob& job : jobs) {
        auto slot = std::make_unique<Slot>();
        slot->host = parseUrl(job.request.url).host;
        slot->job = std::move(job);
        slot->result.outcome = FetchOutcome::Cancelled;
        slots_.push_back(std::move(slot));
    }
    const SignalBlock noSignals;
    try {
        for (size_t i = 0; i < std::min(kMostAtOnce, slots_.size()); ++i) threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // Those that there are do the work of all.
        if (threads_.empty()) work();
    }
}

FetchScheduler::~FetchScheduler() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        for (const auto& slot : slots_) slot->state.stop = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

/// The next job whose host has room; null when none is left.
FetchScheduler::Slot* FetchScheduler::takeSlot() {
    std::unique_lock lock(mutex_);
    while (true) {
        const auto waiting = [&](const auto& slot) { return !slot->started; };
        const auto next = std::ranges::find_if(slots_, [&](const auto& slot) {
            return waiting(slot) && (stopping_ || busyHosts_[slot->host] < kMostPerHost);
        });
        if (next == slots_.end() && std::ranges::none_of(slots_, waiting)) return nullptr;
        if (next != slots_.end()) {
            (*next)->started = true;
            ++busyHosts_[(*next)->host];
            return next->get();
        }
        changed_.wait(lock);
    }
}

void FetchScheduler::work() {
    while (Slot* slot = takeSlot()) {
        const FetchRequest& request = slot->job.request;
        try {
            if (!slot->state.stop) slot->result = runFetch(request, slot->state);
        } catch (const std::exception&) {  // no memory for what came
            slot->result = {};
            slot->result.outcome = FetchOutcome::TooLong;
        }
        if (slot->result.url.empty()) slot->result.url = urlForPeople(request.url);
        FailedHosts::instance().note(request, !isServersFault(slot->result.outcome));
        const std::lock_guard lock(mutex_);
        slot->finished = true;
        --busyHosts_[slot->host];
        changed_.notify_all();
    }
}

FetchProgress FetchScheduler::progress() {
    FetchProgress now;
    now.total = slots_.size();
    for (const auto& slot : slots_) {
        if (slot->finished) {
            ++now.done;
        } else if (slot->started) {
            if (now.name.empty()) now.name = slot->job.name;
            now.received += slot->state.received;
        }
    }
    return now;
}

bool FetchScheduler::done() {
    const std::lock_guard lock(mutex_);
    return std::ranges::all_of(slots_, [](const auto& slot) { return slot->finished; });
}

std::vector<FetchResult> FetchScheduler::wait(const std::function<bool(const FetchProgress&)>& goOn) {
    std::unique_lock lock(mutex_);
    const auto allDone = [&] { return std::ranges::all_of(slots_, [](const auto& slot) { return slot->finished; }); };
    while (!changed_.wait_for(lock, kProgressStep, allDone)) {
        const FetchProgress now = progress();
        lock.unlock();
        const bool more = !goOn || goOn(now);
        lock.lock();
        if (more) continue;
        stopping_ = true;
        for (const auto& slot : slots_) slot->state.stop = true;
        changed_.notify_all();
    }
    std::vector<FetchResult> results;
    for (const auto& slot : slots_) results.push_back(std::move(slot->result));
    return results;
}

}  // namespace crv
