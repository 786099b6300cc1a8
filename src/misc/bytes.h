// Octet buffers and views used by every layer.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace crv {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

/// The octets of a text, without a terminator.
inline ByteView asBytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// The same octets seen as characters.
inline std::string_view asText(ByteView octets) {
    return {reinterpret_cast<const char*>(octets.data()), octets.size()};
}

inline Bytes toBytes(ByteView octets) {
    return {octets.begin(), octets.end()};
}

}  // namespace crv
