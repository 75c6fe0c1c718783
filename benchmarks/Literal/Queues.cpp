#include "Literal/Queues.h"

#include "Literal/Semaphore.h"

namespace Tavrin::Player::Literal {

namespace {

Semaphore toPreload;
Semaphore toDecode;

}  // namespace

CacheUpdateQueue::~CacheUpdateQueue() {
    Output output;
    while (entries_.Pop(output)) {
        delete output.sample_;
    }
}

void CacheUpdateQueue::Push(const Output& output) {
    entries_.Push(output);
}

bool CacheUpdateQueue::Pop(Output& out) {
    return entries_.Pop(out);
}

void PreloadOrderQueue::Push(const PreloadOrder& order) {
    queue_.Push(order, [] { toPreload.Signal(); });
}

bool PreloadOrderQueue::Pop(PreloadOrder& out) {
    return queue_.Pop(out);
}

void DecodeOrderQueue::Push(const DecodeOrder& order) {
    queue_.Push(order, [] { toDecode.Signal(); });
}

bool DecodeOrderQueue::Pop(DecodeOrder& out) {
    return queue_.Pop(out);
}

}  // namespace Tavrin::Player::Literal
