// Containers and guards for secret octets: passwords, PINs, seeds, keys, derived digests. Their memory is wiped when it
// is given back, whatever the reason: end of scope, growth (the old block), assignment, an exception on the way.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "misc/bytes.h"

namespace crv {

/// Overwrites memory with zeros in a way that the optimiser keeps. A null pointer with length 0 is allowed.
void wipeMemory(void* memory, size_t length) noexcept;

/// Allocator that wipes every block before it goes back to the heap.
template <class T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() noexcept = default;
    template <class U>
    WipingAllocator(const WipingAllocator<U>&) noexcept {}

    [[nodiscard]] T* allocate(size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* block, size_t count) noexcept {
        wipeMemory(block, count * sizeof(T));
        std::allocator<T>().deallocate(block, count);
    }
    template <class U>
    bool operator==(const WipingAllocator<U>&) const noexcept {
        return true;
    }
};

/// Secret octets: a vector whose blocks are wiped. Shrinking leaves the tail in the block until that is given back or
/// `wipe` is called; converts to ByteView like any range.
using SecretBytes = std::vector<uint8_t, WipingAllocator<uint8_t>>;

/// Wipes the contents at once and empties the container.
void wipe(SecretBytes& secret) noexcept;

inline SecretBytes toSecret(ByteView octets) {
    return {octets.begin(), octets.end()};
}

/// A secret text in UTF-8. Unlike a string it never keeps octets inside the object itself, so a moved-from or destroyed
/// text leaves nothing behind. A NUL follows the octets for C interfaces; the text itself may be empty.
class SecretText {
  public:
    SecretText() = default;
    explicit SecretText(std::string_view text);
    SecretText(const SecretText&) = default;
    SecretText(SecretText&& other) noexcept : chars_(std::move(other.chars_)) { other.chars_.clear(); }
    SecretText& operator=(SecretText other) noexcept;

    [[nodiscard]] size_t size() const noexcept { return chars_.empty() ? 0 : chars_.size() - 1; }
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    [[nodiscard]] const char* c_str() const noexcept;
    [[nodiscard]] std::string_view view() const noexcept { return {c_str(), size()}; }
    [[nodiscard]] ByteView bytes() const noexcept { return asBytes(view()); }

    void append(std::string_view more);
    /// Drops everything from `newSize` on and wipes it; a size at or beyond the end does nothing.
    void truncate(size_t newSize) noexcept;
    /// Wipes and empties.
    void clear() noexcept;

    /// Compares in a time that depends on the sizes only.
    friend bool operator==(const SecretText& a, const SecretText& b) noexcept;

  private:
    SecretBytes chars_;  // the text and a NUL, or nothing at all
};

/// A secret of fixed length that lives in the object itself (on the stack, as a member) and is wiped with it.
template <size_t N>
class SecretArray : public std::array<uint8_t, N> {
  public:
    SecretArray() noexcept : std::array<uint8_t, N>{} {}
    SecretArray(const SecretArray&) = default;
    SecretArray& operator=(const SecretArray&) = default;
    ~SecretArray() { wipeMemory(this->data(), N); }
};

/// Wipes memory that somebody else owns when the guard goes out of scope.
class WipeGuard {
  public:
    WipeGuard(void* memory, size_t length) noexcept : memory_(memory), length_(length) {}
    explicit WipeGuard(std::span<uint8_t> octets) noexcept : WipeGuard(octets.data(), octets.size()) {}
    WipeGuard(const WipeGuard&) = delete;
    WipeGuard& operator=(const WipeGuard&) = delete;
    ~WipeGuard() { wipeMemory(memory_, length_); }

  private:
    void* memory_;
    size_t length_;
};

/// Equality in a time that depends on the lengths only; different lengths are unequal.
[[nodiscard]] bool equalConstantTime(ByteView a, ByteView b) noexcept;

}  // namespace crv
