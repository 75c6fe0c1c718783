#include "Player/PreloadOrder.h"

#include <functional>

namespace Tavrin::Player {

PreloadOrder::PreloadOrder(const Time::TimePoint& tp, const SampleRate& s, CacheUpdateQueue* queue,
                           const TrackId& id)
    : tp_(tp), s_(s), queue_(queue), id_(id) {
}

void PreloadOrder::Set(const Time::TimePoint& tp, const SampleRate& s, CacheUpdateQueue* queue,
                       const TrackId& id) {
    tp_ = tp;
    s_ = s;
    queue_ = queue;
    id_ = id;
}

bool PreloadOrder::operator<(const PreloadOrder& other) const {
    if (id_ != other.id_) {
        return id_ < other.id_;
    }
    if (tp_ == other.tp_) {
        return std::less<>()(queue_, other.queue_);
    }
    return tp_ < other.tp_;
}

bool PreloadOrder::operator==(const PreloadOrder& other) const {
    return id_ == other.id_ && tp_ == other.tp_ && queue_ == other.queue_;
}

}  // namespace Tavrin::Player
