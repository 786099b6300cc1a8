// Several fetches at once, each on a thread of its own, within limits for all and for each host.
#pragma once

#include <condition_variable>
#include <functional>
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
    /// Remembers how a server did; one that succeeds is forgiven.
    void note(const FetchRequest& request, bool good);
    /// Whether the server failed within the last minute.
    [[nodiscard]] bool isBehind(const FetchRequest& request);
    void clear();

  private:
    std::mutex mutex_;
    std::map<std::string, int64_t> until_;
};

class FetchScheduler {
  public:
    static constexpr size_t kMostAtOnce = 6;
    static constexpr size_t kMostPerHost = 2;

    explicit FetchScheduler(std::vector<FetchJob> jobs);
    /// Stops what is still at work and waits for its end.
    ~FetchScheduler();
    FetchScheduler(const FetchScheduler&) = delete;
    FetchScheduler& operator=(const FetchScheduler&) = delete;

    /// Waits until all are done, ten times a second calling `goOn`, whose false stops them. Results in the order of the
    /// jobs; what was stopped is Cancelled.
    std::vector<FetchResult> wait(const std::function<bool(const FetchProgress& progress)>& goOn = {});
    /// Whether wait would answer at once.
    [[nodiscard]] bool done();

  private:
    struct Slot {
        FetchJob job;
        std::string host;
        FetchResult result;
        FetchState state;
        bool started = false, finished = false;
    };
    void work();
    Slot* takeSlot();
    FetchProgress progress();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::unique_ptr<Slot>> slots_;
    std::map<std::string, size_t> busyHosts_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace crv
