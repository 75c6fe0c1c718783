#include "Player/PreloadThread.h"

#include "Player/NeverDestroyed.h"
#include "Player/OrderLoop.h"

namespace Tavrin::Player {

PreloadThread::PreloadThread()
    : PreloadWorker({"PreloadThread", "Player/PreloadThread", std::chrono::milliseconds::max()},
                    ToPreload()) {
}

PreloadThread::~PreloadThread() {
    PreloadThread::Stop();
}

Tools::Semaphore& PreloadThread::ToPreload() {
    static NeverDestroyed<Tools::Semaphore> toPreload;
    return toPreload.Get();
}

void PreloadThread::OneSampleReadyForPreload() {
    ToPreload().Signal();
}

void PreloadThread::DequeueAndPreloadThread() {
    PreloadOrder order;
    RunOrders(
        ToPreload(), [this] { return MustStop(); },
        [this, &order] {
            const bool found = Dequeue(order);
            if (found) {
                ProcessOrder(order);
            }
            return found;
        });
}

}  // namespace Tavrin::Player
