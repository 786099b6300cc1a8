// Errands: each tries its sources in turn until what came is accepted; several are on their way at once.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "net/fetch_scheduler.h"
#include "pki/network_sources.h"

namespace crv {

/// 0, or the library's code with the reason in words.
struct NetVerdict {
    int code = 0;
    std::string cause{};
};

/// One thing that is wanted, and what came of it.
struct NetErrand {
    std::string name{};  ///< for progress
    NetAttempts attempts{};
    /// Judges what came, on the thread that owns the run; what it refuses goes to the next source.
    std::function<NetVerdict(const NetAttempt& attempt, FetchResult& result)> judge{};
    int notFound = 0;  ///< the code where a server has no such thing

    // What came of it.
    NetVerdict verdict{};
    std::string url{};     ///< where it came from, or the last that failed; without a login
    std::string server{};  ///< name of the row; empty for an address out of a certificate
    uint64_t size = 0;     ///< octets

    size_t next = 0;  ///< the attempt that is to come
    bool done = false;
};

/// The library's code for how a fetch ended; 0 for success.
[[nodiscard]] int codeOfOutcome(FetchOutcome outcome, int notFound);

/// False stops the work.
using NetProgress = std::function<bool(const FetchProgress& progress)>;

/// Errands, each going on to its next source as soon as it may; equal requests that are on their way together are made
/// once. A server that failed within the last minute comes behind the others.
class NetRun {
  public:
    explicit NetRun(std::vector<NetErrand> errands);
    /// Judges what has come and sends the next requests; never waits. True when all are done.
    bool advance() { return advance(std::chrono::milliseconds(0)); }
    /// Goes on until all are done or progress stops it: those still open then have code 165.
    void finish(const NetProgress& progress);
    [[nodiscard]] std::vector<NetErrand>& errands() { return errands_; }

  private:
    /// A request on its way and the errands that wait for it.
    struct Sent {
        FetchRequest request;
        std::vector<size_t> errands;
    };
    bool advance(std::chrono::milliseconds wait);
    void send(size_t number);
    void judge(NetErrand& errand, FetchResult& result);
    void stop();

    std::vector<NetErrand> errands_;
    std::map<size_t, Sent> sent_;  // by the number of the job
    FetchScheduler scheduler_;
};

}  // namespace crv
