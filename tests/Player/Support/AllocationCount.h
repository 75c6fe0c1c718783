#pragma once

#include <cstddef>

namespace Tavrin::Player::Testing {

/// Whether allocations are counted in this build: the sanitizers of Clang bring an operator new of their own,
/// which a program cannot replace.
bool AllocationsAreCounted();

/// How often the calling thread has asked for dynamic memory so far, in the program and in every library it
/// uses. Needs AllocationCount.cpp, which replaces the global operator new.
std::size_t NbAllocations();

/// Has the calling thread's next request for dynamic memory throw `std::bad_alloc`. Without effect in a build
/// that does not count.
void FailNextAllocation();

}  // namespace Tavrin::Player::Testing
