// Sequences of operations on a cache, beside the literal model of its rules.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <set>
#include <vector>

#include "Fuzz/Support/Choices.h"
#include "Fuzz/Support/FailuresAbort.h"
#include "Player/Cache.h"
#include "Player/SampleRuns.h"
#include "Player/Support/CachePair.h"
#include "Player/Support/Moments.h"
#include "Player/Support/RecordingLogger.h"

namespace Tavrin::Fuzz {
namespace {

using Player::Cache;
using Player::SampleRate;
using Player::SampleRuns;
using Player::Testing::CachePair;
using Player::Testing::Ns;
using Time::TimePoint;

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

/// What a sequence finds it finds among a few hundred entries: more only make each of them slow.
constexpr int kMostSteps = 300;

const std::vector<SampleRate>& Rates() {
    static const std::vector<SampleRate> rates{
        {25, 1}, {50, 1},       {30000, 1001}, {15000, 1001}, {25, 2},
        {25, 4}, {1, 1},        {1, 7},        {12345, 678},  {1'000'000'000, 1},
        {0, 1},  {1, kHighest}, {kHighest, 1}, {kHighest, 2}};
    return rates;
}

/// The numbers of the runs, one by one.
std::set<std::int64_t> Numbers(const SampleRuns& runs) {
    std::set<std::int64_t> numbers;
    for (const SampleRuns::Run& run : runs.Runs()) {
        // Written so that a run that ends with the highest number ends, too.
        for (std::int64_t left = run.last_ - run.first_; left >= 0; --left) {
            numbers.insert(run.last_ - left);
        }
    }
    return numbers;
}

class Sequence {
public:
    explicit Sequence(Choices& choices) : choices_(choices) { pair_.SetRate(AnyRate()); }

    void Run() {
        for (int step = 0; step < kMostSteps && !choices_.IsEmpty(); ++step) {
            Step();
            pair_.CompareCounts();
            EXPECT_EQ(Numbers(pair_.Engine().FindRuns(runsRate_)), pair_.Model().FindMultiples(runsRate_));
        }
        pair_.CompareMultiples(SampleRate(1'000'000'000, 1));
        pair_.CompareEntries();
        pair_.Finish();
    }

private:
    void Step() {
        constexpr std::int64_t kLastOperation = 15;
        switch (choices_.Between(0, kLastOperation)) {
            case 0:
            case 1:
            case 2:
                return InsertSome();
            case 3:
                return static_cast<void>(pair_.Insert(AnyTimePoint()));
            case 4:
            case 5:
                return AnswerPending();
            case 6:
                return pair_.Answer(AnyTimePoint(), choices_.Either());
            case 7:
                return static_cast<void>(pair_.Update());
            case 8:
                return LookUp();
            case 9:
                return Protect();
            case 10:
                return static_cast<void>(pair_.EraseBefore(AnyTimePoint()));
            case 11:
                return static_cast<void>(
                    pair_.EraseAfter(AnyTimePoint(), static_cast<Cache::EntryType>(choices_.Between(0, 3))));
            case 12:
                return pair_.SetRate(AnyRate());
            case 13:
                runsRate_ = AnyRate();
                return;
            case 14:
                return pair_.CompareCountsFrom(AnyTimePoint());
            default:
                return StartAnew();
        }
    }

    /// Also of terms that nobody uses: between the two there is nothing that the cache could not be asked for.
    SampleRate AnyRate() {
        const std::size_t place = choices_.Place(Rates().size() + 1);
        if (place < Rates().size()) {
            return Rates()[place];
        }
        const std::int64_t numerator = choices_.Between(0, kHighest);
        return {numerator, choices_.Between(1, kHighest)};
    }

    TimePoint AnyTimePoint() {
        switch (choices_.Between(0, 5)) {
            case 0:
                return AnyKey() + Ns(choices_.Between(-1, 1));
            case 1: {
                // Halfway between two entries, where distances tie.
                const std::int64_t a = AnyKey().ToNanoseconds() / 2;
                return Ns(a + AnyKey().ToNanoseconds() / 2);
            }
            case 2:
                return GridStart();
            case 3:
                return Ns(kLowest + choices_.Between(0, 255));
            case 4:
                return Ns(kHighest - choices_.Between(0, 255));
            default:
                return Ns(choices_.AnyNumber());
        }
    }

    /// The origin when there is no entry.
    TimePoint AnyKey() {
        const auto& entries = pair_.Model().All();
        if (entries.empty()) {
            return {};
        }
        return std::next(entries.begin(), static_cast<std::ptrdiff_t>(choices_.Place(entries.size())))->first;
    }

    TimePoint GridStart() {
        return TimePoint::StartOfSample(choices_.Between(-100, 155), pair_.Model().Rate());
    }

    void InsertSome() {
        const std::int64_t first = choices_.Between(-100, 155);
        const std::int64_t nb = choices_.Between(1, 8);
        for (std::int64_t number = first; number < first + nb; ++number) {
            pair_.Insert(TimePoint::StartOfSample(number, pair_.Model().Rate()));
        }
    }

    /// From one of the entries on, so many that wait are answered, each at some place inside its sample.
    void AnswerPending() {
        const TimePoint from = AnyKey();
        const TimePoint inside = Ns(choices_.Between(0, 255) * 100'000);
        std::int64_t nb = choices_.Between(1, 16);
        const bool withSample = choices_.Either();
        const auto& entries = pair_.Model().All();
        for (auto item = entries.lower_bound(from); item != entries.end() && nb > 0; ++item) {
            if (item->second.type == Cache::Pending) {
                pair_.Answer(item->first + inside, withSample);
                --nb;
            }
        }
        pair_.Update();
    }

    void LookUp() {
        const TimePoint tp = AnyTimePoint();
        const SampleRate rate = AnyRate();
        pair_.LookUp(tp, rate, choices_.Either());
    }

    void Protect() {
        const TimePoint key = AnyKey();
        const auto& entries = pair_.Model().All();
        const std::int64_t protection = choices_.Between(-2, 2);
        const bool isReleased = choices_.Either();
        if (entries.empty() || entries.at(key).type != Cache::Valid) {
            return;
        }
        if (isReleased) {
            pair_.Unprotect(key, std::abs(protection));
        } else {
            pair_.Protect(key, protection);
        }
    }

    void StartAnew() {
        if (choices_.Either()) {
            pair_.Clear();
        } else {
            pair_.Recreate();
            pair_.SetRate(AnyRate());
        }
    }

    Choices& choices_;
    CachePair pair_;
    SampleRate runsRate_{25, 1};
};

}  // namespace
}  // namespace Tavrin::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Tavrin::Player::Testing::ScopedSilence silence("Cache");
    Tavrin::Fuzz::FailuresAbort::Install();
    Tavrin::Fuzz::Choices choices(data, size);
    Tavrin::Fuzz::Sequence(choices).Run();
    return 0;
}
