#include "context/pin_cache.h"

#include <algorithm>

#include "misc/exceptions.h"

namespace crv {
namespace {

constexpr std::array kSlots = {PinSlot::SigningToken, PinSlot::DecryptionToken, PinSlot::Roots, PinSlot::SigningKey};

}  // namespace

PinSlot PinCache::slotOf(long id) {
    VTEST(isSlot(id), "src/api/pin_cache");
    return static_cast<PinSlot>(id);
}

size_t PinCache::index(PinSlot slot) {
    return static_cast<size_t>(std::ranges::find(kSlots, slot) - kSlots.begin());
}

void PinCache::store(PinSlot slot, const SecretText& pin) {
    slots_[index(slot)] = {pin, true, std::time(nullptr)};
}

void PinCache::clean(long mask) {
    for (size_t i = 0; i < kSlots.size(); ++i) {
        if (!(mask & static_cast<long>(kSlots[i]))) continue;
        SecretText zeros;
        for (size_t n = slots_[i].pin.size(); n > 0; --n) zeros.append(std::string_view("\0", 1));
        slots_[i].pin = std::move(zeros);
        slots_[i].stored = 0;
    }
}

bool PinCache::any() const {
    return std::ranges::any_of(slots_, &Slot::present);
}

void PinCache::removeAll() {
    slots_.fill({});
}

}  // namespace crv
