#include "db_sql/no_oop.h"

#include <array>
#include <cerrno>
#include <cstdio>
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
    std::array<char, 20> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%.8lX", static_cast<unsigned long>(recNo));
    return buffer.data();
}

std::optional<int64_t> recNoDecode(std::string_view text) {
    const std::string copy(text);
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(copy.c_str(), &end, 16);
    if (end == copy.c_str() || errno != 0 || value > std::numeric_limits<int64_t>::max()) return std::nullopt;
    return static_cast<int64_t>(value);
}

}  // namespace crv
