#include "Player/PreloadWorker.h"

#include <exception>

#include "Logging/LoggingManager.h"
#include "Player/LogMessage.h"

namespace Tavrin::Player {

using namespace qor::kp::logging;

namespace {

constexpr std::size_t kNbRecordedTimes = 50;
constexpr int kStatisticsMilliseconds = 1000;

}  // namespace

PreloadWorker::PreloadWorker(const Kind& kind, Tools::Semaphore& wakeUp)
    : kind_(kind),
      wakeUp_(wakeUp),
      providingThread_(wakeUp),
      logger_(LoggingManager::GetLoggerPtr(kind.loggerName_)) {
    preloadingTimesMs_.Resize(kNbRecordedTimes);
}

void PreloadWorker::SetPreloadOrderQueue(PreloadOrderQueue* queue) {
    preloadOrderQueues_.Attach(queue);
    // The queue may hold orders whose units other workers have taken in vain: look at it once.
    wakeUp_.Recall();
}

void PreloadWorker::RemovePreloadOrderQueue(PreloadOrderQueue* queue) {
    preloadOrderQueues_.Remove(queue);
}

bool PreloadWorker::Start() {
    Stop();
    providingThread_.Start([this] { DequeueAndPreloadThread(); });
    return true;
}

void PreloadWorker::Stop() {
    providingThread_.Stop();
}

bool PreloadWorker::Dequeue(PreloadOrder& order) {
    return preloadOrderQueues_.Pop(order);
}

std::int64_t PreloadWorker::SetPreloader(IPreloader* preloader) {
    preloader_.store(preloader);
    return 1;
}

void PreloadWorker::RemovePreloader(std::int64_t /*handle*/) {
    preloader_.store(nullptr);
}

IPreloadThread::Information PreloadWorker::GetInformation() {
    Information information;
    information.averagePreloadTimeMilliseconds_ =
        static_cast<std::uint32_t>(preloadingTimesMs_.AverageSince(kStatisticsMilliseconds));
    return information;
}

void PreloadWorker::SetStoredPreloadOrderSize(std::size_t /*size*/) {
}

bool PreloadWorker::ProcessOrder(const PreloadOrder& order) {
    IPreloader* const preloader = preloader_.load();
    if (order.queue_ == nullptr || preloader == nullptr) {
        TAVRIN_LOG(logger_, Level_Warning, kind_.file_, "Queue or preloader is NULL for order at ",
                   order.tp_);
        return false;
    }
    try {
        const auto start = std::chrono::steady_clock::now();
        const IPreloader::PreloadResult result = preloader->Preload(order);
        const auto end = std::chrono::steady_clock::now();
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(end - start);
        preloadingTimesMs_.Push(ms.count(), end);
        LogPreload(order, result, ms.count());
        return true;
    } catch (const std::exception& e) {
        LogFailure(order, &e);
    } catch (...) {
        LogFailure(order, nullptr);
    }
    return false;
}

void PreloadWorker::LogPreload(const PreloadOrder& order, IPreloader::PreloadResult result,
                               std::int64_t milliseconds) {
    const auto log = [&](Level level) {
        // A failure to log counts as one of the preload.
        TAVRIN_LOG_OR_THROW(logger_, level, kind_.file_, "Thread ", static_cast<const void*>(this), ": T",
                            order.id_.Id(), ": preload tp ", order.tp_, " (",
                            order.tp_.SampleNumber(order.s_), "): ", ToString(result), " in ", milliseconds,
                            " ms");
    };
    log(Level_Trace);
    if (milliseconds > kind_.slow_.count()) {
        log(Level_Warning);
    }
}

/// `e` is null for what is no standard exception. It is asked what it says only when that is written.
void PreloadWorker::LogFailure(const PreloadOrder& order, const std::exception* e) noexcept {
    TAVRIN_LOG(logger_, Level_Warning, kind_.file_, "Could not preload aligned order on ",
               order.id_.ToString(), " at ", order.tp_, ": ", e != nullptr ? e->what() : "unknown exception");
}

}  // namespace Tavrin::Player
