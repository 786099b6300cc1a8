#include "support/faulty_file_ops.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace crv::test {

bool FaultyFileOps::mayChange() {
    if (changesLeft == 0) {
        errno = stopError;
        return false;
    }
    if (changesLeft > 0) --changesLeft;
    ++changes;
    return true;
}

size_t FaultyFileOps::writable(int fd, size_t size, int64_t position) {
    if (!mayChange()) return 0;
    if (tearLast && changesLeft == 0) size = std::max<size_t>(size / 2, 1);
    if (shortTransfer != 0) size = std::min(size, shortTransfer);
    if (room == kNever) return size;
    struct stat info {};
    if (FileOps::fstat(fd, &info) != 0) return 0;
    const int64_t inside = std::max<int64_t>(info.st_size - position, 0);
    size = static_cast<size_t>(std::min<int64_t>(inside + room, static_cast<int64_t>(size)));
    room -= std::max<int64_t>(static_cast<int64_t>(size) - inside, 0);
    if (size == 0) errno = ENOSPC;
    return size;
}

int FaultyFileOps::stat(const std::string& path, struct stat* result) {
    if (path != deniedPath) return FileOps::stat(path, result);
    errno = EACCES;
    return -1;
}

int FaultyFileOps::access(const std::string& path, int mode) {
    struct stat info {};
    return stat(path, &info) != 0 ? -1 : FileOps::access(path, mode);
}

int FaultyFileOps::open(const std::string& path, int flags, mode_t mode) {
    if ((denyWriting && (flags & O_ACCMODE) != O_RDONLY) || (denyNewFiles && (flags & O_EXCL) != 0)) {
        errno = EACCES;
        return -1;
    }
    struct stat info {};
    const bool creates = (flags & O_CREAT) != 0 && ((flags & O_TRUNC) != 0 || FileOps::stat(path, &info) != 0);
    return creates && !mayChange() ? -1 : FileOps::open(path, flags, mode);
}

ssize_t FaultyFileOps::read(int fd, void* buffer, size_t size) {
    return FileOps::read(fd, buffer, shortTransfer == 0 ? size : std::min(size, shortTransfer));
}

ssize_t FaultyFileOps::pread(int fd, void* buffer, size_t size, int64_t position) {
    return FileOps::pread(fd, buffer, shortTransfer == 0 ? size : std::min(size, shortTransfer), position);
}

ssize_t FaultyFileOps::write(int fd, const void* data, size_t size) {
    const size_t n = writable(fd, size, ::lseek(fd, 0, SEEK_CUR));
    return n == 0 ? -1 : FileOps::write(fd, data, n);
}

ssize_t FaultyFileOps::pwrite(int fd, const void* data, size_t size, int64_t position) {
    const size_t n = writable(fd, size, position);
    return n == 0 ? -1 : FileOps::pwrite(fd, data, n, position);
}

int FaultyFileOps::ftruncate(int fd, int64_t length) {
    return mayChange() ? FileOps::ftruncate(fd, length) : -1;
}

int FaultyFileOps::fsync(int) {
    if (!failSync) return 0;
    errno = EIO;
    return -1;
}

int FaultyFileOps::rename(const std::string& from, const std::string& to) {
    if (!mayChange()) return -1;
    FileOps::unlink(to);  // some file systems write the data down when a rename replaces a file
    return FileOps::rename(from, to);
}

int FaultyFileOps::unlink(const std::string& path) {
    return mayChange() ? FileOps::unlink(path) : -1;
}

int FaultyFileOps::mkdir(const std::string& path, mode_t mode) {
    return mayChange() ? FileOps::mkdir(path, mode) : -1;
}

}  // namespace crv::test
