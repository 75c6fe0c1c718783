#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "Player/IPlayer.h"
#include "Player/Output.h"
#include "Player/SampleRate.h"
#include "Support/BenchSample.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Bench {

/// The rate of cameras that gives sample starts no round number.
inline const SampleRate& StreamRate() {
    static const SampleRate rate(30'000, 1'001);
    return rate;
}

/// An hour into a recording.
constexpr std::int64_t kFirst = 108'000;

inline Time::TimePoint StartOf(std::int64_t sample) {
    return Time::TimePoint::StartOfSample(sample, StreamRate());
}

/// Where a play head is found: not at the start of a sample but somewhere inside.
inline Time::TimePoint Inside(std::int64_t sample) {
    return StartOf(sample) + Time::TimePoint().FromMilliseconds(15);
}

/// The numbers from `first` on.
inline std::vector<std::int64_t> Ascending(std::int64_t first, std::int64_t count) {
    std::vector<std::int64_t> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

/// The same, shuffled, in the same way in every run.
inline std::vector<std::int64_t> Shuffled(std::int64_t first, std::int64_t count) {
    constexpr std::uint64_t seed = 20'260'101;
    std::vector<std::int64_t> numbers = Ascending(first, count);
    std::mt19937_64 random(seed);
    std::shuffle(numbers.begin(), numbers.end(), random);
    return numbers;
}

/// Goes round a list for ever.
template <typename Item>
class Carousel {
public:
    explicit Carousel(std::vector<Item> items) : items_(std::move(items)) {}

    const Item& Next() {
        const Item& item = items_[next_];
        next_ = next_ + 1 == items_.size() ? 0 : next_ + 1;
        return item;
    }

private:
    std::vector<Item> items_;
    std::size_t next_ = 0;
};

/// A play head that stands wherever the benchmark puts it.
class BenchPlayer final : public IPlayer {
public:
    const Time::TimePoint& GetCurrentTimePoint() const override { return tp_; }
    void SetSpeed(const Time::Ratio& speed) override { speed_ = speed; }
    Time::Ratio GetSpeed() const override { return speed_; }
    void GoTo(const Time::TimePoint& tp) override { tp_ = tp; }
    void Update(const Time::TimePoint&) override {}
    void AttachStream(Stream*) override {}
    void DetachStream(Stream*) override {}

private:
    Time::TimePoint tp_;
    Time::Ratio speed_{1, 1};
};

/// The samples that the cases of one cache draw from.
inline SampleArena& CacheSamples() {
    static SampleArena samples(32'768);
    return samples;
}

/// The answer for a sample, which is told by its number.
inline Output AnswerFor(std::int64_t number) {
    Output output;
    output.tp_ = StartOf(number);
    output.sample_ = CacheSamples().At(static_cast<std::size_t>(number));
    return output;
}

/// Has one sample asked for, answered and taken in.
template <typename Cache>
void TakeIn(Cache& cache, const Output& answer) {
    cache.InsertPendingEntry(answer.tp_);
    cache.GetQueue()->Push(answer);
    cache.Update();
}

/// The same with all samples from `begin` to before `end`.
template <typename Cache>
void TakeInAll(Cache& cache, std::int64_t begin, std::int64_t end) {
    for (std::int64_t number = begin; number < end; ++number) {
        TakeIn(cache, AnswerFor(number));
    }
}

/// A cache of the stream rate that holds the samples from `kFirst` on, all but those for which `isPending`.
template <typename Cache, typename IsPending>
void Fill(Cache& cache, std::int64_t nbEntries, IsPending isPending) {
    cache.SetStreamSampleRate(StreamRate());
    for (std::int64_t number = kFirst; number < kFirst + nbEntries; ++number) {
        if (isPending(number)) {
            cache.InsertPendingEntry(StartOf(number));
        } else {
            TakeIn(cache, AnswerFor(number));
        }
    }
}

template <typename Cache>
void Fill(Cache& cache, std::int64_t nbEntries) {
    Fill(cache, nbEntries, [](std::int64_t) { return false; });
}

}  // namespace Tavrin::Player::Bench
