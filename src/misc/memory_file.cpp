#include "misc/memory_file.h"

#include <algorithm>
#include <cstring>

namespace crv {

bool MemoryFile::seek(long target) {
    const long first = windowStart();
    const auto whole = ByteView{window().data() - windowTaken(), window().size() + windowTaken()};
    if (target < first || static_cast<size_t>(target - first) > whole.size()) return false;
    setWindow(whole, first);
    consume(static_cast<size_t>(target - first));
    return true;
}

bool MemoryFile::write(ByteView octets) {
    written_.insert(written_.end(), octets.begin(), octets.end());
    return true;
}

bool SpanFile::write(ByteView octets) {
    if (octets.size() > room_.size() - size_) return false;
    if (!octets.empty()) std::memcpy(room_.data() + size_, octets.data(), octets.size());
    size_ += octets.size();
    return true;
}

SubRangeFile::SubRangeFile(GenericFile& whole, long length) : whole_(whole), left_(length) {
    if (!whole.inMemory()) return;
    const auto size = std::min(static_cast<size_t>(std::max(length, 0L)), whole.window().size());
    setWindow(whole.window().first(size), 0);
    whole.consume(size);
    left_ = 0;
}

long SubRangeFile::fill(size_t count) {
    constexpr long kPiece = 4096;
    const ByteView rest = window();
    if (rest.size() >= count || left_ <= 0) return static_cast<long>(rest.size());
    Bytes next(rest.begin(), rest.end());
    const long want = std::min(left_, kPiece);
    next.resize(rest.size() + static_cast<size_t>(want));
    const long got = whole_.read(next.data() + rest.size(), want);
    if (got < 0) return -1;
    left_ = got < want ? 0 : left_ - got;
    next.resize(rest.size() + static_cast<size_t>(got));
    const long first = position();
    buffer_ = std::move(next);
    setWindow(buffer_, first);
    return static_cast<long>(buffer_.size());
}

bool readAll(GenericFile& in, SecretBytes& out, size_t limit) {
    // Asked once: a stream that failed may say next that it is at its end.
    int next = GenericFile::kEnd;
    while (limit > 0 && (next = in.peek()) >= 0) {
        const ByteView piece = in.window().first(std::min(limit, in.window().size()));
        out.insert(out.end(), piece.begin(), piece.end());
        in.consume(piece.size());
        limit -= piece.size();
    }
    return limit == 0 || next == GenericFile::kEnd;
}

}  // namespace crv
