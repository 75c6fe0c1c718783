#include "Player/TimedPreloadThread.h"

#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Player/LogMessage.h"
#include "Player/NeverDestroyed.h"

namespace Tavrin::Player {

using namespace qor::kp::logging;

namespace {

constexpr std::size_t kSlotPeriodMs = 20;
constexpr std::size_t kMsPerSecond = 1000;
constexpr std::chrono::milliseconds kSlow(100);

/// Whole milliseconds since the current second of the steady clock began.
std::size_t MillisecondOfSecond() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch() % std::chrono::seconds(1);
    return static_cast<std::size_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

TimedPreloadThread::TimedPreloadThread()
    : PreloadWorker({"TimedPreloadThread", "Player/TimedPreloadThread", kSlow}, ToPreload()),
      slotPeriod_(kSlotPeriodMs) {
}

TimedPreloadThread::~TimedPreloadThread() {
    TimedPreloadThread::Stop();
}

Tools::Semaphore& TimedPreloadThread::ToPreload() {
    static NeverDestroyed<Tools::Semaphore> toPreload;
    return toPreload.Get();
}

void TimedPreloadThread::OneSampleReadyForPreload() {
    ToPreload().Signal();
}

std::size_t TimedPreloadThread::SetSendingUnitPeriod(int n) {
    if (!slots_.empty()) {
        throw std::runtime_error("You called RegisterOrder before this");
    }
    if (n < 1 || n > static_cast<int>(kMsPerSecond)) {
        throw std::runtime_error(Compose("SetSendingUnitPeriod: ", n,
                                         " sending units per second, it must be 1 to ", kMsPerSecond));
    }
    const std::size_t period = kMsPerSecond / static_cast<std::size_t>(n);
    for (std::size_t slot = 0; slot * period < kMsPerSecond; ++slot) {
        slots_.try_emplace(slot);
    }
    return period;
}

void TimedPreloadThread::RegisterOrder(const TrackId& id, std::size_t slot) {
    const auto found = slots_.find(slot);
    if (found == slots_.end()) {
        throw std::runtime_error(Compose("Slot ", slot, " not found"));
    }
    found->second.insert(id);
}

std::size_t TimedPreloadThread::SendAwaitingOrders() {
    const std::size_t slot = MillisecondOfSecond() / slotPeriod_;
    const auto tracks = slots_.find(slot);
    if (tracks == slots_.end()) {
        TAVRIN_LOG(Logger(), Level_Warning, File(), "Could not find slot ", slot, " in slots");
        return 0;
    }
    std::vector<PreloadOrder> sent;
    for (const PreloadOrder& order : awaitingOrders_) {
        if (tracks->second.count(order.id_) != 0) {
            ProcessOrder(order);
            sent.push_back(order);
        }
    }
    for (const PreloadOrder& order : sent) {
        awaitingOrders_.erase(order);
    }
    return sent.size();
}

void TimedPreloadThread::DequeueAndPreloadThread() {
    const std::chrono::milliseconds pause(slotPeriod_ * 3 / 4);
    PreloadOrder order;
    while (!MustStop()) {
        CollectOrders(order);
        SendAwaitingOrders();
        std::this_thread::sleep_for(pause);
    }
}

void TimedPreloadThread::CollectOrders(PreloadOrder& order) {
    while (Dequeue(order)) {
        awaitingOrders_.insert(order);
    }
}

}  // namespace Tavrin::Player
