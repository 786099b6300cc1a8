// Seeding and use of the random generators.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "crypto/crypto_error.h"
#include "crypto/kc_hash.h"
#include "keystore/key_manager_state.h"
#include "misc/file_ops.h"

namespace crv {
namespace {

/// Layout of the seed material of a log-in; all else is zero.
namespace material {
constexpr size_t kStored = 0;  // 32 octets: the stored seed, or octets of the token
constexpr size_t kStoredFlag = 32;
constexpr size_t kSystem = 33;  // 8 octets of the system's generator
constexpr size_t kSystemFlag = 41;
constexpr size_t kOtherFlag = 74;
constexpr size_t kTime = 80;  // 8 octets, seconds in the machine's order
constexpr size_t kLength = 88;
}  // namespace material

constexpr const char* kSystemGenerator = "/dev/urandom";

void putTime(uint8_t* out) {
    const int64_t now = std::time(nullptr);
    std::memcpy(out, &now, sizeof now);
}

bool readSystemGenerator(std::span<uint8_t> out) {
    const FileDescriptor fd(fileOps().open(kSystemGenerator, O_RDONLY | O_CLOEXEC));
    return fd.valid() && readUpTo(fd.get(), out.data(), out.size(), -1) == static_cast<ssize_t>(out.size());
}

using Digest = SecretArray<32>;

Digest sha256(ByteView data) {
    Digest digest;
    hashInto(KcHashAlgo::Sha256, data, digest);
    return digest;
}

}  // namespace

KeyManagerResult KeyManager::initRBGFromTheSeed() {
    if (media().randomSource() == RandomSource::Device) {
        generatorReady_ = true;
        return kKmOk;
    }
    SecretArray<material::kLength> block;
    bool filled = false;
    const auto stored = std::span(block).subspan<material::kStored, 32>();
    if (const KeyManagerResult result = media().gatherSeed(contents_.seed, stored, filled); result != kKmOk)
        return result;
    block[material::kStoredFlag] = filled;
    const auto system = std::span(block).subspan<material::kSystem, 8>();
    if (readSystemGenerator(system)) {
        block[material::kSystemFlag] = 1;
    } else {
        std::ranges::fill(system, uint8_t{0});
    }
    if (!block[material::kStoredFlag] && !block[material::kSystemFlag] && !block[material::kOtherFlag])
        return kKmNoSeed;
    putTime(block.data() + material::kTime);
    return rbgInit(block);
}

KeyManagerResult KeyManager::rbgInit(ByteView seed) {
    if (media().randomSource() == RandomSource::Device) {
        generatorReady_ = true;
        return kKmOk;
    }
    const Digest d0 = sha256(seed);
    SecretArray<72> block;  // time 8, digest 32, system randomness 32
    putTime(block.data());
    std::ranges::copy(d0, block.begin() + 8);
    if (!systemRandom(std::span(block).subspan<40>())) std::ranges::fill(std::span(block).subspan<40>(), uint8_t{0});
    const Digest d1 = sha256(block);
    if (!hashRbg_) hashRbg_.emplace(generatorCycle_);
    hashRbg_->seed(d1);
    seededIn_ = ::getpid();
    const Digest d2 = sha256(d1);
    if (!dssRbg_) dssRbg_.emplace();
    dssRbg_->seed(d2);
    generatorReady_ = true;
    const Digest d3 = sha256(d2);
    std::copy_n(d3.begin(), contents_.seed.emplace().size(), contents_.seed->begin());
    return kKmOk;
}

/// After a fork both processes hold the same state and would draw the same octets: the child mixes its own in.
bool KeyManager::mixForThisProcess() {
    Digest entropy;
    if (!systemRandom(entropy)) return false;
    hashRbg_->reseed(entropy);
    seededIn_ = ::getpid();
    return true;
}

KeyManagerResult KeyManager::rbgFill(std::span<uint8_t> out) {
    if (!generatorReady_) return kKmNoSeed;
    const RandomSource source = media().randomSource();
    if (source == RandomSource::Device) return media().deviceRandom(out);
    if (source == RandomSource::Nobody) return kKmOk;
    if (seededIn_ != ::getpid() && !mixForThisProcess()) return kKmNoSeed;
    for (bool reseeded = false;; reseeded = true) {
        try {
            hashRbg_->fill(out);
            return kKmOk;
        } catch (const CryptoError& error) {
            if (reseeded || error.failure() != CryptoFailure::ReseedRequired) throw;
        }
        if (const KeyManagerResult result = initRBGFromTheSeed(); result != kKmOk) return result;
    }
}

}  // namespace crv
