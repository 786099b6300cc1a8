#include "crypto/kc_rbg.h"

#include <algorithm>
#include <bit>

#include "crypto/crypto_error.h"
#include "crypto/kc_hash.h"

namespace crv {

namespace {

// a = (a + b + carry) mod 2^(8 * a.size()), big-endian; b is not longer than a.
void addInto(std::span<uint8_t> a, ByteView b, unsigned carry = 0) noexcept {
    for (size_t i = 1; i <= a.size(); ++i) {
        const unsigned sum = a[a.size() - i] + (i <= b.size() ? b[b.size() - i] : 0u) + carry;
        a[a.size() - i] = static_cast<uint8_t>(sum);
        carry = sum >> 8;
    }
}

uint32_t bigEndian(const uint8_t* p) noexcept {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

// The compression function of SHA-1 (FIPS 180-2 6.1.2) without padding: the function G of FIPS 186-2 appendix 3.3.
void sha1Compress(std::array<uint32_t, 5>& state, const uint8_t* block) noexcept {
    std::array<uint32_t, 80> w;
    const WipeGuard guard(w.data(), sizeof w);
    for (size_t i = 0; i < 16; ++i) w[i] = bigEndian(block + 4 * i);
    for (size_t i = 16; i < 80; ++i) w[i] = std::rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    auto [a, b, c, d, e] = state;
    for (size_t i = 0; i < 80; ++i) {
        const uint32_t f = i < 20   ? ((b & c) | (~b & d)) + 0x5A827999
                           : i < 40 ? (b ^ c ^ d) + 0x6ED9EBA1
                           : i < 60 ? ((b & c) | (b & d) | (c & d)) + 0x8F1BBCDC
                                    : (b ^ c ^ d) + 0xCA62C1D6;
        const uint32_t next = std::rotl(a, 5) + f + e + w[i];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d, state[4] + e};
}

}  // namespace

void KcRbg::seed(ByteView material) {
    if (!seedLengths().allows(material.size())) {
        throw CryptoError(CryptoFailure::BadParameter, std::string(name()) + ": seed of a length that is not allowed");
    }
    seeded_ = false;
    start(material);
    used_ = 0;
    seeded_ = true;
}

void KcRbg::fill(std::span<uint8_t> out) {
    if (!seeded_) throw CryptoError(CryptoFailure::NotSeeded, std::string(name()) + ": not seeded");
    const uint64_t steps = (out.size() + stepLength_ - 1) / stepLength_;
    if (steps > cycle_ - used_) {
        throw CryptoError(CryptoFailure::ReseedRequired, std::string(name()) + ": end of the cycle");
    }
    while (!out.empty()) {
        const auto part = out.first(std::min(out.size(), stepLength_));
        step(part);
        ++used_;
        out = out.subspan(part.size());
    }
}

// V = Hash_df(parts, 440) and C = Hash_df(0x00 || V, 440) (SP 800-90A 10.3.1): the whole first digest and the front of
// the second.
void KcRbgHashIso18031::derive(std::initializer_list<ByteView> parts) {
    const auto hashDf = [](std::initializer_list<ByteView> input, std::span<uint8_t> out) {
        KcHash hash(KcHashAlgo::Sha256);
        SecretArray<32> digest;
        for (uint8_t counter = 1; !out.empty(); ++counter) {
            const uint8_t head[] = {counter, 0, 0, kState * 8 >> 8, kState * 8 & 0xFF};
            hash.update(head);
            for (const ByteView part : input) hash.update(part);
            hash.final(digest);
            const size_t taken = std::min(out.size(), digest.size());
            std::copy_n(digest.begin(), taken, out.begin());
            out = out.subspan(taken);
        }
    };
    SecretArray<kState> v;
    hashDf(parts, v);
    v_ = v;
    constexpr uint8_t kZero[] = {0};
    hashDf({kZero, v_}, c_);
    counter_ = 1;
}

void KcRbgHashIso18031::start(ByteView material) {
    derive({material});
}

void KcRbgHashIso18031::reseed(ByteView entropy) {
    if (!seeded()) return seed(entropy);
    if (!seedLengths().allows(entropy.size())) {
        throw CryptoError(CryptoFailure::BadParameter, "HASH-DRBG-18031: seed of a length that is not allowed");
    }
    constexpr uint8_t kOne[] = {1};
    derive({kOne, v_, entropy});
    restartCycle();
}

// SP 800-90A 10.1.1.4 without additional input.
void KcRbgHashIso18031::step(std::span<uint8_t> out) {
    KcHash hash(KcHashAlgo::Sha256);
    SecretArray<32> digest;
    SecretArray<kState> data = v_;
    while (!out.empty()) {
        hash.update(data);
        hash.final(digest);
        const size_t taken = std::min(out.size(), digest.size());
        std::copy_n(digest.begin(), taken, out.begin());
        out = out.subspan(taken);
        addInto(data, {}, 1);
    }
    constexpr uint8_t kThree[] = {3};
    hash.update(kThree);
    hash.update(v_);
    hash.final(digest);
    std::array<uint8_t, 8> counter;
    for (size_t i = 0; i < 8; ++i) counter[i] = static_cast<uint8_t>(counter_ >> (56 - 8 * i));
    for (const ByteView number : {ByteView(digest), ByteView(c_), ByteView(counter)}) addInto(v_, number);
    ++counter_;
}

void KcRbgDss::start(ByteView material) {
    SecretBytes key(material.begin(), material.end());
    key_.swap(key);
}

// FIPS 186-2 appendix 3.1 step 3: x = G(t, XKEY), XKEY = (1 + XKEY + x) mod 2^b.
void KcRbgDss::step(std::span<uint8_t> out) {
    SecretArray<64> block;
    std::copy(key_.begin(), key_.end(), block.begin());
    std::array<uint32_t, 5> state = t_;
    const WipeGuard guard(state.data(), sizeof state);
    sha1Compress(state, block.data());
    SecretArray<20> x;
    for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<uint8_t>(state[i / 4] >> (24 - 8 * (i % 4)));
    addInto(key_, x, 1);
    std::copy_n(x.begin(), out.size(), out.begin());
}

KcRbgDss31::KcRbgDss31(uint64_t cycle) noexcept
    : KcRbgDss({0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0}, cycle) {}

KcRbgDss32::KcRbgDss32(uint64_t cycle) noexcept
    : KcRbgDss({0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0, 0x67452301}, cycle) {}

}  // namespace crv
