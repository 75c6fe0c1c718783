#pragma once

#include <cstddef>
#include <cstdint>

namespace Tavrin::Player::Testing {

/// Whether allocations are counted in this build: the sanitizers of Clang bring an operator new of their own,
/// which a program cannot replace.
bool AllocationsAreCounted();

/// How often the calling thread has asked for dynamic memory so far, in the program and in every library it
/// uses. Needs AllocationCount.cpp, which replaces the global operator new.
std::size_t NbAllocations();

/// The bytes that the calling thread has been given so far, less those that it has given back; what the heap really
/// sets aside for a request, which may be more than was asked for. Says what something holds only where one
/// thread makes and lets go of all of it.
std::int64_t LiveBytes();

/// Has one of the calling thread's next requests for dynamic memory throw `std::bad_alloc`: the first one for 1. Without
/// effect in a build that does not count.
void FailAllocation(std::size_t number);
inline void FailNextAllocation() {
    FailAllocation(1);
}

/// The same for that request and all after it, until it is taken back.
void FailAllocationsFrom(std::size_t number);

/// Takes that back. Whether there was anything to take back: the request that was to fail has not come.
bool TakeBackFailure();

}  // namespace Tavrin::Player::Testing
