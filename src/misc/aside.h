// Work beside one's own.
#pragma once

#include <atomic>
#include <future>
#include <system_error>
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
    try {
        if (threadsMayStart) return std::async(std::launch::async, work);
    } catch (const std::system_error&) {  // whatever the system has against it
    }
    return std::async(std::launch::deferred, std::move(work));
}

/// Lowers a number that threads share, unless it is as low already.
inline void lowerTo(std::atomic<size_t>& least, size_t value) {
    for (size_t seen = least; value < seen && !least.compare_exchange_weak(seen, value);) {
    }
}

}  // namespace crv
