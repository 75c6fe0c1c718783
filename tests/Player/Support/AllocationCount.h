#pragma once

#include <cstddef>

namespace Tavrin::Player::Testing {

/// How often the calling thread has asked for dynamic memory so far, in the program and in every library it
/// uses. Needs AllocationCount.cpp, which replaces the global operator new.
std::size_t NbAllocations();

}  // namespace Tavrin::Player::Testing
