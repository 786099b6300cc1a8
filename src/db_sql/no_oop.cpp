#include "db_sql/no_oop.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <limits>

#include "misc/exceptions.h"

namespace crv {

void codeDigest(const uint8_t* digest, size_t digestLen, char* dst, size_t dstLen) {
    if (dstLen / 2 < digestLen) failAssertion("dstLen >= 2*digestLen", "src/misc/no_oop", __LINE__);
    for (size_t i = 0; i < digestLen; ++i) {
        dst[2 * i] = static_cast<char>('0' + (digest[i] >> 4));
        dst[2 * i + 1] = static_cast<char>('0' + (digest[i] & 15));
    }
}

std::string codeDigest(ByteView digest) {
    std::string text(2 * digest.size(), '\0');
    codeDigest(digest.data(), digest.size(), text.data(), text.size());
    return text;
}

std::string recNoEncode(int64_t recNo) {
    constexpr size_t kLeastDigits = 8, kBitsOfDigit = 4;
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto value = static_cast<uint64_t>(recNo);
    const auto bits = static_cast<size_t>(std::bit_width(value));
    std::string text(std::max(kLeastDigits, (bits + kBitsOfDigit - 1) / kBitsOfDigit), '0');
    uint64_t rest = value;
    for (auto to = text.rbegin(); rest != 0; ++to, rest >>= kBitsOfDigit) *to = kDigits[rest % kDigits.size()];
    return text;
}

std::optional<int64_t> recNoDecode(std::string_view text) {
    // As recNoEncode() writes it; anything else as strtoul() takes it.
    int64_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    if (error == std::errc{} && stop == text.data() + text.size() && text.front() != '-') return number;
    const std::string copy(text);
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(copy.c_str(), &end, 16);
    if (end == copy.c_str() || errno != 0 || value > std::numeric_limits<int64_t>::max()) return std::nullopt;
    return static_cast<int64_t>(value);
}

}  // namespace crv
