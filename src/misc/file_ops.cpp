#include "misc/file_ops.h"

#include <dirent.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "misc/file_semaphore.h"

namespace crv {

namespace {

/// A system that does not know locks of open files (older than Linux 3.15, or one that imitates it).
std::atomic<bool> ofProcess{false};

}  // namespace

int FileOps::open(const std::string& path, int flags, mode_t mode) {
    return ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode);
}

int FileOps::close(int fd) {
    return ::close(fd);
}

ssize_t FileOps::read(int fd, void* buffer, size_t size) {
    return ::read(fd, buffer, size);
}

ssize_t FileOps::write(int fd, const void* data, size_t size) {
    return ::write(fd, data, size);
}

ssize_t FileOps::pread(int fd, void* buffer, size_t size, int64_t position) {
    return ::pread(fd, buffer, size, position);
}

ssize_t FileOps::pwrite(int fd, const void* data, size_t size, int64_t position) {
    return ::pwrite(fd, data, size, position);
}

int FileOps::ftruncate(int fd, int64_t length) {
    return ::ftruncate(fd, length);
}

int FileOps::fsync(int fd) {
    return ::fsync(fd);
}

int FileOps::fstat(int fd, struct stat* result) {
    return ::fstat(fd, result);
}

int FileOps::stat(const std::string& path, struct stat* result) {
    return ::stat(path.c_str(), result);
}

int FileOps::lstat(const std::string& path, struct stat* result) {
    return ::lstat(path.c_str(), result);
}

int FileOps::access(const std::string& path, int mode) {
    return ::access(path.c_str(), mode);
}

int FileOps::fchmod(int fd, mode_t mode) {
    return ::fchmod(fd, mode);
}

int FileOps::fchown(int fd, uid_t owner, gid_t group) {
    return ::fchown(fd, owner, group);
}

int FileOps::copyAttributes(const std::string& from, int to) {
    std::string names(65536, '\0');
    const ssize_t length = ::listxattr(from.c_str(), names.data(), names.size());
    if (length < 0) return errno == ENOTSUP ? 0 : -1;
    std::vector<char> value(65536);
    for (const char* name = names.data(); name < names.data() + length; name += std::strlen(name) + 1) {
        const std::string_view kind(name);
        if (!kind.starts_with("user.") && !kind.starts_with("system.posix_acl")) continue;
        const ssize_t size = ::getxattr(from.c_str(), name, value.data(), value.size());
        if (size < 0 || ::fsetxattr(to, name, value.data(), static_cast<size_t>(size), 0) != 0) return -1;
    }
    return 0;
}

int FileOps::rename(const std::string& from, const std::string& to) {
    return ::rename(from.c_str(), to.c_str());
}

int FileOps::unlink(const std::string& path) {
    return ::unlink(path.c_str());
}

int FileOps::mkdir(const std::string& path, mode_t mode) {
    return ::mkdir(path.c_str(), mode);
}

int FileOps::rmdir(const std::string& path) {
    return ::rmdir(path.c_str());
}

int FileOps::readlink(const std::string& path, std::string& target) {
    std::array<char, PATH_MAX> buffer{};
    const ssize_t n = ::readlink(path.c_str(), buffer.data(), buffer.size());
    if (n < 0) return -1;
    target.assign(buffer.data(), static_cast<size_t>(n));
    return 0;
}

int FileOps::list(const std::string& folder, std::vector<std::string>& names) {
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir) return -1;
    names.clear();
    for (;;) {
        errno = 0;  // readdir() tells a failure from the end by it alone
        const dirent* entry = ::readdir(dir.get());
        if (!entry) return errno == 0 ? 0 : -1;
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
}

int FileOps::lock(int fd, short type, bool wait) {
    struct flock area {};
    area.l_type = type;
    area.l_whence = SEEK_SET;
    if (!ofProcess) {
        const int result = ::fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &area);
        if (result == 0 || errno != EINVAL) return result;
        ofProcess = true;
    }
    return ::fcntl(fd, wait ? F_SETLKW : F_SETLK, &area);
}

bool FileOps::locksBelongToProcess() const {
    return ofProcess;
}

int FileOps::gate(int fd, bool take) {
    // Network file systems make a record lock of it; user-space ones may.
    constexpr std::array<unsigned long, 5> kElsewhere{NFS_SUPER_MAGIC, SMB_SUPER_MAGIC, CIFS_SUPER_MAGIC,
                                                      SMB2_SUPER_MAGIC, FUSE_SUPER_MAGIC};
    thread_local int passed = -1;  // the descriptor at whose gate this thread waited: no second look is needed
    if (std::exchange(passed, -1) == fd && !take) return ::flock(fd, LOCK_UN);
    struct statfs info {};
    if (::fstatfs(fd, &info) != 0) return -1;
    if (std::find(kElsewhere.begin(), kElsewhere.end(), static_cast<unsigned long>(info.f_type)) != kElsewhere.end())
        return 0;
    passed = take ? fd : -1;
    return ::flock(fd, take ? LOCK_EX : LOCK_UN);
}

namespace {

std::atomic<FileOps*>& current() {
    static FileOps system;
    static std::atomic<FileOps*> inUse{&system};
    return inUse;
}

}  // namespace

FileOps& fileOps() {
    return *current().load(std::memory_order_acquire);
}

ScopedFileOps::ScopedFileOps(FileOps& ops) : previous_(current().exchange(&ops)) {}

ScopedFileOps::~ScopedFileOps() {
    current().store(previous_);
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    reset(other.release());
    return *this;
}

int FileDescriptor::release() {
    return std::exchange(fd_, -1);
}

void FileDescriptor::reset(int fd) {
    if (fd_ >= 0) fileOps().close(fd_);
    fd_ = fd;
}

bool writeAll(int fd, const void* data, size_t size, int64_t position) {
    const char* from = static_cast<const char*>(data);
    for (size_t done = 0; done < size;) {
        const ssize_t n = position < 0
                              ? fileOps().write(fd, from + done, size - done)
                              : fileOps().pwrite(fd, from + done, size - done, position + static_cast<int64_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n == 0) errno = EIO;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

ssize_t readUpTo(int fd, void* buffer, size_t size, int64_t position) {
    char* to = static_cast<char*>(buffer);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = position < 0
                              ? fileOps().read(fd, to + done, size - done)
                              : fileOps().pread(fd, to + done, size - done, position + static_cast<int64_t>(done));
        // A pipe may never bring more.
        if (n < 0 && errno == EINTR && (position >= 0 || !processEnding())) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace crv
