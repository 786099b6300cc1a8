#include "keystore/generators.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "crypto/crypto_error.h"
#include "crypto/kc_hash.h"
#include "crypto/random_bridge.h"
#include "misc/file_ops.h"

namespace crv {
namespace {

/// Layout of the material of a log-in behind the medium's octets; all else is zero.
constexpr size_t kMediumFlag = 32;
constexpr size_t kSystem = 33;  // 8 octets of the system's generator
constexpr size_t kSystemFlag = 41;
constexpr size_t kOtherFlag = 74;
constexpr size_t kTime = 80;  // 8 octets, seconds in the machine's order

constexpr const char* kSystemGenerator = "/dev/urandom";

void putTime(uint8_t* out) {
    const int64_t now = std::time(nullptr);
    std::memcpy(out, &now, sizeof now);
}

bool readSystemGenerator(std::span<uint8_t> out) {
    const FileDescriptor fd(fileOps().open(kSystemGenerator, O_RDONLY | O_CLOEXEC));
    return fd.valid() && readUpTo(fd.get(), out.data(), out.size(), -1) == static_cast<ssize_t>(out.size());
}

/// What getrandom(2) gives, or where that is refused the device.
bool systemOctets(std::span<uint8_t> out) {
    return systemRandom(out) || readSystemGenerator(out);
}

using Digest = SecretArray<32>;

Digest sha256(ByteView data) {
    Digest digest;
    hashInto(KcHashAlgo::Sha256, data, digest);
    return digest;
}

}  // namespace

bool LogInMaterial::complete(bool filled) {
    block_[kMediumFlag] = filled;
    const auto system = std::span(block_).subspan<kSystem, 8>();
    if (readSystemGenerator(system)) {
        block_[kSystemFlag] = 1;
    } else {
        std::ranges::fill(system, uint8_t{0});
    }
    if (!block_[kMediumFlag] && !block_[kSystemFlag] && !block_[kOtherFlag]) return false;
    // Without a stored seed these 8 octets and the time are no seed unless the 32 that follow can be had, too.
    Digest more;
    if (!block_[kMediumFlag] && !systemOctets(more)) return false;
    putTime(block_.data() + kTime);
    return true;
}

RbgSeed Generators::seed(ByteView material) {
    const Digest d0 = sha256(material);
    SecretArray<72> block;  // time 8, digest 32, system randomness 32
    putTime(block.data());
    std::ranges::copy(d0, block.begin() + 8);
    if (!systemOctets(std::span(block).subspan<40>())) std::ranges::fill(std::span(block).subspan<40>(), uint8_t{0});
    const Digest d1 = sha256(block);
    if (!hash_) hash_.emplace(cycle_);
    hash_->seed(d1);
    seededIn_ = ::getpid();
    const Digest d2 = sha256(d1);
    // Seeded alongside and never drawn from: every request is the hash generator's. The seed that follows is derived
    // from the same chain, so files open as they always did.
    if (!dss_) dss_.emplace();
    dss_->seed(d2);
    const Digest d3 = sha256(d2);
    RbgSeed next;
    std::copy_n(d3.begin(), next.size(), next.begin());
    return next;
}

void Generators::clear() noexcept {
    hash_.reset();
    dss_.reset();
}

bool Generators::refresh() {
    Digest entropy;
    if (!hash_ || !systemOctets(entropy)) return false;
    hash_->reseed(entropy);
    seededIn_ = ::getpid();
    return true;
}

Generators::Drawn Generators::fill(std::span<uint8_t> out) {
    // After a fork both processes hold the same state and would draw the same octets: the child mixes its own in.
    if (!hash_ || (seededIn_ != ::getpid() && !refresh())) return Drawn::NotSeeded;
    try {
        hash_->fill(out);
        return Drawn::Done;
    } catch (const CryptoError& error) {
        if (error.failure() != CryptoFailure::ReseedRequired) throw;
        return Drawn::ReseedRequired;
    }
}

}  // namespace crv
