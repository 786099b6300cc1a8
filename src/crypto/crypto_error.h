// The failure that every primitive raises.
#pragma once

#include <stdexcept>
#include <string>

namespace crv {

/// What went wrong, as far as a caller acts differently on it.
enum class CryptoFailure {
    // Of the input:
    BadParameter,  ///< a length, count, identifier or combination that the operation does not take
    BadKey,        ///< a key that cannot be parsed, is too small or too large, or is inconsistent in itself
    BadData,       ///< data that does not decrypt, decode or fit (wrong password, damage, truncation)
    Unsupported,   ///< an algorithm or curve that is unknown here
    // Of what happened here:
    NoRandom,        ///< the source of random octets failed
    NotSeeded,       ///< a generator was used before it was seeded
    ReseedRequired,  ///< a generator has run through its cycle and must be seeded again
    Cancelled,       ///< the caller's progress function asked to stop
    SelfTest,        ///< a primitive did not give its known answer
    Internal,        ///< libcrypto failed for a reason that is not the caller's
};

class CryptoError : public std::runtime_error {
  public:
    CryptoError(CryptoFailure failure, const std::string& text) : std::runtime_error(text), failure_(failure) {}

    [[nodiscard]] CryptoFailure failure() const noexcept { return failure_; }

    /// Whether it says something of the key, data or algorithm. The others say that nothing could be found out: no
    /// verdict may be made of them.
    [[nodiscard]] bool isOfInput() const noexcept { return failure_ <= CryptoFailure::Unsupported; }

  private:
    CryptoFailure failure_;
};

}  // namespace crv
