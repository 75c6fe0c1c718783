// The cache against its literal model at the size of long windows: hundreds to thousands of entries that come in any
// order, leave holes, are evicted at both ends, and stay behind where they must not be evicted.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "Player/Cache.h"
#include "Player/Support/CacheModel.h"
#include "Player/Support/CachePair.h"
#include "Player/Support/Coverage.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"
#include "Player/Support/RecordingLogger.h"

namespace Tavrin::Player {
namespace {

using Testing::CacheModel;
using Testing::CachePair;
using Testing::Coverage;
using Testing::NameOf;
using Testing::Ns;
using Testing::Random;
using Time::TimePoint;

constexpr std::int64_t kMinute = 60'000'000'000;
constexpr std::size_t kMostEntries = 4000;

const std::vector<SampleRate>& StreamRates() {
    static const std::vector<SampleRate> rates{{25, 1},       {50, 1}, {30000, 1001}, {60000, 1001},
                                               {24000, 1001}, {25, 2}, {12345, 678},  {1'000'000'000, 1}};
    return rates;
}

/// Of the same order as the stream rates and coarser, as a planner asks for them, and a few that share nothing with
/// them.
const std::vector<SampleRate>& RequestRates() {
    static const std::vector<SampleRate> rates{
        {25, 1}, {25, 2},      {25, 4},      {25, 16},      {50, 1}, {30000, 1001}, {15000, 1001},
        {7, 3},  {7500, 1001}, {12345, 678}, {12345, 1356}, {1, 1},  {1, 7},        {1'000'000'000, 1}};
    return rates;
}

enum class Order { Ascending, Descending, Shuffled, FromTheMiddle };

/// A cache that long windows pass through.
class WindowSequence {
public:
    WindowSequence(std::uint64_t seed, Coverage& coverage) : random_(seed), coverage_(coverage) {
        pair_.SetRate(random_.Among(StreamRates()));
        head_ = AnyPlace().SampleNumber(Rate());
    }

    void Run(int nbBatches) {
        for (int batch = 0; batch < nbBatches; ++batch) {
            SCOPED_TRACE(::testing::Message() << "batch " << batch);
            Batch();
            CompareAll();
            if (::testing::Test::HasFailure()) {
                return;
            }
        }
        LookUpEverything();
        pair_.Finish();
    }

private:
    const CacheModel& Model() const { return pair_.Model(); }
    const SampleRate& Rate() const { return Model().Rate(); }
    TimePoint At(std::int64_t number) const { return TimePoint::StartOfSample(number, Rate()); }

    void Batch() {
        const std::int64_t choice = random_.Between(1, 100);
        if (choice <= 23 || Model().All().empty()) {
            Fill();
        } else if (choice <= 43) {
            AnswerSome();
        } else if (choice <= 50) {
            ProtectSome();
        } else if (choice <= 62) {
            EvictAnEnd();
        } else if (choice <= 73) {
            EraseInTheMiddle();
        } else if (choice <= 78) {
            RefillHoles();
        } else if (choice <= 85) {
            Exchange();
        } else if (choice <= 91) {
            Play();
        } else if (choice <= 95) {
            Jump();
        } else if (choice <= 98) {
            ChangeRate();
        } else {
            coverage_.SawIf(Model().All().size() >= 500, "clear of a long window");
            pair_.Clear();
        }
        if (Model().All().size() > kMostEntries) {
            Shrink();
        }
        LookUps();
    }

    /// Mostly where recordings are; sometimes at the ends of time, where numbers and distances saturate.
    TimePoint AnyPlace() {
        switch (random_.Between(1, 8)) {
            case 1:
                return Ns(std::numeric_limits<std::int64_t>::min() + random_.Between(0, kMinute));
            case 2:
                return Ns(std::numeric_limits<std::int64_t>::max() - random_.Between(0, kMinute));
            case 3:
                return Ns(random_.Between(-kMinute, kMinute));
            case 4:
                return Ns(1'770'000'000'000'000'000 + random_.Between(0, kMinute));
            default:
                return Ns(random_.Between(0, 60 * kMinute));
        }
    }

    std::vector<TimePoint> Arranged(std::vector<TimePoint> tps) {
        const auto order = static_cast<Order>(random_.Between(0, 3));
        if (order == Order::Descending) {
            std::reverse(tps.begin(), tps.end());
        } else if (order == Order::Shuffled) {
            random_.Shuffle(tps);
        } else if (order == Order::FromTheMiddle) {
            const auto middle = tps.begin() + static_cast<std::ptrdiff_t>(tps.size() / 2);
            std::reverse(tps.begin(), middle);
        }
        coverage_.Saw(std::vector<const char*>{"ascending", "descending", "shuffled",
                                               "from the middle"}[static_cast<std::size_t>(order)]);
        return tps;
    }

    /// A window around, before or behind the play head, with a stride as at a high speed.
    void Fill() {
        const std::int64_t stride = random_.Among(std::vector<std::int64_t>{1, 1, 1, 2, 3, 4, 16});
        const std::int64_t nb = random_.Chance(20) ? random_.Between(1000, 2500) : random_.Between(20, 600);
        const std::int64_t first = head_ - random_.Between(0, nb) * stride;
        std::vector<TimePoint> tps;
        for (std::int64_t i = 0; i < nb; ++i) {
            tps.push_back(At(first + i * stride));
        }
        std::size_t nbNew = 0;
        for (const TimePoint& tp : Arranged(std::move(tps))) {
            nbNew += pair_.Insert(tp).first == 0 ? 1 : 0;
        }
        coverage_.SawIf(nbNew >= 15, "stride " + std::to_string(stride));
        coverage_.SawIf(nbNew > 0 && nbNew < static_cast<std::size_t>(nb), "window over a window");
    }

    std::vector<TimePoint> KeysOf(Cache::EntryType type) const {
        std::vector<TimePoint> keys;
        for (const auto& [key, entry] : Model().All()) {
            if (entry.type == type) {
                keys.push_back(key);
            }
        }
        return keys;
    }

    /// Answers what is pending: all of it, a part here and there, or all but a long run.
    void AnswerSome() {
        const std::vector<TimePoint> pending = KeysOf(Cache::Pending);
        const int percent = random_.Among(std::vector<int>{100, 100, 80, 30});
        const auto [spareFirst, spareLast] = random_.Chance(40) ? AnyRange(pending.size()) : Nothing();
        const auto [missFirst, missLast] = random_.Chance(40) ? AnyRange(pending.size()) : Nothing();
        const int percentMissing = random_.Among(std::vector<int>{0, 0, 10, 50});
        std::vector<TimePoint> answered;
        std::vector<TimePoint> missing;
        for (std::size_t i = 0; i < pending.size(); ++i) {
            const bool isSpared = (i >= spareFirst && i < spareLast) || !random_.Chance(percent);
            const bool isMissing = (i >= missFirst && i < missLast) || random_.Chance(percentMissing);
            if (!isSpared) {
                (isMissing ? missing : answered).push_back(pending[i]);
            }
        }
        Answer(Arranged(std::move(answered)), true);
        Answer(Arranged(std::move(missing)), false);
        coverage_.SawIf(spareLast - spareFirst >= 100, "pending hole of a hundred");
        coverage_.SawIf(missLast - missFirst >= 100, "missing hole of a hundred");
    }

    void Answer(const std::vector<TimePoint>& tps, bool withSample) {
        const std::int64_t atOnce = random_.Among(std::vector<std::int64_t>{1, 7, 100, 5000});
        std::int64_t nb = 0;
        for (const TimePoint& tp : tps) {
            pair_.Answer(tp, withSample);
            if (++nb % atOnce == 0) {
                File();
            }
        }
        if (random_.Chance(10) && !Model().All().empty()) {
            pair_.Answer(Model().All().begin()->first, true);  // perhaps a second answer
            pair_.Answer(At(head_ - 5000), true);              // perhaps an unknown one
        }
        File();
    }

    /// Until the queue is empty, over all the rejected answers.
    void File() {
        do {
            const auto [result, text] = pair_.Update();
            coverage_.SawIf(result < 0, result < 0 && text[0] == 'N' ? "unknown answer" : "second answer");
        } while (Model().HasAnswers() && !::testing::Test::HasFailure());
    }

    std::pair<std::size_t, std::size_t> AnyRange(std::size_t size) {
        const auto last = static_cast<std::int64_t>(size);
        const std::int64_t a = random_.Between(0, last);
        const std::int64_t b = random_.Between(0, last);
        return {static_cast<std::size_t>(std::min(a, b)), static_cast<std::size_t>(std::max(a, b))};
    }
    static std::pair<std::size_t, std::size_t> Nothing() { return {0, 0}; }

    /// Protects or releases samples scattered over the window, or side by side.
    void ProtectSome() {
        const std::vector<TimePoint> valid = KeysOf(Cache::Valid);
        const auto [first, last] = AnyRange(valid.size());
        const auto step = static_cast<std::size_t>(random_.Among(std::vector<std::int64_t>{1, 7, 50, 100}));
        const bool protects = random_.Chance(60);
        for (std::size_t i = first; i < last; i += step) {
            if (protects) {
                pair_.Protect(valid[i], random_.Chance(90) ? 1 : -1);
            } else {
                pair_.Unprotect(valid[i], 2);
            }
        }
    }

    TimePoint AnyKey() {
        const auto keys = pair_.Model().FindMultiples(SampleRate(1'000'000'000, 1));
        auto key = keys.begin();
        std::advance(key, random_.Between(0, static_cast<std::int64_t>(keys.size()) - 1));
        return Ns(*key);
    }

    /// A border at an entry or between two, or beyond all of them.
    TimePoint AnyBorder() {
        if (random_.Chance(10)) {
            return random_.Chance(50) ? Ns(std::numeric_limits<std::int64_t>::min())
                                      : TimePoint::GetHighestTimePoint();
        }
        return AnyKey() + Ns(random_.Between(-1, 1));
    }

    void EvictAnEnd() {
        const TimePoint border = AnyBorder();
        NoteKept(border);
        const bool before = random_.Chance(50);
        const std::size_t nb =
            before ? pair_.EraseBefore(border) : pair_.EraseAfter(border, Cache::Not_Found);
        coverage_.SawIf(nb >= 100, before ? "hundred evicted before" : "hundred evicted after");
    }

    /// Whether entries that stay lie among others that go, on either side of the border.
    void NoteKept(const TimePoint& border) {
        for (const auto& [key, entry] : Model().All()) {
            if (key == border) {
                continue;
            }
            const std::string side = key < border ? " before" : " after";
            coverage_.SawIf(entry.type == Cache::Pending, "pending kept" + side);
            coverage_.SawIf(entry.type == Cache::Valid && entry.sample->Counter() != 0,
                            "protected kept" + side);
            coverage_.SawIf(entry.type == Cache::Valid && key == Model().Used(), "used kept" + side);
        }
    }

    void EraseInTheMiddle() {
        const auto type = static_cast<Cache::EntryType>(random_.Between(1, 3));
        const std::size_t nb = pair_.EraseAfter(AnyBorder(), type);
        coverage_.SawIf(nb >= 10 && nb < Model().All().size(),
                        std::string("erased in the middle: ") + NameOf(type));
    }

    /// Asks again for what is not there between the first entry and the last.
    void RefillHoles() {
        const std::int64_t last = Model().GetLastEntry().SampleNumber(Rate());
        std::int64_t number = Model().GetFirstEntry().SampleNumber(Rate());
        std::vector<TimePoint> tps;
        // Bounded, for at the end of time many numbers start at the same moment.
        for (int i = 0; i < 10'000 && number < last && tps.size() < 800; ++i, ++number) {
            if (Model().All().count(At(number)) == 0 && random_.Chance(80)) {
                tps.push_back(At(number));
            }
        }
        std::size_t nbNew = 0;
        for (const TimePoint& tp : Arranged(std::move(tps))) {
            nbNew += pair_.Insert(tp).first == 0 ? 1 : 0;
        }
        coverage_.SawIf(nbNew >= 20, "holes refilled");
    }

    /// As many entries go as come, within the window: its size and its ends tell nothing of it.
    void Exchange() {
        const std::size_t nb = Model().All().size();
        const TimePoint first = Model().GetFirstEntry();
        const TimePoint last = Model().GetLastEntry();
        const SampleRate asked = Rate() * Time::Ratio(1, random_.Between(1, 2));
        pair_.CompareMultiples(asked);
        const std::vector<TimePoint> missing = KeysOf(Cache::Missing);
        pair_.EraseAfter(first, Cache::Missing);
        const std::int64_t end = last.SampleNumber(Rate());
        std::int64_t number = first.SampleNumber(Rate());
        // Bounded, for the two ends of the window may be centuries apart.
        for (int i = 0; i < 10'000 && number < end && Model().All().size() < nb; ++i, ++number) {
            if (!std::binary_search(missing.begin(), missing.end(), At(number))) {
                pair_.Insert(At(number));
            }
        }
        const bool isSame =
            Model().All().size() == nb && Model().GetFirstEntry() == first && Model().GetLastEntry() == last;
        coverage_.SawIf(isSame && !missing.empty(), "exchanged within the same ends");
        pair_.CompareMultiples(asked);  // nothing else was asked in between
    }

    void CompareMultiplesOfTheStream() {
        pair_.CompareMultiples(Rate());
        pair_.CompareMultiples(SampleRate(Rate() * Time::Ratio(1, 2)));
    }

    /// Ticks as a client makes them: one sample asked for, one answered, one looked up, the oldest let go.
    void Play() {
        const std::int64_t step = random_.Among(std::vector<std::int64_t>{1, 1, 2, 4, -1, -2});
        const std::int64_t width = random_.Between(5, 400);
        const std::int64_t delay = random_.Between(0, 30);
        const bool best = random_.Chance(50);
        for (std::int64_t tick = 0; tick < 120; ++tick) {
            head_ += step;
            pair_.Insert(At(head_ + width * step));
            const auto due = Model().All().find(At(head_ + (width - delay) * step));
            if (due != Model().All().end() && due->second.type == Cache::Pending) {
                pair_.Answer(due->first, random_.Chance(95));
                File();
            }
            if (tick % 4 == 0) {
                pair_.LookUp(At(head_), Rate(), best);
            }
            const TimePoint border = At(head_ - 10 * step);
            const std::size_t nb =
                step > 0 ? pair_.EraseBefore(border) : pair_.EraseAfter(border, Cache::Not_Found);
            coverage_.SawIf(nb > 0, step > 0 ? "played forward" : "played backward");
            if (tick % 40 == 0) {
                CompareMultiples();
            }
        }
    }

    void Jump() {
        coverage_.SawIf(Model().All().size() >= 200, "jump");
        if (random_.Chance(50)) {
            head_ += random_.Between(-3000, 3000);
        } else {
            head_ = AnyPlace().SampleNumber(Rate());
        }
    }

    void ChangeRate() {
        coverage_.SawIf(Model().All().size() >= 200, "rate changed under hundreds");
        const TimePoint place = At(head_);
        pair_.SetRate(random_.Among(StreamRates()));
        head_ = place.SampleNumber(Rate());
    }

    /// As a client does whose window has grown shorter: what cannot go stays, unless there is too much of it.
    void Shrink() {
        coverage_.Saw("shrunk");
        pair_.EraseBefore(At(head_ - 5));
        pair_.EraseAfter(At(head_ + 5), Cache::Not_Found);
        if (Model().All().size() > kMostEntries / 2) {
            pair_.Clear();
        }
    }

    /// The longest run of entries without a sample between two that have one: the two.
    std::pair<TimePoint, TimePoint> LongestHole(std::size_t& length) const {
        std::pair<TimePoint, TimePoint> longest;
        TimePoint before;
        std::size_t nb = 0;
        bool isOpen = false;
        length = 0;
        for (const auto& [key, entry] : Model().All()) {
            if (entry.type != Cache::Valid) {
                ++nb;
                continue;
            }
            if (isOpen && nb > length) {
                longest = {before, key};
                length = nb;
            }
            before = key;
            isOpen = true;
            nb = 0;
        }
        return longest;
    }

    void LookUps() {
        for (int i = 0; i < 6 && !Model().All().empty(); ++i) {
            const TimePoint tp = random_.Chance(70) ? AnyBorder() : AnyPlace();
            const bool best = random_.Chance(60);
            const Cache::EntryType type = pair_.LookUp(tp, random_.Among(RequestRates()), best);
            coverage_.Saw(std::string(best ? "best match " : "exact ") + NameOf(type));
        }
        LookUpInTheHole();
        NoteSaturation();
    }

    /// In the middle of the longest hole, where both sides may be equally near, and a little beside it.
    void LookUpInTheHole() {
        std::size_t length = 0;
        const auto [before, after] = LongestHole(length);
        if (length == 0) {
            return;
        }
        const TimePoint gap = after - before;
        const TimePoint middle = before + gap / 2;
        const SampleRate nanoseconds(1'000'000'000, 1);
        const bool ties = gap.ToNanoseconds() % 2 == 0 && Model().All().count(middle) == 0;
        coverage_.SawIf(length >= 100, "best match in a hole of a hundred");
        coverage_.SawIf(length >= 100 && ties, "tie across a hole of a hundred");
        for (const std::int64_t offset : {0, 1, -1}) {
            pair_.LookUp(middle + Ns(offset), nanoseconds, true);
        }
        pair_.LookUp(middle, Rate(), false);
    }

    /// From one end of time every entry at the other is equally far: the earliest is taken.
    void NoteSaturation() {
        for (const TimePoint& end :
             {Ns(std::numeric_limits<std::int64_t>::min()), TimePoint::GetHighestTimePoint()}) {
            std::size_t nb = 0;
            for (const auto& [key, entry] : Model().All()) {
                const bool isFar = (end - key).Abs() == TimePoint::GetHighestTimePoint();
                nb += entry.type == Cache::Valid && isFar ? 1 : 0;
            }
            if (nb >= 2) {
                pair_.LookUp(end, SampleRate(25, 1), true);
                coverage_.Saw("saturated tie");
            }
        }
    }

    void CompareMultiples() {
        pair_.CompareMultiples(Rate());
        pair_.CompareMultiples(random_.Among(RequestRates()));
    }

    void CompareAll() {
        pair_.CompareEntries();
        pair_.CompareCounts();
        CompareMultiplesOfTheStream();
        pair_.CompareMultiples(SampleRate(Rate() * Time::Ratio(1, 4)));
        pair_.CompareMultiples(random_.Among(RequestRates()));
        if (!Model().All().empty()) {
            pair_.CompareCountsFrom(AnyBorder());
        }
        coverage_.SawIf(Model().All().size() >= 1000, "a thousand entries");
    }

    void LookUpEverything() {
        const SampleRate nanoseconds(1'000'000'000, 1);
        std::size_t nb = 0;
        for (const auto& [key, entry] : Model().All()) {
            if (nb++ % 5 == 0) {
                pair_.LookUp(key, nanoseconds, false);
            }
        }
    }

    Random random_;
    Coverage& coverage_;
    CachePair pair_;
    std::int64_t head_ = 0;
};

TEST(CacheWindowModel, LongWindowsGiveWhatTheLiteralWalksGive) {
    constexpr int kNbSequences = 25;
    constexpr int kNbBatches = 40;
    const Testing::ScopedSilence silence("Cache");
    const std::uint64_t seed = Testing::TestSeed();
    Coverage coverage;
    for (int i = 0; i < kNbSequences && !HasFailure(); ++i) {
        const std::uint64_t own = seed + static_cast<std::uint64_t>(i);
        SCOPED_TRACE(::testing::Message() << "TAVRIN_TEST_SEED=" << own << " begins with this sequence");
        WindowSequence(own, coverage).Run(kNbBatches);
    }
    coverage.ExpectSeen(3, {"ascending",
                            "descending",
                            "shuffled",
                            "from the middle",
                            "stride 1",
                            "stride 2",
                            "stride 4",
                            "stride 16",
                            "window over a window",
                            "pending hole of a hundred",
                            "missing hole of a hundred",
                            "unknown answer",
                            "second answer",
                            "hundred evicted before",
                            "hundred evicted after",
                            "pending kept before",
                            "pending kept after",
                            "protected kept before",
                            "protected kept after",
                            "used kept before",
                            "used kept after",
                            "erased in the middle: Missing",
                            "erased in the middle: Valid",
                            "holes refilled",
                            "exchanged within the same ends",
                            "played forward",
                            "played backward",
                            "jump",
                            "rate changed under hundreds",
                            "clear of a long window",
                            "best match in a hole of a hundred",
                            "tie across a hole of a hundred",
                            "saturated tie",
                            "exact Valid",
                            "exact Missing",
                            "exact Pending",
                            "exact Not_Found",
                            "best match Valid",
                            "best match Pending",
                            "a thousand entries"});
    EXPECT_EQ(coverage.Count("erased in the middle: Pending"), 0U);
}

}  // namespace
}  // namespace Tavrin::Player
