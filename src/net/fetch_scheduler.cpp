#include "net/fetch_scheduler.h"

#include <algorithm>
#include <exception>
#include <system_error>

#include "misc/signals_held.h"

namespace crv {

namespace {

int64_t monotonicSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// Whom a request goes to: "host:port".
std::string placeOf(const FetchRequest& request) {
    const Url url = parseUrl(request.url);
    return url.host + ":" + std::to_string(url.port);
}

/// What an outcome says of the server.
enum class Says { Nothing, Works, Fails };

Says saysOfServer(FetchOutcome outcome) {
    switch (outcome) {
        case FetchOutcome::Done:
        case FetchOutcome::NotFound:
            return Says::Works;
        case FetchOutcome::Socket:
        case FetchOutcome::Refused:
        case FetchOutcome::Cancelled:
        case FetchOutcome::NoHelper:
        case FetchOutcome::HelperDied:
            return Says::Nothing;
        default:
            return Says::Fails;
    }
}

}  // namespace

FailedHosts& FailedHosts::instance() {
    static FailedHosts one;
    return one;
}

void FailedHosts::note(const FetchRequest& request, FetchOutcome outcome) {
    const Says says = saysOfServer(outcome);
    if (says == Says::Nothing) return;
    const std::lock_guard lock(mutex_);
    if (says == Says::Works) {
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

FetchScheduler::~FetchScheduler() {
    stop();
    {
        const std::lock_guard lock(mutex_);
        closing_ = true;
    }
    forWorkers_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

/// One more thread when all are busy and there may be more of them. Under the lock.
void FetchScheduler::startThread() {
    if (idle_ >= waiting_ || threads_.size() == kMostAtOnce) return;
    const SignalsHeld noSignals;
    try {
        threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // Those that there are do the work of all.
        if (threads_.empty()) throw;
    }
}

size_t FetchScheduler::add(FetchJob job) {
    auto slot = std::make_unique<Slot>();
    slot->host = parseUrl(job.request.url).host;
    slot->job = std::move(job);
    slot->result.outcome = FetchOutcome::Cancelled;
    // Made now: the thread that needs it has no memory then.
    slot->noMemory.outcome = FetchOutcome::TooLong;
    slot->noMemory.cause = "more than there is memory for";
    slot->noMemory.url = urlForPeople(slot->job.request.url);
    const std::lock_guard lock(mutex_);
    busyHosts_.try_emplace(slot->host, 0);
    slot->ended = stopping_;
    waiting_ += !stopping_;
    slots_.emplace(added_, std::move(slot));
    if (!stopping_) startThread();
    forWorkers_.notify_one();
    return added_++;
}

/// The next job whose host has room; null at the end of the work.
FetchScheduler::Slot* FetchScheduler::takeSlot() {
    std::unique_lock lock(mutex_);
    while (!closing_) {
        const auto next = std::ranges::find_if(slots_, [&](const auto& one) {
            return !one.second->started && !one.second->ended && busyHosts_[one.second->host] < kMostPerHost;
        });
        if (next != slots_.end()) {
            next->second->started = true;
            --waiting_;
            ++busyHosts_[next->second->host];
            return next->second.get();
        }
        ++idle_;
        forWorkers_.wait(lock);
        --idle_;
    }
    return nullptr;
}

void FetchScheduler::work() {
    while (Slot* slot = takeSlot()) {
        const FetchRequest& request = slot->job.request;
        try {
            slot->result = runFetch(request, slot->state);
            if (slot->result.url.empty()) slot->result.url = slot->noMemory.url;
            FailedHosts::instance().note(request, slot->result.outcome);
        } catch (const std::exception&) {  // no memory for what came
            slot->result = std::move(slot->noMemory);
        }
        const std::lock_guard lock(mutex_);
        slot->ended = true;
        --busyHosts_[slot->host];
        forWorkers_.notify_all();
        forOwner_.notify_all();
    }
}

void FetchScheduler::stop() {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (const auto& [number, slot] : slots_) {
        slot->state.stop = true;
        slot->ended = slot->ended || !slot->started;
    }
    waiting_ = 0;
    forOwner_.notify_all();
}

FetchProgress FetchScheduler::progress() {
    const std::lock_guard lock(mutex_);
    FetchProgress now;
    now.total = added_;
    now.done = taken_;
    for (const auto& [number, slot] : slots_) {
        if (slot->ended) {
            ++now.done;
        } else if (slot->started) {
            if (now.name.empty()) now.name = slot->job.name;
            now.received += slot->state.received;
        }
    }
    return now;
}

std::vector<FetchScheduler::Ended> FetchScheduler::take(std::chrono::milliseconds wait) {
    std::unique_lock lock(mutex_);
    const auto hasEnded = [](const auto& one) { return one.second->ended; };
    static_cast<void>(forOwner_.wait_for(lock, wait, [&] { return std::ranges::any_of(slots_, hasEnded); }));
    std::vector<Ended> list;
    for (auto at = slots_.begin(); at != slots_.end();) {
        if (!hasEnded(*at)) {
            ++at;
            continue;
        }
        list.push_back({at->first, std::move(at->second->result)});
        at = slots_.erase(at);
        ++taken_;
    }
    return list;
}

}  // namespace crv
