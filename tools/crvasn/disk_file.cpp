#include "crvasn/disk_file.h"

#include <cerrno>

#include "misc/file_ops.h"

namespace crv {

namespace {

constexpr size_t kWriteBuffer = 32 * 1024;

template <class Call>
auto retryInterrupted(Call call) {
    decltype(call()) result;
    do result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

}  // namespace

DiskFile::DiskFile(const std::string& path, Mode mode) {
    const int flags = mode == Mode::Read ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
    descriptor_ = retryInterrupted([&] { return fileOps().open(path, flags | O_CLOEXEC, 0666); });
    if (descriptor_ < 0) error_ = errno;
}

DiskFile::~DiskFile() {
    if (isOpen()) static_cast<void>(close());
}

bool DiskFile::fail() {
    if (error_ == 0) error_ = errno;
    return false;
}

long DiskFile::readSome(uint8_t* out, size_t count) {
    const ssize_t got = retryInterrupted([&] {
        return sought_ ? fileOps().pread(descriptor_, out, count, filePosition_)
                       : fileOps().read(descriptor_, out, count);
    });
    if (got < 0) fail();
    if (got > 0) filePosition_ += got;
    return got;
}

bool DiskFile::seek(long position) {
    if (position < 0) return false;
    sought_ = true;
    filePosition_ = position;
    dropBuffer(position);
    return true;
}

bool DiskFile::write(ByteView octets) {
    pending_.insert(pending_.end(), octets.begin(), octets.end());
    return pending_.size() < kWriteBuffer || flush();
}

bool DiskFile::flush() {
    ByteView rest = pending_;
    while (!rest.empty() && error_ == 0) {
        const ssize_t put = retryInterrupted([&] { return fileOps().write(descriptor_, rest.data(), rest.size()); });
        if (put < 0) return fail();
        rest = rest.subspan(static_cast<size_t>(put));
    }
    pending_.clear();
    return error_ == 0;
}

bool DiskFile::close() {
    if (!isOpen()) return false;
    const bool written = flush();
    if (fileOps().close(descriptor_) < 0) fail();
    descriptor_ = -1;
    return written && error_ == 0;
}

}  // namespace crv
