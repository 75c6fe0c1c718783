#include "Player/PreloadThread.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Literal/HandOff.h"
#include "Player/CacheUpdateQueue.h"
#include "Player/IPreloader.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/TrackId.h"
#include "Support/Cases.h"
#include "Support/IdleThread.h"
#include "Support/Latencies.h"
#include "Support/Scene.h"
#include "Support/Suites.h"

/// Orders through workers, beside the least that hands the same orders to threads.
namespace Tavrin::Player::Bench {

namespace {

/// Orders that are pushed at once, as at the first tick of a wall.
constexpr std::size_t kBurst = 10'000;

/// Takes no time: what is measured is the way to it.
class NotingPreloader final : public IPreloader {
public:
    PreloadResult Preload(const PreloadOrder& order) override {
        calledAt_.store(SteadyNanoseconds(), std::memory_order_relaxed);
        thread_.store(thread, std::memory_order_relaxed);
        sumOfTimes_.fetch_add(order.tp_.ToNanoseconds(), std::memory_order_relaxed);
        nbCalls_.fetch_add(1, std::memory_order_release);
        return SUCCESS_MISSING;
    }
    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues*) override {}

    /// Sleeps neither, so that the end of the burst is seen at once.
    void WaitForCalls(std::size_t nb) const {
        while (nbCalls_.load(std::memory_order_acquire) < nb) {
            std::this_thread::yield();
        }
    }

    std::size_t NbCalls() const { return nbCalls_.load(std::memory_order_acquire); }
    std::int64_t CalledAt() const { return calledAt_.load(std::memory_order_relaxed); }
    std::int64_t SumOfTimes() const { return sumOfTimes_.load(std::memory_order_relaxed); }

    /// The thread of the latest call.
    const std::atomic<ThreadId>& Thread() const { return thread_; }

private:
    static thread_local const ThreadId thread;

    std::atomic<std::int64_t> calledAt_ = 0;
    std::atomic<ThreadId> thread_ = 0;
    std::atomic<std::int64_t> sumOfTimes_ = 0;
    std::atomic<std::size_t> nbCalls_ = 0;
};

thread_local const ThreadId NotingPreloader::thread = ThisThread();

/// The engine's way: a queue and the workers that serve it.
class Workers {
public:
    Workers(std::size_t nbWorkers, IPreloader& preloader) {
        for (std::size_t i = 0; i < nbWorkers; ++i) {
            workers_.push_back(std::make_unique<PreloadThread>());
            workers_.back()->SetPreloader(&preloader);
            workers_.back()->SetPreloadOrderQueue(&orders_);
            workers_.back()->Start();
        }
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
    ~Workers() {
        for (const auto& worker : workers_) {
            worker->RemovePreloadOrderQueue(&orders_);
            worker->Stop();
        }
    }

    void Push(const PreloadOrder& order) { orders_.Push(order); }

private:
    PreloadOrderQueue orders_;
    std::vector<std::unique_ptr<PreloadThread>> workers_;
};

PreloadOrder OrderFor(CacheUpdateQueue& queue) {
    return {StartOf(kFirst), StreamRate(), &queue, TrackId(StorageId("10.0.0.2", 5'000), 7)};
}

template <typename Way>
void RunBurst(benchmark::State& state, std::size_t nbWorkers) {
    CacheUpdateQueue destination;
    NotingPreloader preloader;
    const PreloadOrder order = OrderFor(destination);
    Way way(nbWorkers, preloader);
    std::size_t nbOrders = 0;
    SetBatch(state, kBurst);
    for (auto _ : state) {
        nbOrders += kBurst;
        const std::int64_t start = SteadyNanoseconds();
        for (std::size_t i = 0; i < kBurst; ++i) {
            way.Push(order);
        }
        preloader.WaitForCalls(nbOrders);
        state.SetIterationTime(static_cast<double>(SteadyNanoseconds() - start) / 1e9);
    }
    if (preloader.NbCalls() != nbOrders ||
        preloader.SumOfTimes() != static_cast<std::int64_t>(nbOrders) * order.tp_.ToNanoseconds()) {
        throw std::runtime_error("Not every order reached the preloader once");
    }
}

/// One worker that sleeps until the next order comes.
template <typename Way>
class Sleeper {
public:
    Sleeper() : order_(OrderFor(destination_)), way_(1, preloader_) { MeasureWakeUp(); }

    /// The worker's thread; it has served an order before.
    ThreadId Thread() const { return preloader_.Thread(); }

    /// From the push to the call of the preloader, in nanoseconds.
    std::int64_t MeasureWakeUp() {
        if (nbOrders_ > 0) {
            WaitUntilAsleep(preloader_.Thread());
        }
        const std::int64_t pushed = SteadyNanoseconds();
        way_.Push(order_);
        preloader_.WaitForCalls(++nbOrders_);
        return preloader_.CalledAt() - pushed;
    }

private:
    CacheUpdateQueue destination_;
    NotingPreloader preloader_;
    PreloadOrder order_;
    Way way_;
    std::size_t nbOrders_ = 0;
};

/// The two ways in turn, wake-up for wake-up, and both from the same core: one that has slept long takes
/// several times as long to wake, which must not meet one of them only.
void RunWakeUps(benchmark::State& state, Place place) {
    Sleeper<Literal::HandOff> literal;
    Sleeper<Workers> engine;
    const Placement placement(place, {literal.Thread(), engine.Thread()});
    Latencies ofLiteral;
    Latencies ofEngine;
    for (auto _ : state) {
        for (std::size_t i = 0; i < kNbWakeUps; ++i) {
            ofLiteral.Note(literal.MeasureWakeUp());
            ofEngine.Note(engine.MeasureWakeUp());
        }
        ofLiteral.Report(state, "literal_");
        ofEngine.Report(state, "engine_");
    }
}

void AddBurst(const std::string& name, std::size_t nbWorkers) {
    AddVersion(name, "literal", [=](benchmark::State& state) {
        RunBurst<Literal::HandOff>(state, nbWorkers);
    })->UseManualTime();
    AddVersion(name, "engine", [=](benchmark::State& state) {
        RunBurst<Workers>(state, nbWorkers);
    })->UseManualTime();
}

void AddWakeUps(const std::string& name, Place place) {
    AddVersion(name, "both", [place](benchmark::State& state) { RunWakeUps(state, place); })->Iterations(1);
}

}  // namespace

void AddPreloadThreadCases() {
    AddBurst("Workers: one order through 1 worker", 1);
    AddBurst("Workers: one order through 2 workers", 2);
    AddWakeUps("Workers: push to an idle worker's call, same core", Place::SameCore);
    AddWakeUps("Workers: push to an idle worker's call, other core", Place::OtherCore);
}

}  // namespace Tavrin::Player::Bench
