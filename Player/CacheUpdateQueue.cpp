#include "Player/CacheUpdateQueue.h"

namespace Tavrin::Player {

CacheUpdateQueue::~CacheUpdateQueue() {
    Output output;
    while (entry_.Pop(output)) {
        delete output.sample_;
    }
}

void CacheUpdateQueue::Push(const Output& output) {
    entry_.Push(output);
}

bool CacheUpdateQueue::Pop(Output& out) {
    return entry_.Pop(out);
}

}  // namespace Tavrin::Player
