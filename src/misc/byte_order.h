// Numbers in files: little-endian and big-endian, whatever the host.
#pragma once

#include <bit>
#include <concepts>
#include <cstring>
#include <type_traits>

namespace crv {

namespace detail {

template <std::integral T>
constexpr T swapped(T value, std::endian order) {
    if (order == std::endian::native) return value;
    std::make_unsigned_t<T> in = static_cast<std::make_unsigned_t<T>>(value), out = 0;
    for (size_t i = 0; i < sizeof(T); ++i, in = static_cast<decltype(in)>(in >> 8)) {
        out = static_cast<decltype(out)>(out << 8 | (in & 0xFF));
    }
    return static_cast<T>(out);
}

template <std::integral T>
T load(const void* from, std::endian order) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return swapped(value, order);
}

template <std::integral T>
void store(void* to, T value, std::endian order) {
    value = swapped(value, order);
    std::memcpy(to, &value, sizeof value);
}

}  // namespace detail

/// Reads sizeof(T) octets, least significant first.
template <std::integral T>
T loadLe(const void* from) {
    return detail::load<T>(from, std::endian::little);
}

/// Writes sizeof(T) octets, least significant first.
template <std::integral T>
void storeLe(void* to, T value) {
    detail::store(to, value, std::endian::little);
}

/// Reads sizeof(T) octets, most significant first.
template <std::integral T>
T loadBe(const void* from) {
    return detail::load<T>(from, std::endian::big);
}

/// Writes sizeof(T) octets, most significant first.
template <std::integral T>
void storeBe(void* to, T value) {
    detail::store(to, value, std::endian::big);
}

}  // namespace crv
