#pragma once

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

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

/// Where threads are kept, seen from the one that wakes them.
enum class Place { SameCore, OtherCore };

/// Keeps the calling thread on one core and the others together on one, as long as it lives: where the
/// scheduler happens to put a thread changes the time of its wake-ups several times over. On a machine with
/// one core both places are the same.
class Placement {
public:
    Placement(Place place, const std::vector<ThreadId>& others) {
        sched_getaffinity(0, sizeof(before_), &before_);
        std::vector<std::size_t> cores;
        for (std::size_t core = 0; core < CPU_SETSIZE && cores.size() < 2; ++core) {
            if (CPU_ISSET(core, &before_)) {
                cores.push_back(core);
            }
        }
        Keep(0, cores.front());
        for (const ThreadId other : others) {
            Keep(other, place == Place::SameCore ? cores.front() : cores.back());
        }
    }
    Placement(const Placement&) = delete;
    Placement& operator=(const Placement&) = delete;
    ~Placement() { sched_setaffinity(0, sizeof(before_), &before_); }

private:
    static void Keep(ThreadId thread, std::size_t core) {
        cpu_set_t only;
        CPU_ZERO(&only);
        CPU_SET(core, &only);
        sched_setaffinity(static_cast<pid_t>(thread), sizeof(only), &only);
    }

    cpu_set_t before_{};
};

}  // namespace Tavrin::Player::Bench
