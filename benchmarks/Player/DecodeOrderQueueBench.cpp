#include "Player/DecodeOrderQueue.h"

#include "Support/QueueCases.h"
#include "Support/Scene.h"
#include "Support/Suites.h"

namespace Tavrin::Player::Bench {

namespace {

struct DecodeOrders {
    template <typename Kit>
    using Queue = typename Kit::DecodeOrderQueue;
    template <typename Kit>
    using Entry = typename Kit::DecodeOrder;

    template <typename Kit>
    static Entry<Kit> Make() {
        Entry<Kit> order;
        order.toDecode_ = CacheSamples().At(0);
        order.orderTp_ = StartOf(kFirst);
        return order;
    }
    static Time::TimePoint Mark(const auto& order) { return order.orderTp_; }
};

}  // namespace

void AddDecodeOrderQueueCases() {
    AddQueueCase<DecodeOrders>("DecodeOrderQueue: push and pop");
}

}  // namespace Tavrin::Player::Bench
