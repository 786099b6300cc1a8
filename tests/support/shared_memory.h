// Memory that forked processes share with the one that made it.
#pragma once

#include <sys/mman.h>

#include <memory>

namespace crv::test {

/// Zeros; given back by the last owner.
template <class T>
std::shared_ptr<T[]> sharedMemory(size_t count) {
    const size_t size = count * sizeof(T);
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return {static_cast<T*>(memory), [size](T* whole) { munmap(whole, size); }};
}

}  // namespace crv::test
