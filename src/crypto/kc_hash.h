// Hash functions.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "misc/bytes.h"

struct evp_md_st;
struct evp_md_ctx_st;

namespace crv {

class Ripemd128;

/// Hash selectors. The numbers are kept in configuration records; 9 was never given out.
enum class KcHashAlgo : uint8_t {
    None = 0,
    Sha1 = 1,
    Sha224 = 2,
    Sha256 = 3,
    Sha384 = 4,
    Sha512 = 5,
    Ripemd128 = 6,
    Ripemd160 = 7,
    Md5 = 8,
    Sha3224 = 10,
    Sha3256 = 11,
    Sha3384 = 12,
    Sha3512 = 13,
};

/// Length of the longest digest.
inline constexpr size_t kMaxHashLength = 64;

/// Every selector that names a hash, in numeric order.
inline constexpr std::array kHashAlgos = {
    KcHashAlgo::Sha1,    KcHashAlgo::Sha224,    KcHashAlgo::Sha256,    KcHashAlgo::Sha384,
    KcHashAlgo::Sha512,  KcHashAlgo::Ripemd128, KcHashAlgo::Ripemd160, KcHashAlgo::Md5,
    KcHashAlgo::Sha3224, KcHashAlgo::Sha3256,   KcHashAlgo::Sha3384,   KcHashAlgo::Sha3512,
};

/// Digest length in octets; 0 for `none` and for a number that names no hash.
[[nodiscard]] size_t hashLength(KcHashAlgo algo) noexcept;
/// Length of the blocks that the hash works in (what HMAC and the PKCS#12 derivation call v); 0 as above.
[[nodiscard]] size_t hashBlockLength(KcHashAlgo algo) noexcept;
/// Whether the number names a hash.
[[nodiscard]] inline bool isHash(KcHashAlgo algo) noexcept {
    return hashLength(algo) != 0;
}

/// A running hash. Moves, does not copy; its state is wiped when it ends. Throws CryptoError (badParameter) for a
/// selector that names no hash.
class KcHash {
  public:
    explicit KcHash(KcHashAlgo algo);
    KcHash(KcHash&&) noexcept;
    KcHash& operator=(KcHash&&) noexcept;
    ~KcHash();

    [[nodiscard]] KcHashAlgo algo() const noexcept { return algo_; }
    [[nodiscard]] size_t length() const noexcept { return hashLength(algo_); }

    void update(ByteView data);
    void update(const void* data, size_t length) { update({static_cast<const uint8_t*>(data), length}); }

    /// Ends the hash and starts it anew, ready for the next message. The output must be exactly `length()` octets, else
    /// CryptoError (badParameter).
    void final(std::span<uint8_t> digest);
    [[nodiscard]] Bytes final();

  private:
    struct Free {
        void operator()(evp_md_ctx_st* ctx) const noexcept;
    };

    void start();

    KcHashAlgo algo_;
    std::unique_ptr<evp_md_ctx_st, Free> ctx_;
    std::unique_ptr<Ripemd128> own_;
};

/// Digest of one message.
[[nodiscard]] Bytes hashOf(KcHashAlgo algo, ByteView data);
/// The same into a buffer of exactly the digest's length.
void hashInto(KcHashAlgo algo, ByteView data, std::span<uint8_t> digest);

/// Internal to src/crypto: libcrypto's name for the hash and its fetched method (null for RIPEMD-128).
[[nodiscard]] const char* libcryptoHashName(KcHashAlgo algo) noexcept;
[[nodiscard]] const evp_md_st* libcryptoHash(KcHashAlgo algo);

}  // namespace crv
