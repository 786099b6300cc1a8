#include "misc/file.h"

#include <cerrno>

namespace crv {

bool File::fail(FileStatus status) {
    status_ = status;
    return false;
}

bool File::create(const std::string& path, mode_t mode, int how) {
    close();
    path_ = path;
    fd_.reset(fileOps().open(path, O_RDWR | O_CREAT | how, mode));
    struct stat info {};
    if (!fd_.valid() || fileOps().fstat(fd_.get(), &info) != 0) return close(), fail(FileStatus::IoFailure);
    id_ = FileId::of(info);
    length_ = info.st_size;
    inUse_ = writable_ = true;
    reused_ = tornTail_ = false;
    status_ = FileStatus::Ok;
    return true;
}

bool File::takeParked(const std::string& path) {
    struct stat info {};
    if (!fd_.valid() || inUse_ || !writable_ || path != path_) return false;
    if (fileOps().stat(path, &info) != 0 || !(FileId::of(info) == id_)) return false;
    length_ = info.st_size;
    inUse_ = reused_ = true;
    status_ = FileStatus::Ok;
    return true;
}

bool File::open(const std::string& path) {
    if (takeParked(path)) return true;
    close();
    // Times of reading would be written for nearly each change. Only the owner may do without.
    fd_.reset(fileOps().open(path, O_RDWR | O_NOATIME));
    if (!fd_.valid() && errno == EPERM) fd_.reset(fileOps().open(path, O_RDWR));
    writable_ = fd_.valid();
    if (!writable_ && (errno == EACCES || errno == EROFS || errno == EPERM)) fd_.reset(fileOps().open(path, O_RDONLY));
    struct stat info {};
    if (!fd_.valid() || fileOps().fstat(fd_.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        close();
        return fail(FileStatus::IoFailure);
    }
    path_ = path;
    id_ = FileId::of(info);
    length_ = info.st_size;
    inUse_ = true;
    tornTail_ = false;
    status_ = FileStatus::Ok;
    return true;
}

void File::park() {
    inUse_ = false;
    status_ = FileStatus::NotOpen;
}

void File::close() {
    park();
    reused_ = false;
    fd_.reset();
}

ssize_t File::readSome(int64_t position, void* buffer, size_t size) {
    if (!inUse_) return fail(FileStatus::NotOpen), -1;
    const ssize_t n = position < 0 ? -1 : readUpTo(fd_.get(), buffer, size, position);
    if (n < 0) fail(FileStatus::IoFailure);
    return n;
}

bool File::readAt(int64_t position, void* buffer, size_t size) {
    const ssize_t n = readSome(position, buffer, size);
    return n == static_cast<ssize_t>(size) || (n >= 0 && fail(FileStatus::IoFailure));
}

bool File::writeAt(int64_t position, ByteView data) {
    if (!inUse_) return fail(FileStatus::NotOpen);
    if (position < 0 || !writeAll(fd_.get(), data.data(), data.size(), position)) return fail(FileStatus::IoFailure);
    length_ = std::max(length_, position + static_cast<int64_t>(data.size()));
    return true;
}

int64_t File::append(ByteView data) {
    const int64_t end = length_;
    if (writeAt(end, data)) return end;
    const FileStatus why = status_;
    tornTail_ = inUse_ && !truncate(end);
    status_ = why;
    return -1;
}

int64_t File::allocate(size_t n) {
    return append(Bytes(n));
}

bool File::truncate(int64_t length) {
    if (!inUse_) return fail(FileStatus::NotOpen);
    if (fileOps().ftruncate(fd_.get(), length) != 0) return fail(FileStatus::IoFailure);
    length_ = length;
    return true;
}

bool File::sync() {
    if (!inUse_) return fail(FileStatus::NotOpen);
    return fileOps().fsync(fd_.get()) == 0 || fail(FileStatus::IoFailure);
}

}  // namespace crv
