#include "Player/Cache.h"

#include <functional>
#include <string>
#include <vector>

#include "Support/Cases.h"
#include "Support/Kits.h"
#include "Support/Scene.h"
#include "Support/Suites.h"

namespace Tavrin::Player::Bench {

namespace {

using Time::TimePoint;
using EntryType = Player::Cache::EntryType;

constexpr std::int64_t kSizes[] = {100, 1'000, 10'000};

/// So many samples come in, one after the other, between two looks at the clock.
constexpr std::int64_t kIntakeBatch = 50;

/// What a lookup is tried on: which samples are pending, and which are asked for.
struct Lookup {
    std::int64_t nbEntries_;
    std::function<bool(std::int64_t)> isPending_;
    std::vector<TimePoint> asked_;
    bool bestMatch_;
};

Lookup ExactLookup(std::int64_t nbEntries) {
    Lookup lookup{nbEntries, [](std::int64_t) { return false; }, {}, false};
    for (const std::int64_t number : Shuffled(kFirst, nbEntries)) {
        lookup.asked_.push_back(Inside(number));
    }
    return lookup;
}

/// Every tenth sample has not come yet, and those are asked for.
Lookup LookupOfPending(std::int64_t nbEntries) {
    Lookup lookup{nbEntries, [](std::int64_t number) { return number % 10 == 5; }, {}, true};
    for (const std::int64_t number : Shuffled(kFirst, nbEntries)) {
        if (lookup.isPending_(number)) {
            lookup.asked_.push_back(Inside(number));
        }
    }
    return lookup;
}

/// The middle half of the samples has not come yet, as after a jump, and those are asked for.
Lookup LookupInWideHole(std::int64_t nbEntries) {
    const std::int64_t begin = kFirst + nbEntries / 4;
    const std::int64_t end = begin + nbEntries / 2;
    Lookup lookup{
        nbEntries, [begin, end](std::int64_t number) { return begin <= number && number < end; }, {}, true};
    for (const std::int64_t number : Shuffled(begin, nbEntries / 2)) {
        lookup.asked_.push_back(Inside(number));
    }
    return lookup;
}

template <typename Kit>
void RunLookup(benchmark::State& state, const Lookup& lookup) {
    typename Kit::Cache cache;
    Fill(cache, lookup.nbEntries_, lookup.isPending_);
    Carousel<TimePoint> asked(lookup.asked_);
    ISample* sample = nullptr;
    for (auto _ : state) {
        benchmark::DoNotOptimize(cache.GetSample(asked.Next(), StreamRate(), &sample, lookup.bestMatch_));
        benchmark::DoNotOptimize(sample);
    }
}

void CheckLookup(const Lookup& lookup) {
    LiteralKit::Cache literal;
    EngineKit::Cache engine;
    Fill(literal, lookup.nbEntries_, lookup.isPending_);
    Fill(engine, lookup.nbEntries_, lookup.isPending_);
    // The literal version is too slow to ask for all of ten thousand.
    const std::size_t nbAsked = std::min<std::size_t>(lookup.asked_.size(), 1'000);
    for (std::size_t i = 0; i < nbAsked; ++i) {
        ISample* expected = nullptr;
        ISample* found = nullptr;
        const TimePoint& tp = lookup.asked_[i];
        const EntryType expectedType = literal.GetSample(tp, StreamRate(), &expected, lookup.bestMatch_);
        Require(expectedType == engine.GetSample(tp, StreamRate(), &found, lookup.bestMatch_) &&
                    expectedType == EntryType::Valid && expected == found,
                "GetSample at " + tp.ToString());
    }
}

void AddLookup(const std::string& name, const Lookup& lookup) {
    AddCase(
        name, Timing::Whole, [lookup] { CheckLookup(lookup); },
        [lookup](benchmark::State& state, auto kit) { RunLookup<decltype(kit)>(state, lookup); });
}

void RequireSameEntries(const LiteralKit::Cache& literal, const EngineKit::Cache& engine,
                        const std::string& when) {
    Require(literal.GetInformation().ToString() == engine.GetInformation().ToString() &&
                literal.GetFirstEntry() == engine.GetFirstEntry() &&
                literal.GetLastEntry() == engine.GetLastEntry(),
            "the entries " + when);
}

std::vector<Output> AnswersFor(const std::vector<std::int64_t>& numbers) {
    std::vector<Output> answers;
    answers.reserve(numbers.size());
    for (const std::int64_t number : numbers) {
        answers.push_back(AnswerFor(number));
    }
    return answers;
}

/// Samples come in at the end, in order, and leave at the begin.
template <typename Kit>
void RunAscendingIntake(benchmark::State& state, std::int64_t nbEntries) {
    typename Kit::Cache cache;
    Fill(cache, nbEntries);
    std::int64_t next = kFirst + nbEntries;
    SetBatch(state, kIntakeBatch);
    for (auto _ : state) {
        const auto answers = AnswersFor(Ascending(next, kIntakeBatch));
        Timed(state, [&] {
            for (const Output& answer : answers) {
                TakeIn(cache, answer);
            }
        });
        next += kIntakeBatch;
        cache.EraseBefore(StartOf(next - nbEntries));
    }
}

void CheckAscendingIntake(std::int64_t nbEntries) {
    LiteralKit::Cache literal;
    EngineKit::Cache engine;
    Fill(literal, nbEntries);
    Fill(engine, nbEntries);
    for (std::int64_t number = kFirst + nbEntries; number < kFirst + 2 * nbEntries; ++number) {
        TakeIn(literal, AnswerFor(number));
        TakeIn(engine, AnswerFor(number));
        const TimePoint limit = StartOf(number + 1 - nbEntries);
        Require(literal.EraseBefore(limit) == engine.EraseBefore(limit), "EraseBefore " + limit.ToString());
    }
    RequireSameEntries(literal, engine, "after samples came in at the end");
}

/// An empty cache is filled in random order.
template <typename Kit>
void RunRandomIntake(benchmark::State& state, std::int64_t nbEntries) {
    typename Kit::Cache cache;
    cache.SetStreamSampleRate(StreamRate());
    const auto answers = AnswersFor(Shuffled(kFirst, nbEntries));
    SetBatch(state, answers.size());
    for (auto _ : state) {
        Timed(state, [&] {
            for (const Output& answer : answers) {
                TakeIn(cache, answer);
            }
        });
        cache.Clear();
    }
}

void CheckRandomIntake(std::int64_t nbEntries) {
    LiteralKit::Cache literal;
    EngineKit::Cache engine;
    literal.SetStreamSampleRate(StreamRate());
    engine.SetStreamSampleRate(StreamRate());
    for (const std::int64_t number : Shuffled(kFirst, nbEntries)) {
        TakeIn(literal, AnswerFor(number));
        TakeIn(engine, AnswerFor(number));
    }
    RequireSameEntries(literal, engine, "after samples came in at random");
    Require(literal.FindMultiples(StreamRate()) == engine.FindMultiples(StreamRate()),
            "the samples that came in at random");
}

template <typename Cache>
std::size_t EvictLowerHalf(Cache& cache, std::int64_t nbEntries) {
    return cache.EraseBefore(StartOf(kFirst + nbEntries / 2));
}

template <typename Cache>
std::size_t EvictUpperHalf(Cache& cache, std::int64_t nbEntries) {
    return cache.EraseAfter(StartOf(kFirst + nbEntries / 2 - 1), EntryType::Not_Found);
}

template <typename Kit>
void RunEvictionAtBegin(benchmark::State& state, std::int64_t nbEntries) {
    typename Kit::Cache cache;
    Fill(cache, nbEntries);
    const std::int64_t middle = kFirst + nbEntries / 2;
    SetBatch(state, static_cast<std::size_t>(nbEntries / 2));
    for (auto _ : state) {
        Timed(state, [&] { benchmark::DoNotOptimize(EvictLowerHalf(cache, nbEntries)); });
        TakeInAll(cache, kFirst, middle);
    }
}

template <typename Kit>
void RunEvictionAtEnd(benchmark::State& state, std::int64_t nbEntries) {
    typename Kit::Cache cache;
    Fill(cache, nbEntries);
    const std::int64_t middle = kFirst + nbEntries / 2;
    SetBatch(state, static_cast<std::size_t>(nbEntries / 2));
    for (auto _ : state) {
        Timed(state, [&] { benchmark::DoNotOptimize(EvictUpperHalf(cache, nbEntries)); });
        TakeInAll(cache, middle, kFirst + nbEntries);
    }
}

void CheckEviction(std::int64_t nbEntries) {
    LiteralKit::Cache literal;
    EngineKit::Cache engine;
    Fill(literal, nbEntries);
    Fill(engine, nbEntries);
    const auto nbHalf = static_cast<std::size_t>(nbEntries / 2);
    Require(EvictLowerHalf(literal, nbEntries) == nbHalf && EvictLowerHalf(engine, nbEntries) == nbHalf,
            "EraseBefore the middle");
    TakeInAll(literal, kFirst, kFirst + nbEntries / 2);
    TakeInAll(engine, kFirst, kFirst + nbEntries / 2);
    Require(EvictUpperHalf(literal, nbEntries) == nbHalf && EvictUpperHalf(engine, nbEntries) == nbHalf,
            "EraseAfter the middle");
    RequireSameEntries(literal, engine, "after eviction at both ends");
}

template <typename Kit>
void RunFindMultiples(benchmark::State& state, std::int64_t nbEntries) {
    typename Kit::Cache cache;
    Fill(cache, nbEntries);
    for (auto _ : state) {
        benchmark::DoNotOptimize(cache.FindMultiples(StreamRate()));
    }
}

void CheckFindMultiples(std::int64_t nbEntries) {
    LiteralKit::Cache literal;
    EngineKit::Cache engine;
    Fill(literal, nbEntries);
    Fill(engine, nbEntries);
    Require(literal.FindMultiples(StreamRate()) == engine.FindMultiples(StreamRate()), "FindMultiples");
}

}  // namespace

void AddCacheCases() {
    for (const std::int64_t nb : kSizes) {
        AddLookup("Cache: exact lookup, " + Entries(nb), ExactLookup(nb));
        AddLookup("Cache: best match, sample pending, " + Entries(nb), LookupOfPending(nb));
        AddLookup("Cache: best match, wide hole, " + Entries(nb), LookupInWideHole(nb));
        AddCase(
            "Cache: intake at the end, " + Entries(nb), Timing::Own, [nb] { CheckAscendingIntake(nb); },
            [nb](benchmark::State& state, auto kit) { RunAscendingIntake<decltype(kit)>(state, nb); });
        AddCase(
            "Cache: intake in random order, " + Entries(nb), Timing::Own, [nb] { CheckRandomIntake(nb); },
            [nb](benchmark::State& state, auto kit) { RunRandomIntake<decltype(kit)>(state, nb); });
        AddCase(
            "Cache: eviction at the begin, " + Entries(nb), Timing::Own, [nb] { CheckEviction(nb); },
            [nb](benchmark::State& state, auto kit) { RunEvictionAtBegin<decltype(kit)>(state, nb); });
        AddCase(
            "Cache: eviction at the end, " + Entries(nb), Timing::Own, [nb] { CheckEviction(nb); },
            [nb](benchmark::State& state, auto kit) { RunEvictionAtEnd<decltype(kit)>(state, nb); });
        AddCase(
            "Cache: FindMultiples, " + Entries(nb), Timing::Whole, [nb] { CheckFindMultiples(nb); },
            [nb](benchmark::State& state, auto kit) { RunFindMultiples<decltype(kit)>(state, nb); });
    }
}

}  // namespace Tavrin::Player::Bench
