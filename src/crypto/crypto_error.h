// The failure that every primitive raises.
#pragma once

#include <stdexcept>
#include <string>

namespace crv {

/// What went wrong, as far as a caller acts differently on it.
enum class CryptoFailure {
    badParameter,    ///< a length, count, identifier or combination that the operation does not take
    badKey,          ///< a key that cannot be parsed, is too small or too large, or is inconsistent in itself
    badData,         ///< data that does not decrypt, decode or fit (wrong password, damage, truncation)
    unsupported,     ///< an algorithm or curve that is unknown here
    noRandom,        ///< the source of random octets failed
    notSeeded,       ///< a generator was used before it was seeded
    reseedRequired,  ///< a generator has run through its cycle and must be seeded again
    cancelled,       ///< the caller's progress function asked to stop
    selfTest,        ///< a primitive did not give its known answer
    internal,        ///< libcrypto failed for a reason that is not the caller's
};

class CryptoError : public std::runtime_error {
  public:
    CryptoError(CryptoFailure failure, const std::string& text) : std::runtime_error(text), failure_(failure) {}

    [[nodiscard]] CryptoFailure failure() const noexcept { return failure_; }

  private:
    CryptoFailure failure_;
};

}  // namespace crv
