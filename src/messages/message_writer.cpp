#include "messages/message_writer.h"

#include <algorithm>
#include <array>

#include "asn/asn_object.h"
#include "corvane/crverrors.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr uint8_t kSequenceOf = 0x30, kOidTag = 0x06, kExplicit0 = 0xA0, kImplicit0 = 0x80, kOctets = 0x04,
                  kConstructedOctets = 0x24;
constexpr size_t kSegment = size_t{64} << 10;
constexpr uint8_t kIndefiniteLength = 0x80;
constexpr std::array<uint8_t, 8> kEnds{};

template <class Octets>
void append(Octets& out, ByteView octets) {
    out.insert(out.end(), octets.begin(), octets.end());
}

void appendHeader(Bytes& out, uint8_t tag, size_t length) {
    std::array<uint8_t, 5> octets{};
    const int count = write_length(static_cast<long>(length), octets.data());
    out.push_back(tag);
    append(out, ByteView(octets).first(static_cast<size_t>(count)));
}

Bytes joinedParts(std::initializer_list<ByteView> parts) {
    Bytes out;
    for (const ByteView part : parts) append(out, part);
    return out;
}

Bytes headerOf(uint8_t tag, size_t length) {
    Bytes out;
    appendHeader(out, tag, length);
    return out;
}

}  // namespace

Bytes elementOf(uint8_t tag, std::initializer_list<ByteView> parts) {
    size_t length = 0;
    for (const ByteView part : parts) length += part.size();
    Bytes out;
    out.reserve(length + 6);
    appendHeader(out, tag, length);
    for (const ByteView part : parts) append(out, part);
    return out;
}

Bytes setOf(uint8_t tag, std::vector<Bytes> elements) {
    std::ranges::sort(elements);
    Bytes body;
    for (const Bytes& one : elements) append(body, one);
    return elementOf(tag, {body});
}

void MessageWriter::put(ByteView octets) {
    if (!octets.empty() && !sink_(octets)) throw CrvApiException(ECRV_WR_OUTFILE, "the message could not be written");
}

/// In pieces as they stand: the content may be a secret, of which no copy is made.
void MessageWriter::putWhole(const MessageFrame& frame, const Bytes& contentHead, ByteView content, ByteView after) {
    const size_t innerLength = frame.innerHead.size() + contentHead.size() + content.size();
    const Bytes inner = headerOf(kSequenceOf, innerLength);
    const size_t length = frame.before.size() + inner.size() + innerLength + after.size();
    const Bytes structure = headerOf(kSequenceOf, length), type = elementOf(kOidTag, {frame.type.octets()});
    const Bytes outer = headerOf(kExplicit0, structure.size() + length);
    const Bytes first = headerOf(kSequenceOf, type.size() + outer.size() + structure.size() + length);
    const Bytes head = joinedParts({first, type, outer, structure, frame.before, inner, frame.innerHead, contentHead});
    for (const ByteView part : {ByteView(head), content, after}) put(part);
}

void MessageWriter::putSegment(ByteView piece) {
    Bytes header;
    appendHeader(header, kOctets, piece.size());
    put(header);
    put(piece);
}

void MessageWriter::content(const MessageFrame& frame, ByteView piece) {
    if (!streaming_) {
        if (piece.size() <= mostHeld_ - held_.size()) return append(held_, piece);
        streaming_ = true;
        Bytes head{kSequenceOf, kIndefiniteLength};
        append(head, elementOf(kOidTag, {frame.type.octets()}));
        append(head, Bytes{kExplicit0, kIndefiniteLength, kSequenceOf, kIndefiniteLength});
        append(head, frame.before);
        append(head, Bytes{kSequenceOf, kIndefiniteLength});
        append(head, frame.innerHead);
        append(head, Bytes{kExplicit0, kIndefiniteLength});
        if (frame.explicitContent) append(head, Bytes{kConstructedOctets, kIndefiniteLength});
        put(head);
    }
    while (!piece.empty()) {
        const size_t room = held_.size() < kSegment ? kSegment - held_.size() : 0;
        const ByteView some = piece.first(std::min(room, piece.size()));
        piece = piece.subspan(some.size());
        if (held_.empty() && some.size() == kSegment) {
            putSegment(some);
            continue;
        }
        append(held_, some);
        if (held_.size() >= kSegment) {
            for (ByteView rest = held_; !rest.empty();) {
                const ByteView segment = rest.first(std::min(kSegment, rest.size()));
                putSegment(segment);
                rest = rest.subspan(segment.size());
            }
            held_.clear();
        }
    }
}

void MessageWriter::finish(const MessageFrame& frame, ByteView after) {
    if (!streaming_) {
        Bytes head = headerOf(frame.explicitContent ? kOctets : kImplicit0, held_.size());
        if (frame.explicitContent) head = joinedParts({headerOf(kExplicit0, head.size() + held_.size()), head});
        return putWhole(frame, head, held_, after);
    }
    if (!held_.empty()) putSegment(held_);
    // Of the constructed string, its explicit tag and the element around it.
    put(ByteView(kEnds).first(frame.explicitContent ? 6 : 4));
    put(after);
    put(ByteView(kEnds).first(6));
}

}  // namespace crv
