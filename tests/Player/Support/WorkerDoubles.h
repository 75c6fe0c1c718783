#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeOrder.h"
#include "Player/IPreloader.h"
#include "Player/ISampleDecoder.h"
#include "Player/Output.h"
#include "Player/PreloadOrder.h"
#include "Player/StorageId.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Waiting.h"
#include "Player/TrackId.h"

namespace Tavrin::Player::Testing {

/// A track of a storage that all worker tests share.
inline TrackId Track(std::int64_t number) {
    return TrackId(StorageId("10.0.0.2", 5000), number);
}

/// A preload order at sample `number` of 25 samples per second.
inline PreloadOrder OrderAt(std::int64_t number, CacheUpdateQueue* queue, std::int64_t track = 1) {
    const SampleRate rate(25, 1);
    return PreloadOrder(StartOf(number, rate), rate, queue, Track(track));
}

/// An object's address as it stands in log lines.
inline std::string AddressText(const void* object) {
    std::ostringstream text;
    text << object;
    return text.str();
}

/// The number before " ms" at the end of a log line; -1 when the line ends otherwise.
inline std::int64_t MillisecondsIn(const std::string& text) {
    const std::string in = " in ";
    const std::string unit = " ms";
    const std::size_t begin = text.rfind(in);
    if (begin == std::string::npos || !text.ends_with(unit)) {
        return -1;
    }
    const std::size_t first = begin + in.size();
    const std::string digits = text.substr(first, text.size() - unit.size() - first);
    const bool isNumber = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? std::stoll(digits) : -1;
}

/// Takes time, as a callback that has something to do does. Sleeps most of it, so that other threads do not take the
/// processor away towards the end, and is exact at the end.
inline void SpendAtLeast(std::chrono::nanoseconds span) {
    const auto end = std::chrono::steady_clock::now() + span;
    std::this_thread::sleep_until(end - std::chrono::milliseconds(2));
    while (std::chrono::steady_clock::now() < end) {
    }
}

/// Everything that waits in `queue`, oldest first. The samples are the caller's from then on.
inline std::vector<Output> Drain(CacheUpdateQueue& queue) {
    std::vector<Output> outputs;
    Output output;
    while (queue.Pop(output)) {
        outputs.push_back(output);
    }
    return outputs;
}

/// Sample numbers, at 25 samples per second, of orders or outputs.
template <typename Item>
std::vector<std::int64_t> NumbersOf(const std::vector<Item>& items) {
    std::vector<std::int64_t> numbers;
    for (const Item& item : items) {
        numbers.push_back(item.tp_.SampleNumber(SampleRate(25, 1)));
    }
    return numbers;
}

/// What a callback of a double does instead of answering at once, and what it noted.
///
/// A callback calls `Enter`; while the double is held it stays there until `Release`. The test waits for
/// `Entered` and then knows that the worker is inside the callback.
///
/// *Threads:* thread-safe.
class CallControl {
public:
    /// From now on every call stays inside until `Release`.
    void Hold() {
        const std::lock_guard lock(mutex_);
        held_ = true;
    }

    void Release() {
        const std::lock_guard lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }

    /// Called by the double. Throws when nobody releases it: the test that forgot fails instead of hanging.
    void Enter() {
        entered_.Add();
        std::unique_lock lock(mutex_);
        ++nbInside_;
        changed_.notify_all();
        const bool released = changed_.wait_for(lock, kFailureBound, [this] { return !held_; });
        --nbInside_;
        if (!released) {
            throw std::logic_error("a held call was never released");
        }
    }

    /// False when no call came and stayed within the bound.
    [[nodiscard]] bool WaitUntilHeld() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kFailureBound, [this] { return held_ && nbInside_ > 0; });
    }

    Counter& Entered() { return entered_; }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
    int nbInside_ = 0;
    Counter entered_;
};

/// A preloader whose behaviour the test scripts.
///
/// *Threads:* thread-safe; the script is set while no worker calls.
class ScriptedPreloader : public IPreloader {
public:
    PreloadResult Preload(const PreloadOrder& order) override {
        {
            const std::lock_guard lock(mutex_);
            orders_.push_back(order);
        }
        calls_.Enter();
        const PreloadResult result = script_ ? script_(order) : SUCCESS_EXIST;
        done_.Add();
        return result;
    }

    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues*) override {}

    /// What a call does after it has been let through; `SUCCESS_EXIST`, delivering nothing, without a script.
    void Script(std::function<PreloadResult(const PreloadOrder&)> script) { script_ = std::move(script); }

    CallControl& Calls() { return calls_; }

    /// Calls that returned normally.
    Counter& Done() { return done_; }

    std::vector<PreloadOrder> Orders() const {
        const std::lock_guard lock(mutex_);
        return orders_;
    }

    /// The sample numbers, at 25 samples per second, of the orders so far.
    std::vector<std::int64_t> Numbers() const { return NumbersOf(Orders()); }

private:
    std::function<PreloadResult(const PreloadOrder&)> script_;
    CallControl calls_;
    Counter done_;
    mutable std::mutex mutex_;
    std::vector<PreloadOrder> orders_;
};

/// A decoder whose behaviour the test scripts; like a real one it leaves the compressed sample alone.
///
/// *Threads:* thread-safe; the script is set while no worker calls.
class ScriptedDecoder : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder& order) override {
        {
            const std::lock_guard lock(mutex_);
            orders_.push_back(order);
        }
        calls_.Enter();
        return script_ ? script_(order) : nullptr;
    }

    /// What a call does after it has been let through; null without a script.
    void Script(std::function<ISample*(const DecodeOrder&)> script) { script_ = std::move(script); }

    CallControl& Calls() { return calls_; }

    std::vector<DecodeOrder> Orders() const {
        const std::lock_guard lock(mutex_);
        return orders_;
    }

    /// The sample numbers, at 25 samples per second, of the orders so far.
    std::vector<std::int64_t> Numbers() const {
        std::vector<std::int64_t> numbers;
        for (const DecodeOrder& order : Orders()) {
            numbers.push_back(order.orderTp_.SampleNumber(SampleRate(25, 1)));
        }
        return numbers;
    }

private:
    std::function<ISample*(const DecodeOrder&)> script_;
    CallControl calls_;
    mutable std::mutex mutex_;
    std::vector<DecodeOrder> orders_;
};

/// A preload worker (`PreloadThread` or `TimedPreloadThread`) whose looks at its queues are counted and can
/// be held: a worker that has looked in vain, and is not held, is on its way to sleep or asleep.
template <typename Worker>
class Observed : public Worker {
public:
    // The thread calls what this class overrides, so it ends before this class does.
    ~Observed() override { Worker::Stop(); }

    bool Dequeue(PreloadOrder& order) override {
        const bool found = Worker::Dequeue(order);
        (found ? finds_ : vainLooks_).Add();
        if (!found) {
            vain_.Enter();
        }
        return found;
    }

    void Stop() override {
        ++nbStops_;
        Worker::Stop();
    }

    /// Whether `Stop` has reached the point from which on no further order is taken.
    bool AskedToStop() const { return Worker::MustStop(); }

    Counter& Finds() { return finds_; }
    Counter& VainLooks() { return vainLooks_; }

    /// Holds the worker after a look in vain, before it sleeps.
    CallControl& AfterVainLook() { return vain_; }

    int NbStops() const { return nbStops_; }

private:
    Counter finds_;
    Counter vainLooks_;
    CallControl vain_;
    std::atomic<int> nbStops_ = 0;
};

}  // namespace Tavrin::Player::Testing
