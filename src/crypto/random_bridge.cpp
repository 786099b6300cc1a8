#include "crypto/random_bridge.h"

#include <sys/random.h>

#include <cerrno>
#include <utility>

#include "crypto/crypto_error.h"
#include "misc/secret.h"

namespace crv {

namespace {

thread_local RandomBridge* currentBridge = nullptr;

}  // namespace

bool systemRandom(std::span<uint8_t> out) noexcept {
    while (!out.empty()) {
        const ssize_t got = getrandom(out.data(), out.size(), 0);
        if (got < 0 && errno != EINTR) return false;
        if (got > 0) out = out.subspan(static_cast<size_t>(got));
    }
    return true;
}

bool RandomBridge::fill(std::span<uint8_t> out) noexcept {
    try {
        if (!failed_ && fill_ && fill_(out)) return true;
    } catch (...) {
        thrown_ = std::current_exception();
    }
    failed_ = true;
    return false;
}

void RandomBridge::draw(std::span<uint8_t> out) const {
    try {
        if (fill_ && fill_(out)) return;
    } catch (...) {
        wipeMemory(out.data(), out.size());
        throw;
    }
    wipeMemory(out.data(), out.size());
    throw CryptoError(CryptoFailure::NoRandom, "the source of random octets failed");
}

RandomBridge::Scope::Scope(RandomBridge& bridge) noexcept
    : bridge_(bridge), outer_(std::exchange(currentBridge, &bridge)) {
    bridge_.failed_ = false;
    bridge_.thrown_ = nullptr;
}

RandomBridge::Scope::~Scope() {
    currentBridge = outer_;
}

void RandomBridge::Scope::rethrow() {
    if (bridge_.thrown_) std::rethrow_exception(std::exchange(bridge_.thrown_, nullptr));
    if (bridge_.failed_) throw CryptoError(CryptoFailure::NoRandom, "the source of random octets failed");
}

bool fillFromCurrentSource(std::span<uint8_t> out) noexcept {
    return currentBridge ? currentBridge->fill(out) : systemRandom(out);
}

}  // namespace crv
