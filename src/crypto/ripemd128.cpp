#include "crypto/ripemd128.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace crv {

namespace {

struct Line {
    uint8_t word[64];
    uint8_t shift[64];
    uint32_t constant[4];
};

constexpr Line kLeft = {
    {0, 1,  2,  3, 4, 5,  6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 7, 4, 13, 1,  10, 6, 15, 3, 12, 0, 9, 5,  2,  14, 11, 8,
     3, 10, 14, 4, 9, 15, 8, 1, 2, 7, 0,  6,  13, 11, 5,  12, 1, 9, 11, 10, 0,  8, 12, 4, 13, 3, 7, 15, 14, 5,  6,  2},
    {11, 14, 15, 12, 5,  8,  7,  9,  11, 13, 14, 15, 6, 7,  9,  8, 7,  6,  8,  13, 11, 9,
     7,  15, 7,  12, 15, 9,  11, 7,  13, 12, 11, 13, 6, 7,  14, 9, 13, 15, 14, 8,  13, 6,
     5,  12, 7,  5,  11, 12, 14, 15, 14, 15, 9,  8,  9, 14, 5,  6, 8,  6,  5,  12},
    {0, 0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC},
};
constexpr Line kRight = {
    {5,  14, 7, 0, 9, 2,  11, 4, 13, 6, 15, 8, 1,  10, 3, 12, 6, 11, 3, 7, 0, 13, 5,  10, 14, 15, 8, 12, 4, 9, 1,  2,
     15, 5,  1, 3, 7, 14, 6,  9, 11, 8, 12, 2, 10, 0,  4, 13, 8, 6,  4, 1, 3, 11, 15, 0,  5,  12, 2, 13, 9, 7, 10, 14},
    {8,  9,  9, 11, 13, 15, 15, 5,  7,  7,  8, 11, 14, 14, 12, 6, 9,  13, 15, 7,  12, 8,
     9,  11, 7, 7,  12, 7,  6,  15, 13, 11, 9, 7,  15, 11, 8,  6, 6,  14, 12, 13, 5,  14,
     13, 13, 7, 5,  15, 5,  8,  11, 14, 14, 6, 14, 6,  9,  12, 9, 12, 5,  15, 8},
    {0x50A28BE6, 0x5C4DD124, 0x6D703EF3, 0},
};

uint32_t mix(int round, uint32_t x, uint32_t y, uint32_t z) noexcept {
    if (round == 0) return x ^ y ^ z;
    if (round == 1) return (x & y) | (~x & z);
    if (round == 2) return (x | ~y) ^ z;
    return (x & z) | (y & ~z);
}

// One of the two lines; the right one takes the round functions in reverse order.
void runLine(const Line& line, bool reversed, const uint32_t* words, std::array<uint32_t, 4>& v) noexcept {
    for (int j = 0; j < 64; ++j) {
        const int round = j / 16;
        const uint32_t sum =
            v[0] + mix(reversed ? 3 - round : round, v[1], v[2], v[3]) + words[line.word[j]] + line.constant[round];
        v = {v[3], std::rotl(sum, line.shift[j]), v[1], v[2]};
    }
}

uint32_t littleEndian(const uint8_t* p) noexcept {
    return p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

void putLittleEndian(uint64_t value, uint8_t* out, int count) noexcept {
    for (int i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace

void Ripemd128::compress(const uint8_t* block) noexcept {
    std::array<uint32_t, 16> words;
    const WipeGuard guard(words.data(), sizeof words);
    for (size_t i = 0; i < words.size(); ++i) words[i] = littleEndian(block + 4 * i);
    std::array<uint32_t, 4> left = state_;
    std::array<uint32_t, 4> right = state_;
    runLine(kLeft, false, words.data(), left);
    runLine(kRight, true, words.data(), right);
    state_ = {state_[1] + left[2] + right[3], state_[2] + left[3] + right[0], state_[3] + left[0] + right[1],
              state_[0] + left[1] + right[2]};
}

void Ripemd128::update(ByteView data) noexcept {
    while (!data.empty()) {
        const size_t held = length_ % kBlock;
        if (held == 0 && data.size() >= kBlock) {
            compress(data.data());
            length_ += kBlock;
            data = data.subspan(kBlock);
            continue;
        }
        const size_t taken = std::min(kBlock - held, data.size());
        std::copy_n(data.begin(), taken, buffer_.begin() + held);
        length_ += taken;
        data = data.subspan(taken);
        if (length_ % kBlock == 0) compress(buffer_.data());
    }
}

void Ripemd128::final(std::span<uint8_t, kLength> digest) noexcept {
    const uint64_t bits = length_ * 8;
    constexpr std::array<uint8_t, kBlock> kPadding = {0x80};
    update(ByteView(kPadding).first(1 + (kBlock + 55 - length_ % kBlock) % kBlock));
    std::array<uint8_t, 8> lengthField;
    putLittleEndian(bits, lengthField.data(), 8);
    update(lengthField);
    for (size_t i = 0; i < state_.size(); ++i) putLittleEndian(state_[i], digest.data() + 4 * i, 4);
}

}  // namespace crv
