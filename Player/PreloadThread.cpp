#include "Player/PreloadThread.h"

#include "Player/OrderLoop.h"

namespace Tavrin::Player {

PreloadThread::PreloadThread()
    : PreloadWorker({"PreloadThread", "Player/PreloadThread", std::chrono::milliseconds::max()},
                    ToPreload()) {
}

PreloadThread::~PreloadThread() {
    PreloadThread::Stop();
}

/// Never destroyed: a client's static objects may push orders before and after this library's own have lived.
Tools::Semaphore& PreloadThread::ToPreload() {
    static Tools::Semaphore* const toPreload = new Tools::Semaphore;
    return *toPreload;
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
