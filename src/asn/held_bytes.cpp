#include "asn/held_bytes.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "misc/secret.h"

namespace crv {

HeldBytes& HeldBytes::operator=(const HeldBytes& other) {
    if (this != &other) assign(other.view());
    return *this;
}

HeldBytes& HeldBytes::operator=(HeldBytes&& other) noexcept {
    if (this == &other) return *this;
    clear();
    view_ = other.view_;
    own_ = std::move(other.own_);
    other.view_ = {};
    return *this;
}

namespace {

/// Single octets are not worth an allocation: small numbers, booleans and empty bit strings refer to this table.
constexpr auto kSingleOctets = [] {
    std::array<uint8_t, 256> octets{};
    for (size_t i = 0; i < octets.size(); ++i) octets[i] = static_cast<uint8_t>(i);
    return octets;
}();

}  // namespace

void HeldBytes::assign(ByteView octets) {
    if (octets.size() == 1) return refer(ByteView(kSingleOctets).subspan(octets[0], 1));
    std::unique_ptr<uint8_t[]> copy;
    if (!octets.empty()) {
        copy = std::make_unique_for_overwrite<uint8_t[]>(octets.size());
        std::memcpy(copy.get(), octets.data(), octets.size());
    }
    clear();
    own_ = std::move(copy);
    view_ = {own_.get(), octets.size()};
}

void HeldBytes::refer(ByteView octets) {
    clear();
    view_ = octets;
}

void HeldBytes::shorten(size_t count) {
    if (own_) wipeMemory(own_.get() + count, view_.size() - count);
    view_ = view_.first(count);
}

void HeldBytes::clear() {
    if (own_) wipeMemory(own_.get(), view_.size());
    own_.reset();
    view_ = {};
}

long HeldBytes::load(GenericFile& in, long count) {
    constexpr size_t kFirstPiece = 64 * 1024;
    const auto wanted = static_cast<size_t>(std::max(count, 0L));
    if (in.window().size() >= wanted) {
        assign(in.window().first(wanted));
        in.consume(wanted);
        return static_cast<long>(wanted);
    }
    clear();
    for (size_t capacity = std::min(wanted, kFirstPiece);; capacity = std::min(wanted, 2 * capacity)) {
        auto larger = std::make_unique_for_overwrite<uint8_t[]>(capacity);
        const size_t held = view_.size();
        if (held > 0) std::memcpy(larger.get(), view_.data(), held);
        clear();
        own_ = std::move(larger);
        const long got = in.read(own_.get() + held, static_cast<long>(capacity - held));
        // After a failure nobody knows how much came: all of it is to be wiped.
        view_ = {own_.get(), got < 0 ? capacity : held + static_cast<size_t>(got)};
        if (got < 0) return clear(), -1;
        if (view_.size() < capacity || capacity == wanted) return static_cast<long>(view_.size());
    }
}

}  // namespace crv
