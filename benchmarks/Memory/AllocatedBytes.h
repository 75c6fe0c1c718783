#pragma once

#include <cstdint>

namespace Tavrin::Player::Bench {

/// The bytes of dynamic memory that the program and its libraries hold at this moment, as the allocator has
/// rounded them up. Needs AllocatedBytes.cpp, which replaces the global operator new.
std::int64_t AllocatedBytes();

}  // namespace Tavrin::Player::Bench
