// RIPEMD-128 (H. Dobbertin, A. Bosselaers, B. Preneel, "RIPEMD-160: a strengthened version of RIPEMD", 1996; ISO/IEC
// 10118-3 hash function 2), which libcrypto lacks.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "misc/secret.h"

namespace crv {

class Ripemd128 {
  public:
    static constexpr size_t kLength = 16;
    static constexpr size_t kBlock = 64;

    Ripemd128() noexcept = default;
    ~Ripemd128() { wipeMemory(state_.data(), sizeof state_); }

    void update(ByteView data) noexcept;
    /// Ends the hash; the object must not be used after it.
    void final(std::span<uint8_t, kLength> digest) noexcept;

  private:
    void compress(const uint8_t* block) noexcept;

    std::array<uint32_t, 4> state_ = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    uint64_t length_ = 0;  // octets taken in so far
    SecretArray<kBlock> buffer_;
};

}  // namespace crv
