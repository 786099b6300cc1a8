// The seam through which every file of the library is reached. Tests put an object of their own here to make
// operations fail, fall short or stop.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace crv {

/// The system calls on files, with their results and errno. This class calls the system.
class FileOps {
  public:
    FileOps() = default;
    virtual ~FileOps() = default;
    FileOps(const FileOps&) = delete;
    FileOps& operator=(const FileOps&) = delete;

    virtual int open(const std::string& path, int flags, mode_t mode = 0);
    virtual int close(int fd);
    virtual ssize_t read(int fd, void* buffer, size_t size);
    virtual ssize_t write(int fd, const void* data, size_t size);
    virtual ssize_t pread(int fd, void* buffer, size_t size, int64_t position);
    virtual ssize_t pwrite(int fd, const void* data, size_t size, int64_t position);
    virtual int ftruncate(int fd, int64_t length);
    virtual int fsync(int fd);
    virtual int fstat(int fd, struct stat* result);
    virtual int stat(const std::string& path, struct stat* result);
    virtual int lstat(const std::string& path, struct stat* result);
    virtual int access(const std::string& path, int mode);
    virtual int fchmod(int fd, mode_t mode);
    virtual int fchown(int fd, uid_t owner, gid_t group);
    /// Gives a file the access control list and the extended attributes of another one; 0 or -1. Attributes that only
    /// the system may set stay behind.
    virtual int copyAttributes(const std::string& from, int to);
    virtual int rename(const std::string& from, const std::string& to);
    virtual int unlink(const std::string& path);
    virtual int mkdir(const std::string& path, mode_t mode);
    virtual int rmdir(const std::string& path);
    /// The text of a symbolic link; 0 or -1.
    virtual int readlink(const std::string& path, std::string& target);
    /// The names in a folder without "." and "..", unordered; 0 or -1.
    virtual int list(const std::string& folder, std::vector<std::string>& names);
    /// fcntl lock of the whole file: F_RDLCK, F_WRLCK or F_UNLCK; waiting for it or not. It belongs to the open file
    /// (F_OFD_SETLK), also of a forked process that inherited it, and excludes record locks of processes.
    virtual int lock(int fd, short type, bool wait);
    /// Whether the system knows no such locks, so that they belong to the process and end when it closes any descriptor
    /// of the file. Known from the first lock on.
    [[nodiscard]] virtual bool locksBelongToProcess() const;
    /// flock of the file, which does not meet record locks: taken exclusively, waiting for it, or let go. Does nothing
    /// on file systems that serve it by record locks.
    virtual int gate(int fd, bool take);
};

/// The object in use: the system unless a test has put another one in.
FileOps& fileOps();

/// Puts an object in use for its scope (tests; one at a time).
class ScopedFileOps {
  public:
    explicit ScopedFileOps(FileOps& ops);
    ~ScopedFileOps();
    ScopedFileOps(const ScopedFileOps&) = delete;
    ScopedFileOps& operator=(const ScopedFileOps&) = delete;

  private:
    FileOps* previous_;
};

/// A descriptor closed at the end of the scope.
class FileDescriptor {
  public:
    explicit FileDescriptor(int fd = -1) : fd_(fd) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool valid() const { return fd_ >= 0; }
    int release();
    void reset(int fd = -1);

  private:
    int fd_;
};

/// Which file it is, whatever its name.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileId&) const = default;
    static FileId of(const struct stat& info) { return {info.st_dev, info.st_ino}; }
};

/// Writes everything, at a position or, with position -1, where the descriptor stands (pipes and devices). Short writes
/// go on, interruptions are repeated. False with errno set: the file holds a part of it.
[[nodiscard]] bool writeAll(int fd, const void* data, size_t size, int64_t position);

/// Reads up to size octets at a position or, with position -1, from where the descriptor stands; stops short only at
/// the end of the file. -1 with errno on failure.
[[nodiscard]] ssize_t readUpTo(int fd, void* buffer, size_t size, int64_t position);

}  // namespace crv
