// Text forms of digests and record numbers used as keys of the tables.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "misc/bytes.h"

namespace crv {

/// Each octet becomes two characters: the high and the low half, each plus 0x30, so 10 to 15 are ":;<=>?". Writes
/// exactly 2 * digestLen characters and no terminator. A shorter buffer fails an assertion.
void codeDigest(const uint8_t* digest, size_t digestLen, char* dst, size_t dstLen);
std::string codeDigest(ByteView digest);

/// A record number as a key: "%.8lX".
std::string recNoEncode(int64_t recNo);
/// Reads "%lx"; nothing for a text that is no hexadecimal number or beyond 63 bits.
std::optional<int64_t> recNoDecode(std::string_view text);

}  // namespace crv
