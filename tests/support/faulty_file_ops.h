// File operations that fail on request: the n-th change of the disk, short transfers, a full disk, a failing sync.
#pragma once

#include "misc/file_ops.h"

namespace crv::test {

/// Put it in use with ScopedFileOps. The operations that change the disk (write, pwrite, ftruncate, rename, unlink,
/// mkdir, creating open) are counted. Nothing is ever synced, so without any fault it only makes tests faster.
class FaultyFileOps : public FileOps {
  public:
    static constexpr int kNever = -1;

    /// Changes that still happen; all later ones fail with stopError and change nothing, as if the process had died.
    int changesLeft = kNever;
    /// The last change that happens is only written up to its half.
    bool tearLast = false;
    int stopError = 5;  // EIO
    /// Longest transfer of one read or write; 0 for no limit.
    size_t shortTransfer = 0;
    /// Octets by which files may still grow; then ENOSPC (after a part).
    int64_t room = kNever;
    bool failSync = false;
    /// EACCES, also for the superuser: opening for writing, making new files in a folder, looking at one path.
    bool denyWriting = false;
    bool denyNewFiles = false;
    std::string deniedPath;

    int changes = 0;

    int open(const std::string& path, int flags, mode_t mode = 0) override;
    ssize_t read(int fd, void* buffer, size_t size) override;
    ssize_t pread(int fd, void* buffer, size_t size, int64_t position) override;
    ssize_t write(int fd, const void* data, size_t size) override;
    ssize_t pwrite(int fd, const void* data, size_t size, int64_t position) override;
    int stat(const std::string& path, struct stat* result) override;
    int access(const std::string& path, int mode) override;
    int ftruncate(int fd, int64_t length) override;
    int fsync(int fd) override;
    int rename(const std::string& from, const std::string& to) override;
    int unlink(const std::string& path) override;
    int mkdir(const std::string& path, mode_t mode) override;

  private:
    bool mayChange();
    /// How much of a write of that size happens; 0 with errno when none.
    size_t writable(int fd, size_t size, int64_t position);
};

}  // namespace crv::test
