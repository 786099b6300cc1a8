// The little DER (X.690) that the encodings of keys need. Internal to src/crypto, where the object framework is out of
// reach.
#pragma once

#include <initializer_list>

#include "misc/secret.h"

namespace crv::der {

inline constexpr uint8_t kInteger = 0x02;
inline constexpr uint8_t kBitString = 0x03;
inline constexpr uint8_t kOctetString = 0x04;
inline constexpr uint8_t kNull = 0x05;
inline constexpr uint8_t kOid = 0x06;
inline constexpr uint8_t kSequence = 0x30;
inline constexpr uint8_t kContext0 = 0xA0;
inline constexpr uint8_t kContext1 = 0xA1;
inline constexpr uint8_t kContext2 = 0xA2;
inline constexpr uint8_t kContext3 = 0xA3;

/// Reads one element after the other; everything that is not as asked for is CryptoError (badKey). The views point into
/// the input.
class Reader {
  public:
    explicit Reader(ByteView input) noexcept : rest_(input) {}

    [[nodiscard]] bool empty() const noexcept { return rest_.empty(); }
    [[nodiscard]] bool at(uint8_t tag) const noexcept { return !rest_.empty() && rest_[0] == tag; }

    /// The contents of the next element, which must have the tag.
    ByteView take(uint8_t tag);
    /// The whole next element, whatever its tag.
    ByteView takeElement();
    /// The octets of a positive INTEGER without its leading zero.
    ByteView takeNumber();
    /// The octets of a BIT STRING of whole octets.
    ByteView takeBits();
    /// There must be nothing left.
    void end() const;

  private:
    struct Header {
        size_t size;
        size_t content;
    };
    [[nodiscard]] Header header() const;

    ByteView rest_;
};

/// An element whose contents are the pieces one after the other.
[[nodiscard]] SecretBytes element(uint8_t tag, std::initializer_list<ByteView> parts);
/// A non-negative INTEGER from big-endian octets (leading zeros allowed).
[[nodiscard]] SecretBytes number(ByteView octets);
/// A BIT STRING of whole octets.
[[nodiscard]] SecretBytes bits(ByteView octets);

}  // namespace crv::der
