#include "misc/end_signal.h"

namespace crv {

namespace {
std::atomic<int> pending{0};
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers write it");
}  // namespace

std::atomic<int>& endSignal() noexcept {
    return pending;
}

}  // namespace crv
