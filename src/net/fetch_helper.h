// One run of the program that fetches: TLS, HTTP, FTP and LDAP are spoken in a process of their own, so what comes from
// the network is never parsed beside opened keys, and stopping is a kill.
#pragma once

#include <atomic>

#include "net/fetch_message.h"

namespace crv {

/// What a fetch in work shows to other threads, and how they end it.
struct FetchState {
    std::atomic<bool> stop = false;
    std::atomic<uint64_t> received = 0;  ///< octets so far
};

/// Fetches and waits for the end; answers within 100 ms of `stop`, after the helper is gone. Never throws but for lack
/// of memory. Signals that reach the calling thread do not end it.
[[nodiscard]] FetchResult runFetch(const FetchRequest& request, FetchState& state);

/// The program that fetches: "crvfetch" beside the running program, in "../libexec/corvane" from there, or where it was
/// installed; empty when it is nowhere.
[[nodiscard]] std::string fetchHelperPath();
/// Names the program for the whole process (tests, host programs); empty: looked for again.
void setFetchHelperPath(const std::string& path);

}  // namespace crv
