// The way by which libcrypto gets its random octets from a generator of ours.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <span>

namespace crv {

/// Fills from the operating system (getrandom(2)). False when the system has none.
[[nodiscard]] bool systemRandom(std::span<uint8_t> out) noexcept;

/// A source of random octets for key generation and signatures. While one of those operations runs, everything random
/// that libcrypto draws on this thread (candidates for primes, private numbers, nonces, salts, blinding) comes from the
/// source; nothing draws from it otherwise. Operations without a source (checks, verification, RSA decryption) use the
/// system's randomness for what only masks their computation.
class RandomBridge {
  public:
    /// Fills the whole buffer and answers true, or answers false; may throw, and the exception then ends the operation.
    using Fill = std::function<bool(std::span<uint8_t>)>;

    explicit RandomBridge(Fill fill) : fill_(std::move(fill)) {}
    RandomBridge(const RandomBridge&) = delete;
    RandomBridge& operator=(const RandomBridge&) = delete;

    /// Asks the source on libcrypto's behalf; false when it failed, was left without a function, or threw (the
    /// exception is kept for `rethrow`). Once false, it stays so until the next scope: the operation is lost.
    [[nodiscard]] bool fill(std::span<uint8_t> out) noexcept;
    /// Asks the source for the caller, whatever became of an earlier request. Throws what the source throws, and
    /// CryptoError (noRandom) when it fails; the buffer is zeroed then.
    void draw(std::span<uint8_t> out) const;

    /// Makes a bridge the source of this thread for the time of a libcrypto call. Scopes nest.
    class Scope {
      public:
        explicit Scope(RandomBridge& bridge) noexcept;
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope();

        /// Throws what the source threw, or CryptoError (noRandom) when it failed; returns when it did neither.
        void rethrow();

      private:
        RandomBridge& bridge_;
        RandomBridge* outer_;
    };

  private:
    Fill fill_;
    bool failed_ = false;
    std::exception_ptr thrown_;
};

/// Internal to src/crypto: what the provider calls. The source of the innermost scope of this thread, else the system.
[[nodiscard]] bool fillFromCurrentSource(std::span<uint8_t> out) noexcept;

}  // namespace crv
