// Several fetches at once, each on a thread of its own, within limits for all and for each host.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "net/fetch_helper.h"

namespace crv {

/// One thing to fetch and what it is called in progress.
struct FetchJob {
    std::string name{};
    FetchRequest request{};
};

/// What a caller hears of the work.
struct FetchProgress {
    std::string name;       ///< of a job at work
    uint64_t received = 0;  ///< octets of all jobs at work
    size_t done = 0, total = 0;
};

/// Servers that failed, for the time in which they stand behind others. One per process: what fails for one context
/// fails for the next.
class FailedHosts {
  public:
    static constexpr int64_t kPenaltySeconds = 60;
    static FailedHosts& instance();
    /// Remembers how a server did; one that gave an answer is forgiven. What was stopped, or failed on this side, says
    /// nothing of it.
    void note(const FetchRequest& request, FetchOutcome outcome);
    /// Whether the server failed within the last minute.
    [[nodiscard]] bool isBehind(const FetchRequest& request);
    void clear();

  private:
    std::mutex mutex_;
    std::map<std::string, int64_t> until_;
};

/// Runs jobs in the order in which they are added, each as soon as there is room for it.
class FetchScheduler {
  public:
    static constexpr size_t kMostAtOnce = 6;
    static constexpr size_t kMostPerHost = 2;

    /// A job that has ended, by the number that it was given.
    struct Ended {
        size_t job;
        FetchResult result;
    };

    FetchScheduler() = default;
    /// Stops what is still at work and waits for its end.
    ~FetchScheduler();
    FetchScheduler(const FetchScheduler&) = delete;
    FetchScheduler& operator=(const FetchScheduler&) = delete;

    /// Never waits. The number of the job, from 0 on.
    size_t add(FetchJob job);
    /// What has ended and was not taken yet; waits so long for it when there is nothing.
    std::vector<Ended> take(std::chrono::milliseconds wait);
    /// Ends what is at work and what waits: it ends as Cancelled, and so does what is added later.
    void stop();
    [[nodiscard]] FetchProgress progress();

  private:
    struct Slot {
        FetchJob job;
        std::string host;
        FetchResult result;
        FetchResult noMemory;  // the result where there is no memory for another one
        FetchState state;
        bool started = false, ended = false;
    };
    void work();
    Slot* takeSlot();
    void startThread();

    std::mutex mutex_;
    std::condition_variable forWorkers_, forOwner_;
    std::map<size_t, std::unique_ptr<Slot>> slots_;  // those that nobody has taken
    std::map<std::string, size_t> busyHosts_;
    size_t added_ = 0, taken_ = 0, waiting_ = 0, idle_ = 0;
    bool stopping_ = false, closing_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace crv
