#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Tavrin::Player::Testing {

/// How long a test waits for something that a correct engine does at once: only a bound for the broken case.
constexpr std::chrono::seconds kFailureBound{30};

/// A door that threads wait at until the test opens it.
///
/// *Threads:* thread-safe. What was done before `Open` is visible after `Wait` has returned true.
class Gate {
public:
    void Open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

    /// False when nobody opened the gate within the bound.
    [[nodiscard]] bool Wait(std::chrono::milliseconds bound = kFailureBound) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, bound, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

/// A number that threads raise and the test waits for.
///
/// *Threads:* thread-safe.
class Counter {
public:
    void Add() {
        const std::lock_guard lock(mutex_);
        ++value_;
        changed_.notify_all();
    }

    int Value() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }

    /// False when the number did not reach `value` within the bound.
    [[nodiscard]] bool WaitFor(int value, std::chrono::milliseconds bound = kFailureBound) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, bound, [&] { return value_ >= value; });
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int value_ = 0;
};

/// Lets real time pass without giving up the thread for longer than a moment: for checks that something
/// wrong, which would happen at once, does not happen. Such a check never fails for a correct engine.
inline void LetOthersRun(std::chrono::milliseconds span = std::chrono::milliseconds(20)) {
    const auto end = std::chrono::steady_clock::now() + span;
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
}

}  // namespace Tavrin::Player::Testing
