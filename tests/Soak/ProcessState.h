#pragma once

#include <cstddef>
#include <cstdint>

namespace Tavrin::Soak {

/// Threads of this process now.
[[nodiscard]] std::size_t NbThreads();

/// The same once a first thread has come and gone: a sanitizer has one of its own from then on.
[[nodiscard]] std::size_t NbThreadsOnceWarm();

/// Files, pipes and the like that this process has open now.
[[nodiscard]] std::size_t NbDescriptors();

/// Bytes of this process that are in memory now, after what is free has been given back to the system: what
/// the allocator keeps for later would be noise.
[[nodiscard]] std::uint64_t ResidentBytes();

/// From now on all threads take memory from one arena of the allocator. Each thread that comes may else get another of
/// several, and what those keep grows for hours although nothing is lost. To be called before the first thread.
void UseOneArena();

/// Whether memory can be judged in this build. A sanitizer keeps what was freed, and its notes on it, on purpose.
[[nodiscard]] constexpr bool ResidentMemoryTells() {
#ifdef TAVRIN_SOAK_SANITIZED
    return false;
#else
    return true;
#endif
}

}  // namespace Tavrin::Soak
