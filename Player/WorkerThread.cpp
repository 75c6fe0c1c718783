#include "Player/WorkerThread.h"

#include <chrono>
#include <stdexcept>
#include <utility>

namespace Tavrin::Player {

namespace {

/// The semaphore is shared, so a unit may wake another worker instead of the one that is to end; this is how
/// long to wait before adding the next one.
constexpr std::chrono::milliseconds kWakeUpPeriod(10);

}  // namespace

void WorkerThread::Start(std::function<void()> loop) {
    RefuseOwnThread();
    const std::lock_guard<std::mutex> lifecycle(lifecycle_);
    StopAndJoin();
    stop_.store(false);
    try {
        thread_ = std::thread([this, loop = std::move(loop)] { Run(loop); });
    } catch (...) {
        stop_.store(true);
        throw;
    }
}

void WorkerThread::Run(const std::function<void()>& loop) {
    threadId_.store(std::this_thread::get_id());
    threadIsOver_.store(false);
    loop();
    threadIsOver_.store(true);
}

void WorkerThread::Stop() {
    RefuseOwnThread();
    const std::lock_guard<std::mutex> lifecycle(lifecycle_);
    StopAndJoin();
}

void WorkerThread::RefuseOwnThread() const {
    if (threadId_.load() == std::this_thread::get_id()) {
        throw std::logic_error(
            "a worker cannot be started or stopped on its own thread, which it would wait "
            "for; call Start or Stop on another thread");
    }
}

void WorkerThread::StopAndJoin() {
    stop_.store(true);
    if (!thread_.joinable()) {
        return;
    }
    while (!threadIsOver_.load()) {
        wakeUp_.Signal();
        std::this_thread::sleep_for(kWakeUpPeriod);
    }
    thread_.join();
    threadId_.store(std::thread::id());
}

}  // namespace Tavrin::Player
