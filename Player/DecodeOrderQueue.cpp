#include "Player/DecodeOrderQueue.h"

#include "Player/DecodeThread.h"

namespace Tavrin::Player {

void DecodeOrderQueue::Push(const DecodeOrder& order) {
    queue_.Push(order, &DecodeThread::OneSampleReadyForDecoding);
}

bool DecodeOrderQueue::Pop(DecodeOrder& out) {
    return queue_.Pop(out);
}

std::size_t DecodeOrderQueue::GetSize() {
    return queue_.GetSize();
}

void DecodeOrderQueue::Clear() {
    queue_.Clear();
}

}  // namespace Tavrin::Player
