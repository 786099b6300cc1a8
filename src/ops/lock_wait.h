// Locks that are waited for no longer than the caller says.
#pragma once

#include <string>

#include "misc/file_semaphore.h"

namespace crv {

/// How an operation meets other programs and the disk.
struct OpMode {
    bool dryRun = false;        ///< everything but the write
    double waitSeconds = 30.0;  ///< for a lock
};

/// Holds a lock file for a scope. A dry run asks for a shared lock and makes no lock file: what nobody ever locked,
/// nobody holds.
class TimedLock {
  public:
    /// Throws OpError (LockBusy, LockFailed) or OpStopped.
    TimedLock(const std::string& path, const OpMode& mode);

  private:
    FileSemaphore semaphore_;
};

}  // namespace crv
