#include "db/record_numbers.h"

#include <algorithm>

#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr int kBitsAnOctet = 7;
constexpr uint8_t kMoreFollow = 0x80;

}  // namespace

void RecordNumbers::add(int64_t number) {
    VTEST(size_ == 0 || number > last_, "src/db/record_numbers");
    if (size_ % kGroup == 0) {
        groups_.push_back({number, differences_.size()});
    } else {
        auto difference = static_cast<uint64_t>(number - last_);
        for (; difference >= kMoreFollow; difference >>= kBitsAnOctet) {
            differences_.push_back(static_cast<uint8_t>(difference) | kMoreFollow);
        }
        differences_.push_back(static_cast<uint8_t>(difference));
    }
    last_ = number;
    if (++size_ == 1) goTo(0);
}

void RecordNumbers::goTo(size_t group) {
    place_ = group * kGroup;
    number_ = groups_[group].first;
    following_ = groups_[group].differences;
}

/// To the number at the next place, which is there.
void RecordNumbers::step() {
    if (++place_ % kGroup == 0) return goTo(place_ / kGroup);
    uint64_t difference = 0;
    for (int shift = 0;; shift += kBitsAnOctet) {
        const uint8_t octet = differences_[following_++];
        difference |= static_cast<uint64_t>(octet & ~kMoreFollow) << shift;
        if ((octet & kMoreFollow) == 0) break;
    }
    number_ += static_cast<int64_t>(difference);
}

int64_t RecordNumbers::at(size_t place) {
    if (place < place_ || place / kGroup > place_ / kGroup + 1) goTo(place / kGroup);
    while (place_ < place) step();
    return number_;
}

std::optional<size_t> RecordNumbers::find(int64_t number) {
    if (size_ == 0 || number < groups_.front().first || number > last_) return std::nullopt;
    const size_t group = place_ / kGroup;
    const bool here = number >= number_ && (group + 1 == groups_.size() || number < groups_[group + 1].first);
    if (!here) {
        const auto behind = std::ranges::upper_bound(groups_, number, {}, &Group::first);
        goTo(static_cast<size_t>(behind - groups_.begin()) - 1);
    }
    while (number_ < number && place_ + 1 < size_) step();
    return number_ == number ? std::optional(place_) : std::nullopt;
}

}  // namespace crv
