#include "Player/PreloadOrderQueue.h"

#include "Player/TrackId.h"
#include "Support/QueueCases.h"
#include "Support/Scene.h"
#include "Support/Suites.h"

namespace Tavrin::Player::Bench {

namespace {

struct PreloadOrders {
    template <typename Kit>
    using Queue = typename Kit::PreloadOrderQueue;
    template <typename Kit>
    using Entry = typename Kit::PreloadOrder;

    template <typename Kit>
    static Entry<Kit> Make() {
        Entry<Kit> order;
        order.tp_ = StartOf(kFirst);
        order.s_ = StreamRate();
        order.id_ = TrackId(StorageId("10.0.0.2", 5'000), 7);
        return order;
    }
    static Time::TimePoint Mark(const auto& order) { return order.tp_; }
};

}  // namespace

void AddPreloadOrderQueueCases() {
    AddQueueCase<PreloadOrders>("PreloadOrderQueue: push and pop");
}

}  // namespace Tavrin::Player::Bench
