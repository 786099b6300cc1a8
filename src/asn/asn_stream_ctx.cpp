#include "asn/asn_stream_ctx.h"

#include <algorithm>

#include "asn/asn_primitives.h"

namespace crv {

namespace {

/// Octets of a complete header once its first two are known; 0 when there are too many length octets.
size_t headerSize(ByteView header) {
    if (header[1] <= 0x80) return 2;
    const size_t octets = header[1] & 0x7F;
    return octets > 4 ? 0 : 2 + octets;
}

/// Moves up to `count` octets that are at hand; the number moved, -1 on failure.
long moveAvailable(GenericFile& in, long count, GenericFile& out) {
    if (in.peek() < 0) return in.peek() == GenericFile::kEnd ? 0 : -1;
    const ByteView piece = in.window().first(std::min(static_cast<size_t>(count), in.window().size()));
    if (!out.write(piece)) return -1;
    in.consume(piece.size());
    return static_cast<long>(piece.size());
}

}  // namespace

/// Octets that the collected element surely lacks, at least one while that is not known better; 0 when it is complete,
/// -1 when it never will be. Goes on where it stood before: looking at everything again would cost the square of a
/// content that comes in many pieces.
long ASNStreamCtx::missing() {
    for (;;) {
        const ByteView held = collected_.written();
        const auto lack = [&](size_t size) { return static_cast<long>(size) - static_cast<long>(held.size()); };
        if (ended_) return lack(at_);
        if (held.size() < at_ + 2) return lack(at_ + 2);
        const ByteView rest = held.subspan(at_);
        if (rest[0] == 0 && rest[1] == 0) {
            if (open_ == 0) return -1;
            at_ += 2;
            ended_ = --open_ == 0;
            continue;
        }
        const size_t header = headerSize(rest);
        if (header == 0 || rest[0] == 0 || (rest[0] & ASN_NUMBER_BITS) == ASN_NUMBER_BITS) return -1;
        if (rest.size() < header) return lack(at_ + header);
        MemoryFile lengthOctets(rest.subspan(1));
        long length = 0;
        if (read_length(lengthOctets, length) <= 0) return -1;
        at_ += header + static_cast<size_t>(std::max(length, 0L));
        if (length >= 0) {
            ended_ = open_ == 0;
        } else if ((rest[0] & ASN_CONSTRUCTED_BIT) == 0 || ++open_ > GenericFile::kMaxNesting) {
            return -1;
        }
    }
}

long ASNStreamCtx::take(GenericFile& in, bool last, GenericFile&) {
    long taken = 0;
    for (long wanted = missing(); wanted != 0; wanted = missing()) {
        if (wanted < 0) return 0;
        const long moved = moveAvailable(in, wanted, collected_);
        if (moved < 0) return -1;
        if (moved == 0) return last ? 0 : taken;
        taken += moved;
    }
    // Reading drops the context, so it works on a copy of its own.
    const SecretBytes whole = toSecret(collected_.written());
    if (!object_.readExactly(whole, ASN_FLAG_CONST | ASN_FLAG_COPY)) return 0;
    done_ = true;
    return taken;
}

bool ASNOctStrStreamCtx::expects(int identifier) const {
    const size_t outer = isExplicit() ? 1 : 0;
    if (levels_.size() < outer) return object_.acceptsTag(identifier);
    if (!ownSeen_) return isOwnIdentifier(identifier);
    const int type = identifier & ~ASN_CONSTRUCTED_BIT;
    return levels_.size() > outer && (type == ASNoctstr::kTag || type == object_.getDefaultTag());
}

bool ASNOctStrStreamCtx::open(int identifier, long length) {
    if (identifier == 0 && length == 0) {
        if (levels_.empty() || levels_.back() >= 0) return false;
        levels_.pop_back();
        return true;
    }
    const bool constructed = (identifier & ASN_CONSTRUCTED_BIT) != 0;
    if (!expects(identifier) || (length < 0 && !constructed) || levels_.size() >= GenericFile::kMaxNesting)
        return false;
    if (!levels_.empty() && levels_.back() >= 0 && taken_ + std::max(length, 0L) > levels_.back()) return false;
    if (levels_.size() >= (isExplicit() ? 1U : 0U)) ownSeen_ = true;
    if (constructed) {
        levels_.push_back(length < 0 ? -1 : taken_ + length);
    } else {
        leafLeft_ = length;
    }
    return true;
}

/// One octet of a header; opens what a complete header announces.
long ASNOctStrStreamCtx::takeHeaderOctet(GenericFile& in) {
    header_.push_back(static_cast<uint8_t>(in.get()));
    ++taken_;
    if (header_.size() < 2) return 1;
    const size_t size = headerSize(header_);
    if (size == 0) return 0;
    if (header_.size() < size) return 1;
    MemoryFile lengthOctets(ByteView(header_).subspan(1));
    long length = 0;
    if (read_length(lengthOctets, length) <= 0 || !open(header_[0], length)) return 0;
    header_.clear();
    return closeLevels() ? 1 : 0;
}

/// Leaves the levels that end here; false when one should have ended before.
bool ASNOctStrStreamCtx::closeLevels() {
    if (leafLeft_ > 0) return true;
    while (!levels_.empty() && levels_.back() >= 0 && taken_ >= levels_.back()) {
        if (taken_ > levels_.back()) return false;
        levels_.pop_back();
    }
    if (levels_.empty() && ownSeen_) setDone();
    return true;
}

long ASNOctStrStreamCtx::take(GenericFile& in, bool last, GenericFile& out) {
    const long before = taken_;
    while (!done()) {
        const int next = in.peek();
        if (next == GenericFile::kFailed) return -1;
        if (next == GenericFile::kEnd) break;
        if (leafLeft_ == 0) {
            if (takeHeaderOctet(in) <= 0) return 0;
            continue;
        }
        const long moved = readContents(in, leafLeft_, out);
        if (moved <= 0) return moved;
        leafLeft_ -= moved;
        taken_ += moved;
        if (!closeLevels()) return 0;
    }
    return last && !done() ? 0 : taken_ - before;
}

void ASNobject::allocateStreamCtx() {
    streamCtx_ = std::make_unique<ASNStreamCtx>(*this);
}

void ASNoctstr::allocateStreamCtx() {
    setStreamCtx(std::make_unique<ASNOctStrStreamCtx>(*this));
}

void ASNobject::setStreamCtx(std::unique_ptr<ASNStreamCtx> ctx) {
    streamCtx_ = std::move(ctx);
}

void ASNobject::deleteStreamCtx() {
    streamCtx_.reset();
}

void ASNobject::cleanStreamCtx() {
    deleteStreamCtx();
}

bool ASNobject::streamDone() const {
    return streamDone_;
}

long ASNobject::doReadData(GenericFile& in, bool last, GenericFile& out) {
    if (!streamCtx_) {
        allocateStreamCtx();
        streamDone_ = false;
    }
    // The context leaves the object while it works: a collected element is read, and reading drops the context.
    std::unique_ptr<ASNStreamCtx> ctx = std::move(streamCtx_);
    const long taken = ctx->take(in, last, out);
    streamDone_ = ctx->done();
    if (!streamDone_ && taken >= 0 && !last) streamCtx_ = std::move(ctx);
    return taken;
}

long ASNobject::doReadData(const char* data, long len, bool last, GenericFile& out) {
    MemoryFile piece(asBytes({data, static_cast<size_t>(len)}));
    return doReadData(piece, last, out);
}

long ASNobject::doReadContents(GenericFile* in, long len, GenericFile* out) {
    return moveAvailable(*in, len, *out);
}

long ASNobject::doGetLenOfBody(long contents) const {
    return contents;
}

long ASNoctstr::doGetLenOfBody(int contents) const {
    return contents < 0 ? -1 : contents;
}

long ASNobject::doGetLen(long contents) const {
    const long body = doGetLenOfBody(contents);
    if (body < 0) return -1;
    const long element = 1 + lenOfLen(body) + body;
    return isExplicit() ? 1 + lenOfLen(element) + element : element;
}

bool ASNobject::beginStream(long contents, GenericFile& out) {
    allocateStreamCtx();
    streamCtx_->writing = true;
    streamCtx_->leftToWrite = contents;
    const long body = doGetLenOfBody(contents);
    const auto constructed = static_cast<unsigned char>(body < 0 ? ASN_CONSTRUCTED_BIT : 0);
    const auto put = [&](int tag, long length) {
        uint8_t header[6] = {static_cast<uint8_t>(tag)};
        return out.write({header, static_cast<size_t>(1 + write_length(length, header + 1))});
    };
    if (isExplicit() && !put(outerTag_, body < 0 ? -1 : 1 + lenOfLen(body) + body)) return false;
    return put(identifier() | constructed, body);
}

long ASNobject::doWriteData(GenericFile& in, long len, bool last, GenericFile& out) {
    if (!streamCtx_ || !streamCtx_->writing) return -1;
    long& left = streamCtx_->leftToWrite;
    if (left >= 0 && (len > left || (last && len != left))) return -1;
    const bool known = left >= 0;
    long written = doWriteContents(&in, len, last, &out);
    if (written >= 0 && known) left -= len;
    if (written >= 0 && last && !known && isExplicit()) {
        constexpr uint8_t kEnd[2] = {0, 0};
        written = out.write(kEnd) ? written + 2 : -1;
    }
    if (last || written < 0) deleteStreamCtx();
    return written;
}

long ASNobject::doWriteContents(GenericFile* in, long len, bool, GenericFile* out) {
    for (long left = len; left > 0;) {
        const long moved = moveAvailable(*in, left, *out);
        if (moved <= 0) return -1;
        left -= moved;
    }
    return len;
}

/// In the indefinite form each piece is a segment of its own.
long ASNoctstr::doWriteContents(GenericFile* in, long len, bool last, GenericFile* out) {
    if (streamLeft() >= 0) return ASNobject::doWriteContents(in, len, last, out);
    uint8_t header[6] = {ASNoctstr::kTag};
    const int size = 1 + write_length(len, header + 1);
    long written = 0;
    if (len > 0) {
        if (!out->write({header, static_cast<size_t>(size)}) || ASNobject::doWriteContents(in, len, last, out) < 0)
            return -1;
        written = size + len;
    }
    constexpr uint8_t kEnd[2] = {0, 0};
    if (!last) return written;
    return out->write(kEnd) ? written + 2 : -1;
}

long ASNobject::streamLeft() const {
    return streamCtx_ ? streamCtx_->leftToWrite : 0;
}

}  // namespace crv
