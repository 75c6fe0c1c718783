#include "Memory/AllocatedBytes.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::int64_t> allocatedBytes = 0;

void* Noted(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    allocatedBytes += static_cast<std::int64_t>(malloc_usable_size(memory));
    return memory;
}

void* Allocate(std::size_t size) {
    return Noted(std::malloc(std::max<std::size_t>(size, 1)));
}

void* Allocate(std::size_t size, std::align_val_t alignment) {
    const auto unit = static_cast<std::size_t>(alignment);
    return Noted(std::aligned_alloc(unit, (std::max<std::size_t>(size, 1) + unit - 1) / unit * unit));
}

void Free(void* memory) noexcept {
    if (memory != nullptr) {
        allocatedBytes -= static_cast<std::int64_t>(malloc_usable_size(memory));
        std::free(memory);
    }
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return Allocate(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return Allocate(size, alignment);
}
void operator delete(void* memory) noexcept {
    Free(memory);
}
void operator delete[](void* memory) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    Free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    Free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    Free(memory);
}

namespace Tavrin::Player::Bench {

std::int64_t AllocatedBytes() {
    return allocatedBytes;
}

}  // namespace Tavrin::Player::Bench
