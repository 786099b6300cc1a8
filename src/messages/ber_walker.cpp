#include "messages/ber_walker.h"

#include <algorithm>

#include "asn/asn_object.h"
#include "corvane/crverrors.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr size_t kDeepest = GenericFile::kMaxNesting;
constexpr uint8_t kStringTag = 0x04;
constexpr size_t kLongestLength = 7;  // octets of a length: more than any file has

[[noreturn]] void failBer(const char* text) {
    throw CrvApiException(ECRV_INV_CRV_MSG, text);
}

/// Octets that a header has, as far as its first ones tell.
size_t headerSize(ByteView header) {
    if (header.size() < 2) return 2;
    return 2 + (header[1] > 0x80 ? header[1] & 0x7FU : 0U);
}

}  // namespace

void BerWalker::feed(ByteView octets) {
    while (!octets.empty()) {
        if (done()) failBer("octets stand behind the message");
        const bool body = !levels_.empty() && levels_.back().primitive;
        if (body) {
            takeBody(octets);
        } else if (!takeHeader(octets)) {
            return;
        }
        closeEnded();
    }
}

/// Takes octets up to the end of a header; false when they end before.
bool BerWalker::takeHeader(ByteView& octets) {
    while (header_.size() < headerSize(header_)) {
        if (octets.empty()) return false;
        header_.push_back(octets[0]);
        octets = octets.subspan(1);
        if (header_.size() == 2 && headerSize(header_) > 2 + kLongestLength) failBer("a length that no file has");
    }
    position_ += static_cast<int64_t>(header_.size());
    const uint8_t tag = header_[0];
    if (tag == 0 && header_[1] == 0) {
        if (levels_.empty() || levels_.back().end >= 0) failBer("an end of contents where nothing ends");
        if (levels_.back().treat == Treat::Hold) hold(header_);
        header_.clear();
        closeTop();
        return true;
    }
    if (!begun_ && tag != ASN_CONSTRUCTED_BIT + 0x10)
        throw CrvApiException(ECRV_NO_CRV_MSG, "the octets are no CMS message");
    if ((tag & ASN_NUMBER_BITS) == ASN_NUMBER_BITS) failBer("a tag that no message has");
    int64_t length = header_[1];
    if (length > 0x80) {
        length = 0;
        for (size_t i = 2; i < header_.size(); ++i) length = length << 8 | header_[i];
    } else if (length == 0x80) {
        length = -1;
    }
    open(tag, length);
    return true;
}

BerWalker::Treat BerWalker::treatInside(const Level& outer, uint8_t tag, bool primitive) {
    if (outer.treat == Treat::Octets && (tag & ~ASN_CONSTRUCTED_BIT) != kStringTag)
        failBer("a string of pieces that are none");
    if (outer.treat != Treat::Enter) return outer.treat;
    const Treat treat = visitor_.begin(levels_.size(), tag);
    if (treat == Treat::Enter && primitive) failBer("an element without elements in it");
    return treat;
}

void BerWalker::open(uint8_t tag, int64_t length) {
    const bool primitive = (tag & ASN_CONSTRUCTED_BIT) == 0;
    if (levels_.size() >= kDeepest) failBer("nested too deep");
    if (primitive && length < 0) failBer("an indefinite length without elements in it");
    const int64_t end = length < 0 ? -1 : position_ + length;
    // What is nearest around and of definite length ends last.
    const auto around = std::find_if(levels_.rbegin(), levels_.rend(), [](const Level& one) { return one.end >= 0; });
    if (around != levels_.rend() && end > around->end) failBer("an element longer than what is around it");
    const Treat treat = levels_.empty() ? visitor_.begin(0, tag) : treatInside(levels_.back(), tag, primitive);
    begun_ = true;
    if (treat == Treat::Contents && length < 0) failBer("a content of another type without a length");
    if (treat == Treat::Hold) hold(header_);
    header_.clear();
    // Nobody looks into what is held or passed on as it is, unless its end is not known.
    const bool opaque = primitive || (length >= 0 && (treat == Treat::Hold || treat == Treat::Contents));
    levels_.push_back({end, treat, opaque});
}

void BerWalker::takeBody(ByteView& octets) {
    const Level& level = levels_.back();
    const auto count = static_cast<size_t>(std::min<int64_t>(level.end - position_, std::ssize(octets)));
    position_ += static_cast<int64_t>(count);
    pass(level.treat, octets.first(count));
    octets = octets.subspan(count);
}

void BerWalker::pass(Treat treat, ByteView octets) {
    if (treat == Treat::Hold) {
        hold(octets);
    } else if (!octets.empty()) {
        visitor_.octets(octets);
    }
}

void BerWalker::hold(ByteView octets) {
    if (octets.size() > mostHeld_ - heldBefore_ - held_.size()) failBer("more beside the content than anybody needs");
    held_.insert(held_.end(), octets.begin(), octets.end());
}

void BerWalker::closeEnded() {
    while (!levels_.empty() && levels_.back().end == position_) closeTop();
    if (!levels_.empty() && levels_.back().end >= 0 && levels_.back().end < position_) failBer("lengths that differ");
}

void BerWalker::closeTop() {
    const Level level = levels_.back();
    levels_.pop_back();
    const bool outermost = levels_.empty() || levels_.back().treat == Treat::Enter;
    if (!outermost) return;
    if (level.treat == Treat::Hold) {
        heldBefore_ += held_.size();
        visitor_.whole(held_);
        held_.clear();
    } else {
        visitor_.end(levels_.size());
    }
}

}  // namespace crv
