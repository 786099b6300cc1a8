// Work beside one's own.
#pragma once

#include <atomic>
#include <future>
#include <utility>

#include "misc/signals_held.h"

namespace crv {

/// False in a process whose program wants no threads of ours.
inline std::atomic<bool> threadsMayStart = true;

/// Starts work on a thread that takes no signals; where none can be had, the work is done when its end is asked for.
/// What it throws comes out there.
template <class Work>
[[nodiscard]] std::future<void> aside(Work work) {
    const SignalsHeld held;
    const auto start = threadsMayStart ? std::launch::async | std::launch::deferred : std::launch::deferred;
    return std::async(start, std::move(work));
}

}  // namespace crv
