#include "Player/PreloadOrderQueue.h"

#include "Player/PreloadThread.h"

namespace Tavrin::Player {

void PreloadOrderQueue::Push(const PreloadOrder& order) {
    queue_.Push(order, &PreloadThread::OneSampleReadyForPreload);
}

bool PreloadOrderQueue::Pop(PreloadOrder& out) {
    return queue_.Pop(out);
}

std::size_t PreloadOrderQueue::GetSize() {
    return queue_.GetSize();
}

void PreloadOrderQueue::Clear() {
    queue_.Clear();
}

}  // namespace Tavrin::Player
