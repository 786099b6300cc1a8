// Deterministic random bit generators: the hash generator of ISO/IEC 18031 (NIST SP 800-90A Hash_DRBG) with SHA-256,
// and the two generators of FIPS 186-2 appendix 3.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "misc/secret.h"

namespace crv {

/// Seed lengths that a generator takes: `minimum`, `minimum + step`, ... up to `maximum` octets.
struct KcRbgSeedLengths {
    size_t minimum;
    size_t maximum;
    size_t step;

    [[nodiscard]] bool allows(size_t length) const noexcept {
        return length >= minimum && length <= maximum && (length - minimum) % step == 0;
    }
};

/// A generator. Not seeded at first; its state is wiped when it ends. Not for use from two threads at once.
class KcRbg {
  public:
    virtual ~KcRbg() = default;
    KcRbg(const KcRbg&) = delete;
    KcRbg& operator=(const KcRbg&) = delete;

    [[nodiscard]] virtual const char* name() const noexcept = 0;
    [[nodiscard]] virtual KcRbgSeedLengths seedLengths() const noexcept = 0;

    /// Starts the generator from the seed alone, forgetting any earlier state. A length that is not allowed is
    /// CryptoError (badParameter) and changes nothing.
    void seed(ByteView material);

    /// Fills the buffer. CryptoError (notSeeded) before the first seed; CryptoError (reseedRequired) when the buffer
    /// would run past the end of the generator's cycle: nothing is given out then, and seeding makes it usable again.
    void fill(std::span<uint8_t> out);

    [[nodiscard]] bool seeded() const noexcept { return seeded_; }

  protected:
    /// The cycle: how many steps (calls of `step`) one seed is good for; `stepLength` is the most octets of one step.
    KcRbg(uint64_t cycle, size_t stepLength) noexcept : cycle_(cycle), stepLength_(stepLength) {}

    virtual void start(ByteView material) = 0;
    virtual void step(std::span<uint8_t> out) = 0;
    void restartCycle() noexcept { used_ = 0; }

  private:
    uint64_t cycle_;
    size_t stepLength_;
    uint64_t used_ = 0;
    bool seeded_ = false;
};

/// Hash_DRBG with SHA-256 (SP 800-90A 10.1.1). The seed is entropy input, nonce and personalisation in one. A step
/// gives at most 65536 octets; a cycle is 2^48 steps.
class KcRbgHashIso18031 final : public KcRbg {
  public:
    static constexpr uint64_t kCycle = uint64_t{1} << 48;

    explicit KcRbgHashIso18031(uint64_t cycle = kCycle) noexcept : KcRbg(cycle, 65536) {}

    [[nodiscard]] const char* name() const noexcept override { return "HASH-DRBG-18031"; }
    [[nodiscard]] KcRbgSeedLengths seedLengths() const noexcept override { return {16, size_t{1} << 20, 1}; }

    /// Mixes fresh entropy into the state and starts the cycle anew (SP 800-90A 10.1.1.3); errors as `seed` and `fill`.
    void reseed(ByteView entropy);

  private:
    static constexpr size_t kState = 55;  // seedlen: 440 bits

    void start(ByteView material) override;
    void step(std::span<uint8_t> out) override;
    void derive(std::initializer_list<ByteView> parts);

    SecretArray<kState> v_;
    SecretArray<kState> c_;
    uint64_t counter_ = 0;
};

/// The generators of FIPS 186-2 appendix 3 with the SHA-1 function G, for general use: no optional input and no
/// reduction modulo q (change notice 1). The state is as long as the seed, b = 160 to 512 bits.
class KcRbgDss : public KcRbg {
  public:
    static constexpr uint64_t kCycle = uint64_t{1} << 48;

    [[nodiscard]] KcRbgSeedLengths seedLengths() const noexcept override { return {20, 64, 1}; }

  protected:
    KcRbgDss(std::array<uint32_t, 5> t, uint64_t cycle) noexcept : KcRbg(cycle, 20), t_(t) {}

  private:
    void start(ByteView material) override;
    void step(std::span<uint8_t> out) override;

    std::array<uint32_t, 5> t_;
    SecretBytes key_;  // XKEY or KKEY, big-endian
};

/// Appendix 3.1 (private keys).
class KcRbgDss31 final : public KcRbgDss {
  public:
    explicit KcRbgDss31(uint64_t cycle = kCycle) noexcept;
    [[nodiscard]] const char* name() const noexcept override { return "DSS31"; }
};

/// Appendix 3.2 (per-message numbers): differs in the initial value of G.
class KcRbgDss32 final : public KcRbgDss {
  public:
    explicit KcRbgDss32(uint64_t cycle = kCycle) noexcept;
    [[nodiscard]] const char* name() const noexcept override { return "DSS32"; }
};

}  // namespace crv
