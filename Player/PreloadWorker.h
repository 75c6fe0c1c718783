#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>

#include "Logging/ILogger.h"
#include "Player/IPreloadThread.h"
#include "Player/IPreloader.h"
#include "Player/PlayerExport.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/RoundRobinQueues.h"
#include "Player/WorkerThread.h"
#include "Tools/LoopRecordingVector.h"
#include "Tools/Semaphore.h"

namespace Tavrin::Player {

/// What `PreloadThread` and `TimedPreloadThread` have in common: the queues, the preloader, the thread, the
/// statistics, and how one order is run. They differ in when they run it.
///
/// *Threads, Blocking, Ownership:* as `IPreloadThread`.
/// *Errors:* see `ProcessOrder` and `WorkerThread`.
class TAVRIN_PLAYER_EXPORT PreloadWorker : public IPreloadThread {
public:
    void SetPreloadOrderQueue(PreloadOrderQueue* queue) override;
    void RemovePreloadOrderQueue(PreloadOrderQueue* queue) override;
    bool Start() override;
    void Stop() override;
    bool Dequeue(PreloadOrder& order) override;
    std::int64_t SetPreloader(IPreloader* preloader) override;
    void RemovePreloader(std::int64_t handle) override;
    Information GetInformation() override;

    /// Has no effect: nothing is stored whose size could be set.
    void SetStoredPreloadOrderSize(std::size_t size);

    /// Has the preloader run one order, times and logs it. True when the preloader returned, whatever its
    /// result; false when the order has no queue, when there is no preloader, or when the preloader threw
    /// (anything): the order is then dropped with a warning.
    bool ProcessOrder(const PreloadOrder& order);

protected:
    /// How a kind of worker presents itself and when it finds a preload slow.
    struct Kind {
        const char* loggerName_;
        const char* file_;                ///< Source name in its log lines.
        std::chrono::milliseconds slow_;  ///< Preloads that take longer are warned of.
    };

    PreloadWorker(const Kind& kind, Tools::Semaphore& wakeUp);

    /// The body of the worker's thread; returns soon after `MustStop` turns true. A derived class calls
    /// `Stop` in its destructor, while this function's class still exists.
    virtual void DequeueAndPreloadThread() = 0;

    bool MustStop() const { return providingThread_.MustStop(); }
    qor::kp::logging::ILogger* Logger() const { return logger_; }
    const char* File() const { return kind_.file_; }

private:
    void LogPreload(const PreloadOrder& order, IPreloader::PreloadResult result, std::int64_t milliseconds);
    void LogFailure(const PreloadOrder& order, const std::exception* e) noexcept;

    const Kind kind_;
    Tools::Semaphore& wakeUp_;
    RoundRobinQueues<PreloadOrderQueue> preloadOrderQueues_;
    std::atomic<IPreloader*> preloader_ = nullptr;
    WorkerThread providingThread_;
    Tools::LoopRecordingVector preloadingTimesMs_;
    qor::kp::logging::ILogger* logger_;
};

}  // namespace Tavrin::Player
