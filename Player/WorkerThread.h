#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "Player/PlayerExport.h"
#include "Tools/Semaphore.h"

namespace Tavrin::Player {

/// The thread of a worker and the handshake that ends it; the three kinds of workers are built on it.
///
///     Idle --Start--> Running --Stop--> Idle
///
/// *Threads:* thread-safe: `Start` and `Stop` may be called from any thread but the worker's own, also at the
/// same time.
/// *Blocking:* `Stop` waits until the loop has ended, so for the callback in progress at most; `Start` stops
/// first.
/// *Memory:* the two flags form a handshake in which each side stores its own flag and then reads the
/// other's: `Stop` stores "stop" and reads whether the loop is over, the new thread stores "not over" and
/// reads "stop". Only a sequentially consistent order rules out that both miss the other's store, which would
/// leave `Stop` joining a thread that sleeps for ever.
/// *Errors:* `Stop` (and so `Start`) on the worker's own thread throws `std::logic_error`: it would wait for
/// itself. If no thread can be created, `std::system_error` leaves `Start` and the worker stays idle.
class TAVRIN_PLAYER_EXPORT WorkerThread {
public:
    /// `wakeUp` is the semaphore that idle workers of the class wait on; it outlives the worker.
    explicit WorkerThread(Tools::Semaphore& wakeUp) : wakeUp_(wakeUp) {}
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    /// Stopped already by then: the owner's destructor calls `Stop` while its members still live.
    ~WorkerThread() = default;

    /// Stops first if it runs, then runs `loop` on a thread of its own; it returns soon after `MustStop`
    /// turns true.
    void Start(std::function<void()> loop);

    /// Asks the loop to end, wakes it as often as it takes, and waits for it. Does nothing when idle.
    void Stop();

    /// Asked by the loop.
    bool MustStop() const { return stop_.load(); }

private:
    void Run(const std::function<void()>& loop);
    void RefuseOwnThread() const;
    void StopAndJoin();

    Tools::Semaphore& wakeUp_;
    std::mutex lifecycle_;  ///< One `Start` or `Stop` at a time.
    std::thread thread_;
    std::atomic<std::thread::id> threadId_;
    std::atomic<bool> stop_ = true;
    std::atomic<bool> threadIsOver_ = true;
};

}  // namespace Tavrin::Player
