#include "misc/generic_file.h"

#include <algorithm>
#include <cstring>

namespace crv {

namespace {
constexpr size_t kBufferSize = 32 * 1024;
}

long GenericFile::fill(size_t) {
    return static_cast<long>(window().size());
}

bool GenericFile::seek(long) {
    return false;
}

bool GenericFile::write(ByteView) {
    return false;
}

int GenericFile::peekBeyond() {
    const long available = fill(1);
    if (available < 0) return kFailed;
    return available == 0 ? kEnd : *next_;
}

long GenericFile::read(uint8_t* out, long count) {
    long done = 0;
    while (done < count) {
        if (next_ == end_) {
            const long available = fill(1);
            if (available < 0) return -1;
            if (available == 0) break;
        }
        const auto piece = std::min<size_t>(static_cast<size_t>(count - done), static_cast<size_t>(end_ - next_));
        if (out) std::memcpy(out + done, next_, piece);
        next_ += piece;
        done += static_cast<long>(piece);
    }
    return done;
}

long GenericFile::skip(long count) {
    return read(nullptr, count);
}

long BufferedFile::fill(size_t count) {
    if (window().size() >= count) return static_cast<long>(window().size());
    if (buffer_.empty()) buffer_.resize(kBufferSize);
    size_t held = window().size();
    if (held > 0) std::memmove(buffer_.data(), window().data(), held);
    const long first = position();
    bool failed = false;
    while (held < count) {
        const long got = readSome(buffer_.data() + held, buffer_.size() - held);
        failed = got < 0;
        if (got <= 0) break;
        held += static_cast<size_t>(got);
    }
    setWindow({buffer_.data(), held}, first);
    return failed ? -1 : static_cast<long>(held);
}

}  // namespace crv
