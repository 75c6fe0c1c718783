#include "Player/Support/AllocationCount.h"

#include <malloc.h>

#include <algorithm>
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
std::int64_t LiveBytes() {
    return 0;
}
void FailAllocation(std::size_t) {
}
void FailAllocationsFrom(std::size_t) {
}
bool TakeBackFailure() {
    return true;
}

}  // namespace Tavrin::Player::Testing

#else

namespace {

thread_local std::size_t nbAllocations = 0;
thread_local std::int64_t liveBytes = 0;
thread_local std::size_t nbUntilFailure = 0;  // Zero: none fails any more.
thread_local bool allFail = false;            // Once the first one has.
thread_local bool hasFailed = false;

void* Count(void* memory) {
    if (nbUntilFailure == 1) {
        nbUntilFailure = allFail ? 1 : 0;
        hasFailed = true;
        std::free(memory);
        throw std::bad_alloc();
    }
    nbUntilFailure -= nbUntilFailure > 0 ? 1 : 0;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++nbAllocations;
    liveBytes += static_cast<std::int64_t>(malloc_usable_size(memory));
    return memory;
}

void* Allocate(std::size_t size) {
    return Count(std::malloc(size == 0 ? 1 : size));
}

void* Allocate(std::size_t size, std::align_val_t alignment) {
    const auto unit = static_cast<std::size_t>(alignment);
    const std::size_t nbUnits = std::max<std::size_t>((size + unit - 1) / unit, 1);
    return Count(std::aligned_alloc(unit, nbUnits * unit));
}

void Free(void* memory) {
    liveBytes -= static_cast<std::int64_t>(malloc_usable_size(memory));
    std::free(memory);
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

namespace Tavrin::Player::Testing {

bool AllocationsAreCounted() {
    return true;
}
std::size_t NbAllocations() {
    return nbAllocations;
}
std::int64_t LiveBytes() {
    return liveBytes;
}
void FailAllocation(std::size_t number) {
    nbUntilFailure = number;
    allFail = false;
    hasFailed = false;
}
void FailAllocationsFrom(std::size_t number) {
    FailAllocation(number);
    allFail = true;
}
bool TakeBackFailure() {
    nbUntilFailure = 0;
    return !hasFailed;
}

}  // namespace Tavrin::Player::Testing

#endif
