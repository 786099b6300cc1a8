#include "api/pin_cache.h"

#include <algorithm>

#include "misc/exceptions.h"

namespace crv {
namespace {

constexpr std::array kIds = {1L, 2L, 8L, 16L};

}  // namespace

size_t PinCache::index(long id) {
    VTEST(isSlot(id), "src/api/pin_cache");
    return static_cast<size_t>(std::ranges::find(kIds, id) - kIds.begin());
}

void PinCache::store(long id, const SecretText& pin) {
    slots_[index(id)] = {pin, true, std::time(nullptr)};
}

void PinCache::clean(long mask) {
    for (size_t i = 0; i < kIds.size(); ++i) {
        if (!(mask & kIds[i])) continue;
        SecretText zeros;
        for (size_t n = slots_[i].pin.size(); n > 0; --n) zeros.append(std::string_view("\0", 1));
        slots_[i].pin = std::move(zeros);
        slots_[i].stored = 0;
    }
}

void PinCache::removeAll() {
    slots_.fill({});
}

}  // namespace crv
