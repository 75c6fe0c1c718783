#include "Player/ExistingCacheUpdateQueues.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Support/Cases.h"
#include "Support/Scene.h"
#include "Support/Suites.h"

namespace Tavrin::Player::Bench {

namespace {

/// So many pushes between two looks at the clock, whatever the number of queues.
constexpr std::size_t kBatch = 10;

/// A registry and the queues that are registered in it, in a scattered order.
template <typename Kit>
class Registry {
public:
    using Queue = typename Kit::CacheUpdateQueue;

    explicit Registry(std::int64_t nbQueues) : queues_(static_cast<std::size_t>(nbQueues)) {
        for (auto& queue : queues_) {
            queue = std::make_unique<Queue>();
            registry_.InsertExistingQueue(queue.get());
        }
        for (const std::int64_t number : Shuffled(0, nbQueues)) {
            scattered_.push_back(queues_[static_cast<std::size_t>(number)].get());
        }
    }

    Queue* Next() {
        Queue* const queue = scattered_[next_];
        next_ = next_ + 1 == scattered_.size() ? 0 : next_ + 1;
        return queue;
    }

    bool Push(Queue* queue, const Output& output) { return registry_.PushIfExists(queue, output); }
    bool Exists(Queue* queue) { return registry_.Exists(queue); }

private:
    typename Kit::ExistingCacheUpdateQueues registry_;
    std::vector<std::unique_ptr<Queue>> queues_;
    std::vector<Queue*> scattered_;
    std::size_t next_ = 0;
};

template <typename Kit>
void RunPush(benchmark::State& state, std::int64_t nbQueues) {
    using Queue = typename Kit::CacheUpdateQueue;
    Registry<Kit> registry(nbQueues);
    const Output answer = AnswerFor(kFirst);
    Output out;
    std::vector<Queue*> batch(kBatch);
    SetBatch(state, kBatch);
    for (auto _ : state) {
        for (Queue*& queue : batch) {
            queue = registry.Next();
        }
        Timed(state, [&] {
            for (Queue* const queue : batch) {
                registry.Push(queue, answer);
            }
        });
        for (Queue* const queue : batch) {
            queue->Pop(out);
        }
    }
}

template <typename Kit>
void RunExists(benchmark::State& state, std::int64_t nbQueues) {
    Registry<Kit> registry(nbQueues);
    for (auto _ : state) {
        benchmark::DoNotOptimize(registry.Exists(registry.Next()));
    }
}

template <typename Kit>
void Check(std::int64_t nbQueues) {
    Registry<Kit> registry(nbQueues);
    const Output answer = AnswerFor(kFirst);
    Output out;
    for (std::int64_t i = 0; i < nbQueues; ++i) {
        auto* const queue = registry.Next();
        Require(registry.Exists(queue) && registry.Push(queue, answer) && queue->Pop(out) && out == answer &&
                    !queue->Pop(out),
                "a push to a queue that is registered");
    }
    typename Kit::CacheUpdateQueue unknown;
    Require(!registry.Exists(&unknown) && !registry.Push(&unknown, answer) && !unknown.Pop(out),
            "a push to a queue that is not registered");
}

void CheckBoth(std::int64_t nbQueues) {
    Check<LiteralKit>(nbQueues);
    Check<EngineKit>(nbQueues);
}

}  // namespace

void AddExistingCacheUpdateQueuesCases() {
    for (const std::int64_t nb : {10, 1'000, 10'000}) {
        AddCase(
            "Registry: push, " + Grouped(nb) + " queues", Timing::Own, [nb] { CheckBoth(nb); },
            [nb](benchmark::State& state, auto kit) { RunPush<decltype(kit)>(state, nb); });
        AddCase(
            "Registry: Exists, " + Grouped(nb) + " queues", Timing::Whole, [nb] { CheckBoth(nb); },
            [nb](benchmark::State& state, auto kit) { RunExists<decltype(kit)>(state, nb); });
    }
}

}  // namespace Tavrin::Player::Bench
