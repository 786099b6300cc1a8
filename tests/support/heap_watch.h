// A watch over the heap: counts blocks that still hold a marked secret when they are given back. Replaces operator
// delete, so include it in exactly one source of a test program.
#pragma once

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string_view>

namespace crv::heap_watch {

inline std::string_view mark;
inline std::string_view otherMark;
inline std::atomic<bool> watching{false};
inline std::atomic<int> leaks{0};

inline bool holds(const void* block, std::string_view text) noexcept {
    return !text.empty() && memmem(block, malloc_usable_size(const_cast<void*>(block)), text.data(), text.size());
}

inline void giveBack(void* block) noexcept {
    if (block && watching && (holds(block, mark) || holds(block, otherMark))) ++leaks;
    std::free(block);
}

/// How many blocks were given back with the secret (or its second form) in them while the action ran.
inline int leaksOf(std::string_view secret, const std::function<void()>& action, std::string_view secondForm = {}) {
    mark = secret;
    otherMark = secondForm;
    leaks = 0;
    watching = true;
    action();
    watching = false;
    return leaks;
}

}  // namespace crv::heap_watch

void* operator new(size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (!block) throw std::bad_alloc();
    return block;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* block) noexcept {
    crv::heap_watch::giveBack(block);
}
void operator delete(void* block, size_t) noexcept {
    crv::heap_watch::giveBack(block);
}
