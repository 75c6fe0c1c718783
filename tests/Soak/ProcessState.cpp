#include "Soak/ProcessState.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "Soak/Failure.h"

namespace Tavrin::Soak {

namespace {

std::size_t NbEntries(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

std::size_t NbThreads() {
    return NbEntries("/proc/self/task");
}

std::size_t NbThreadsOnceWarm() {
    std::thread([] {}).join();
    // What a joined thread leaves is in the system's list for a moment longer.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return NbThreads();
}

std::size_t NbDescriptors() {
    // One of them is the listing's own.
    return NbEntries("/proc/self/fd") - 1;
}

void UseOneArena() {
#ifdef __GLIBC__
    mallopt(M_ARENA_MAX, 1);
#endif
}

std::uint64_t ResidentBytes() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::uint64_t kibibytes = 0;
        if (word == "VmRSS:" && status >> kibibytes) {
            return kibibytes * 1024;
        }
    }
    throw Failure("/proc/self/status does not tell how much memory is resident");
}

}  // namespace Tavrin::Soak
