// A lock between processes: an advisory lock on the whole of a lock file.
#pragma once

#include <memory>
#include <string>

namespace crv {

enum LockMode : int { kSharedLock = 0, kExclusiveLock = 1 };

/// Tells waiting locks that the process is being ended: an interrupted wait then fails instead of going on. May be
/// called in a signal handler.
void setProcessEnding() noexcept;
bool processEnding() noexcept;

struct LockedFile;

/// fcntl lock on a lock file, which is created (mode 0666) when missing. Mode 0 is shared, any other exclusive.
///
/// The lock belongs to the open file, so that another copy of this code in the process (a PKCS#11 module that the
/// program loads) is excluded as other processes are. The objects of one copy that lock the same file (by device and
/// inode) share it. A forked process holds nothing: what it has of its parent's objects releases nothing either. Among
/// threads of one process the objects exclude each other as the modes say; objects of one thread never block each
/// other, the file is held in the strongest of their modes. A lock file that cannot be opened for writing is opened for
/// reading when a shared lock is asked for. Those who wait are served in turn, so readers do not starve a writer. One
/// object is used by one thread at a time.
class FileSemaphore {
  public:
    static constexpr size_t kMaxPath = 255;

    /// A disabled semaphore does nothing and always succeeds. `like`: a file whose owner and mode the lock file gets,
    /// so that whoever may use the one may lock it; the lock file is then never reached through a symbolic link, and
    /// one that somebody else left unusable for the file's owner is replaced when nobody holds it.
    explicit FileSemaphore(std::string path, bool disabled = false, std::string like = {});
    /// Releases a lock still held.
    ~FileSemaphore();
    FileSemaphore(const FileSemaphore&) = delete;
    FileSemaphore& operator=(const FileSemaphore&) = delete;

    /// Waits for the lock. 1 when held, 0 on failure: the file cannot be opened or locked, the path is longer than 255
    /// characters, the object holds the lock already, or the process is being ended. A thread that holds the lock
    /// shared waits for the exclusive one a minute or a little more: another that does the same would wait for ever.
    [[nodiscard]] int p(int mode);
    /// Takes the lock when it is free now, else answers 0.
    [[nodiscard]] int pCond(int mode);
    /// Whether the lock file can be opened for the mode, so that waiting may help.
    [[nodiscard]] bool canBeOpened(int mode) const;
    /// Releases the lock; 1, or 0 when it could not be released or was not held.
    int v();

    [[nodiscard]] bool held() const { return file_ != nullptr; }
    /// The descriptor of the lock file while the lock is held, -1 otherwise and in a forked process. Never close it.
    [[nodiscard]] int descriptor() const;
    [[nodiscard]] const std::string& path() const { return path_; }

  private:
    int acquire(int mode, bool wait);

    std::string path_;
    std::string like_;
    bool disabled_;
    LockedFile* file_ = nullptr;
};

/// Holds a semaphore for a scope. The constructor throws StoreError "FileSemaphore::p: blad zajecia semafora".
class SemGuard {
  public:
    SemGuard(FileSemaphore& semaphore, int mode);
    /// Releases; a failure goes to the log.
    ~SemGuard();
    SemGuard(const SemGuard&) = delete;
    SemGuard& operator=(const SemGuard&) = delete;

    /// Releases before the end of the scope; throws StoreError "FileSemaphore::v: blad zwolnienia semafora".
    void release();

  private:
    FileSemaphore* semaphore_;
};

}  // namespace crv
