#include "ops/lock_wait.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "misc/atomic_write.h"
#include "misc/file_ops.h"
#include "misc/whole_file.h"
#include "ops/op_error.h"

namespace crv {
namespace {

constexpr auto kPause = std::chrono::milliseconds(20);

/// A folder that admits no lock file: its owner rewrites what is in it in place, as before there were locks.
bool cannotLock(const std::string& path, const OpMode& mode) {
    if (fileExists(path)) return false;
    return mode.dryRun || fileOps().access(folderOf(path), W_OK) != 0;
}

}  // namespace

TimedLock::TimedLock(const std::string& path, const OpMode& mode)
    : semaphore_(path, path.empty() || cannotLock(path, mode)) {
    using Clock = std::chrono::steady_clock;
    const auto end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(mode.waitSeconds));
    const int lockMode = mode.dryRun ? kSharedLock : kExclusiveLock;
    while (semaphore_.pCond(lockMode) != 1) {
        stopIfEnding();
        if (fileOps().access(path, mode.dryRun ? R_OK : R_OK | W_OK) != 0) throw OpError(OpFault::LockFailed, path);
        if (Clock::now() >= end) throw OpError(OpFault::LockBusy, path);
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace crv
