#include "answer.h"

#include <unistd.h>

#include <algorithm>

#include "misc/file_ops.h"

namespace crv::fetch {

namespace {

/// Nobody reads any more: nothing is left to do.
void send(const Bytes& frame) {
    if (!writeAll(STDOUT_FILENO, frame.data(), frame.size(), -1)) _exit(1);
}

}  // namespace

bool Answer::begin() {
    if (values_ == 0) tooLong_ = true;
    if (tooLong_) return false;
    --values_;
    send(encodeFrame(FrameKind::Value, {}));
    return true;
}

bool Answer::put(ByteView octets) {
    if (octets.size() > left_) tooLong_ = true;
    if (tooLong_) return false;
    left_ -= octets.size();
    while (!octets.empty()) {
        const ByteView piece = octets.first(std::min(octets.size(), kMaxFrame));
        send(encodeFrame(FrameKind::Body, piece));
        octets = octets.subspan(piece.size());
    }
    return true;
}

void Answer::end(const FetchResult& result) {
    send(encodeEnd(result));
}

}  // namespace crv::fetch
