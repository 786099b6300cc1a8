// The signal that asked this process to end, if one did. Whoever waits (for a key, for a lock) looks here after EINTR:
// once it is set the wait is given up, so that the stack unwinds, guards wipe their secrets and locks are let go.
#pragma once

#include <atomic>

namespace crv {

/// 0 while nobody asked; else the number of the signal (SIGINT, SIGTERM, SIGHUP). Written by signal handlers.
std::atomic<int>& endSignal() noexcept;

}  // namespace crv
