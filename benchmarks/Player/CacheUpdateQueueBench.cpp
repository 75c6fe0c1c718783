#include "Player/CacheUpdateQueue.h"

#include "Support/QueueCases.h"
#include "Support/Scene.h"
#include "Support/Suites.h"

namespace Tavrin::Player::Bench {

namespace {

struct Outputs {
    template <typename Kit>
    using Queue = typename Kit::CacheUpdateQueue;
    template <typename Kit>
    using Entry = Output;

    template <typename Kit>
    static Output Make() {
        return AnswerFor(kFirst);
    }
    static Time::TimePoint Mark(const Output& output) { return output.tp_; }
};

}  // namespace

void AddCacheUpdateQueueCases() {
    AddQueueCase<Outputs>("CacheUpdateQueue: push and pop");
}

}  // namespace Tavrin::Player::Bench
