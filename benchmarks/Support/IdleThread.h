#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <string>
#include <thread>

namespace Tavrin::Player::Bench {

/// As the kernel numbers threads; 0 names none.
using ThreadId = std::int64_t;

inline ThreadId ThisThread() {
    return syscall(SYS_gettid);
}

/// Whether the kernel has the thread down as sleeping: what a wake-up is measured from.
inline bool IsAsleep(ThreadId thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    // The state stands after the name, which is in parentheses and may hold any character.
    const auto name = line.rfind(')');
    return name != std::string::npos && line.compare(name + 1, 2, " S") == 0;
}

/// Returns once the thread that `thread` names sleeps; it is named as soon as the thread has run.
inline void WaitUntilAsleep(const std::atomic<ThreadId>& thread) {
    while (thread.load() == 0 || !IsAsleep(thread.load())) {
        std::this_thread::yield();
    }
}

}  // namespace Tavrin::Player::Bench
