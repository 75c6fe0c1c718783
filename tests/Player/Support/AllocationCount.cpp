#include "Player/Support/AllocationCount.h"

#include <cstdlib>
#include <new>
#include <utility>

#if defined(__clang__)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TAVRIN_TEST_KEEPS_OPERATOR_NEW
#endif
#endif

#ifdef TAVRIN_TEST_KEEPS_OPERATOR_NEW

namespace Tavrin::Player::Testing {

bool AllocationsAreCounted() {
    return false;
}
std::size_t NbAllocations() {
    return 0;
}
void FailNextAllocation() {
}

}  // namespace Tavrin::Player::Testing

#else

namespace {

thread_local std::size_t nbAllocations = 0;
thread_local bool nextFails = false;

void* Allocate(std::size_t size) {
    ++nbAllocations;
    if (std::exchange(nextFails, false)) {
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Tavrin::Player::Testing {

bool AllocationsAreCounted() {
    return true;
}
std::size_t NbAllocations() {
    return nbAllocations;
}
void FailNextAllocation() {
    nextFails = true;
}

}  // namespace Tavrin::Player::Testing

#endif
