// The two random generators of a key store, how they are seeded, and the material that they are seeded from.
#pragma once

#include <sys/types.h>

#include <optional>
#include <span>

#include "crypto/kc_rbg.h"
#include "keystore/key_store_contents.h"
#include "misc/bytes.h"
#include "misc/secret.h"

namespace crv {

/// What a log-in seeds the generators from: octets that the medium gives, octets of the system, the time.
class LogInMaterial {
  public:
    /// Where the medium's octets go; the rest stays zero.
    [[nodiscard]] std::span<uint8_t, 32> ofMedium() { return std::span(block_).first<32>(); }
    /// Adds the rest; `filled` tells whether the medium gave anything. False when neither it nor the system, of whose
    /// randomness the generators take 32 octets more, gives enough: then there is no seed.
    [[nodiscard]] bool complete(bool filled);
    [[nodiscard]] ByteView octets() const { return block_; }

  private:
    SecretArray<88> block_;
};

/// Seeded once and then good for drawing; what they hold is wiped when they are cleared or end.
class Generators {
  public:
    enum class Drawn { Done, NotSeeded, ReseedRequired };

    /// `cycle`: steps of the hash generator before it is to be seeded anew.
    explicit Generators(uint64_t cycle) : cycle_(cycle) {}

    /// Seeds both from material of any length; the answer is the seed that the next log-in starts from. CryptoError.
    [[nodiscard]] RbgSeed seed(ByteView material);
    /// Mixes 32 octets of the system in, as before anything is drawn that is to last: a copied machine holds the same
    /// state as its original. False when the system gives none, or before the first seed.
    [[nodiscard]] bool refresh();
    [[nodiscard]] bool seeded() const { return hash_.has_value(); }
    void clear() noexcept;

    /// Fills the buffer from the hash generator; otherwise leaves it. NotSeeded also when a process that was forked off
    /// gets no randomness of its own. CryptoError.
    [[nodiscard]] Drawn fill(std::span<uint8_t> out);

  private:
    uint64_t cycle_;
    std::optional<KcRbgHashIso18031> hash_;
    pid_t seededIn_ = 0;  // the process whose randomness went into it
    std::optional<KcRbgDss31> dss_;
};

}  // namespace crv
