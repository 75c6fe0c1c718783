#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Support/Cases.h"
#include "Support/IdleThread.h"
#include "Support/Latencies.h"
#include "Support/Scene.h"
#include "Support/Suites.h"

/// What the machine allows at best: the figures that the engine's own are to be read against.
namespace Tavrin::Player::Bench {

namespace {

constexpr std::size_t kLineBytes = 64;

struct alignas(kLineBytes) Line {
    const Line* next_ = nullptr;
};

/// Lines of memory, each of which says where the next one to read is: all of them in one scattered circle, so
/// that no read can begin before the one before it has ended, or be foreseen.
std::vector<Line> ScatteredCircle(std::size_t bytes) {
    std::vector<Line> lines(bytes / kLineBytes);
    const auto order = Shuffled(0, static_cast<std::int64_t>(lines.size()));
    for (std::size_t i = 0; i < order.size(); ++i) {
        const std::int64_t following = order[(i + 1) % order.size()];
        lines[static_cast<std::size_t>(order[i])].next_ = &lines[static_cast<std::size_t>(following)];
    }
    return lines;
}

template <std::size_t Bytes>
void ReadMemory(benchmark::State& state) {
    static const std::vector<Line> lines = ScatteredCircle(Bytes);
    const Line* line = lines.data();
    for (auto _ : state) {
        line = line->next_;
        benchmark::DoNotOptimize(line);
    }
}

void LockAndUnlock(benchmark::State& state) {
    std::mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        benchmark::ClobberMemory();
        mutex.unlock();
    }
}

void ReadClock(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::chrono::steady_clock::now());
    }
}

/// A thread that sleeps on a futex and notes when it has woken.
class FutexSleeper {
public:
    FutexSleeper() : thread_([this] { Run(); }) {}
    FutexSleeper(const FutexSleeper&) = delete;
    FutexSleeper& operator=(const FutexSleeper&) = delete;
    ~FutexSleeper() {
        stop_ = true;
        Wake(generation_.load() + 1);
        thread_.join();
    }

    /// From the wake to the thread's first instruction, in nanoseconds.
    std::int64_t MeasureWake() {
        WaitUntilAsleep(id_);
        const std::uint32_t next = generation_.load() + 1;
        const std::int64_t pushed = SteadyNanoseconds();
        Wake(next);
        while (woken_.load() != next) {
            std::this_thread::yield();
        }
        return wokenAt_ - pushed;
    }

    ThreadId Thread() const {
        WaitUntilAsleep(id_);
        return id_;
    }

private:
    void Wake(std::uint32_t generation) {
        generation_.store(generation);
        syscall(SYS_futex, &generation_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }

    void Run() {
        id_ = ThisThread();
        std::uint32_t seen = 0;
        while (!stop_) {
            syscall(SYS_futex, &generation_, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
            const std::uint32_t generation = generation_.load();
            if (generation != seen) {
                wokenAt_ = SteadyNanoseconds();
                seen = generation;
                woken_.store(seen);
            }
        }
    }

    std::atomic<std::uint32_t> generation_ = 0;
    std::atomic<std::uint32_t> woken_ = 0;
    std::int64_t wokenAt_ = 0;
    std::atomic<bool> stop_ = false;
    std::atomic<ThreadId> id_ = 0;
    std::thread thread_;
};

void WakeThread(benchmark::State& state, Place place) {
    FutexSleeper sleeper;
    const Placement placement(place, {sleeper.Thread()});
    Latencies latencies;
    for (auto _ : state) {
        for (std::size_t i = 0; i < kNbWakeUps; ++i) {
            latencies.Note(sleeper.MeasureWake());
        }
        latencies.Report(state);
    }
}

void AddFutexWake(const std::string& name, Place place) {
    AddVersion(name, "machine", [place](benchmark::State& state) {
        WakeThread(state, place);
    })->Iterations(1);
}

}  // namespace

void AddMachineLimitCases() {
    constexpr std::size_t kibibyte = 1'024;
    AddVersion("Machine: memory read, first-level cache", "machine", ReadMemory<16 * kibibyte>);
    AddVersion("Machine: memory read, outside of all caches", "machine",
               ReadMemory<256 * kibibyte * kibibyte>);
    AddVersion("Machine: lock and unlock", "machine", LockAndUnlock);
    AddVersion("Machine: clock read", "machine", ReadClock);
    AddFutexWake("Machine: futex wake, same core", Place::SameCore);
    AddFutexWake("Machine: futex wake, other core", Place::OtherCore);
}

}  // namespace Tavrin::Player::Bench
