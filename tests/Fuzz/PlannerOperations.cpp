// Sequences of operations on two planners over two caches, beside the literal models of both.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "Fuzz/Support/Choices.h"
#include "Fuzz/Support/FailuresAbort.h"
#include "Player/Support/CachePair.h"
#include "Player/Support/Moments.h"
#include "Player/Support/PlannerPair.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/StubPlayer.h"

namespace Tavrin::Fuzz {
namespace {

using Player::Cache;
using Player::SampleRate;
using Player::Testing::CachePair;
using Player::Testing::Ms;
using Player::Testing::Ns;
using Player::Testing::PlannerPair;
using Player::Testing::StubPlayer;
using Time::Ratio;
using Time::TimePoint;

constexpr int kMostSteps = 300;

/// Far enough from the ends of time for the model to count beyond it.
constexpr std::int64_t kFarthest = 4'000'000'000'000'000'000;

/// More would not be walked otherwise than these.
constexpr std::int64_t kMostPreloads = 300;

const std::vector<SampleRate>& Rates() {
    static const std::vector<SampleRate> rates{{25, 1}, {50, 1}, {60, 1},      {30000, 1001}, {60000, 1001},
                                               {60, 7}, {1, 3},  {12345, 678}, {17, 13},      {0, 1}};
    return rates;
}

const std::vector<Ratio>& Speeds() {
    static const std::vector<Ratio> speeds{{1, 1},   {0, 1},  {-1, 1}, {2, 1},  {-2, 1},   {4, 1},    {1, 2},
                                           {-16, 1}, {64, 1}, {7, 3},  {-7, 3}, {1, 1000}, {-1, 1000}};
    return speeds;
}

/// One of the planners. Without a plan it is asked nothing: what it would propose then is not said anywhere.
struct Planner {
    PlannerPair pair;
    bool hasPlan = false;
};

class Sequence {
public:
    explicit Sequence(Choices& choices) : choices_(choices) {
        for (CachePair& cache : caches_) {
            cache.SetRate(AnyRate());
        }
        for (Planner& planner : planners_) {
            planner.pair.SetCache(&caches_.front());
            planner.pair.SetRates(caches_.front().Model().Rate(), AnyRate());
        }
    }

    void Run() {
        for (int step = 0; step < kMostSteps && !choices_.IsEmpty(); ++step) {
            Step(planners_[choices_.Place(planners_.size())]);
        }
    }

private:
    void Step(Planner& planner) {
        constexpr std::int64_t kLastOperation = 11;
        switch (choices_.Between(0, kLastOperation)) {
            case 0:
                return MoveTo(AnyPlace());
            case 1:
                return player_.SetSpeed(AnySpeed());
            case 2:
                return Advance();
            case 3:
                return SetRates(planner);
            case 4:
                return planner.pair.SetNumberPreloads(choices_.Between(0, kMostPreloads));
            case 5:
                return ChangeSource(planner);
            case 6:
                return Fill(AnyCache());
            case 7:
                return Thin(AnyCache());
            case 8:
                return Get(planner);
            default:
                Update(planner);
                return Get(planner);
        }
    }

    CachePair& AnyCache() { return caches_[choices_.Place(caches_.size())]; }

    /// Up to the finest rate whose samples begin in themselves.
    SampleRate AnyRate() {
        const std::size_t place = choices_.Place(Rates().size() + 1);
        if (place < Rates().size()) {
            return Rates()[place];
        }
        const std::int64_t numerator = choices_.Between(0, 1'000'000'000);
        return {numerator, choices_.Between(1, 1'000'000'000)};
    }

    /// Also one whose products do not fit.
    Ratio AnySpeed() {
        const std::size_t place = choices_.Place(Speeds().size() + 1);
        if (place < Speeds().size()) {
            return Speeds()[place];
        }
        const std::int64_t numerator = choices_.AnyNumber();
        return {numerator, choices_.Between(1, std::numeric_limits<std::int64_t>::max())};
    }

    TimePoint AnyPlace() {
        switch (choices_.Between(0, 2)) {
            case 0:
                return Ms(choices_.Between(-255, 65'280));
            case 1: {
                const SampleRate rate = AnyRate();
                return TimePoint::StartOfSample(choices_.Between(0, 65'535), rate) +
                       Ns(choices_.Between(-1, 1));
            }
            default:
                return Ns(choices_.Between(-kFarthest, kFarthest));
        }
    }

    void MoveTo(const TimePoint& tp) { player_.GoTo(tp.Abs() > Ns(kFarthest) ? TimePoint() : tp); }

    void Advance() {
        player_.Update(Ms(choices_.Between(0, 255)));
        MoveTo(player_.GetCurrentTimePoint());
    }

    void SetRates(Planner& planner) {
        const SampleRate stream = AnyRate();
        planner.pair.SetRates(stream, AnyRate());
    }

    void ChangeSource(Planner& planner) {
        const std::size_t place = choices_.Place(caches_.size() + 1);
        planner.pair.SetCache(place < caches_.size() ? &caches_[place] : nullptr);
    }

    /// Entries around the play head, at every step of so many samples.
    void Fill(CachePair& cache) {
        const SampleRate& rate = cache.Model().Rate();
        const std::int64_t head = player_.GetCurrentTimePoint().SampleNumber(rate);
        const std::int64_t first = head + choices_.Between(-64, 64);
        const std::int64_t stride = choices_.Between(1, 16);
        for (std::int64_t nb = choices_.Between(1, 32); nb > 0; --nb) {
            cache.Insert(TimePoint::StartOfSample(first + nb * stride, rate));
        }
    }

    /// Answers what waits, then takes away what lies before or after some place.
    void Thin(CachePair& cache) {
        const TimePoint place = player_.GetCurrentTimePoint() + Ms(choices_.Between(-1000, 1000));
        const std::int64_t choice = choices_.Between(0, 3);
        if (choice == 0) {
            return cache.Clear();
        }
        if (choice == 1) {
            cache.Recreate();
            return cache.SetRate(AnyRate());
        }
        for (const auto& [key, entry] : cache.Model().All()) {
            if (entry.type == Cache::Pending) {
                cache.Answer(key, true);
            }
        }
        UpdateToTheEnd(cache);
        if (choice == 2) {
            cache.EraseBefore(place);
        } else {
            cache.EraseAfter(place, Cache::Not_Found);
        }
    }

    /// Under another rate than that of the entries answers are refused, one at a time.
    static void UpdateToTheEnd(CachePair& cache) {
        while (cache.Model().HasAnswers()) {
            cache.Update();
        }
    }

    void Update(Planner& planner) {
        const bool fits = planner.pair.Update(player_);
        planner.hasPlan = fits && planner.pair.Source() != nullptr;
        if (planner.hasPlan && planner.pair.Model().HasRates()) {
            planner.pair.CompareState();
        }
    }

    /// A part of what is proposed is asked for, as a client does that has a limit of its own.
    void Get(Planner& planner) {
        if (planner.pair.Source() == nullptr) {
            EXPECT_FALSE(planner.pair.Get());
            return;
        }
        const auto nbAtMost = static_cast<std::size_t>(choices_.Between(0, 64));
        const bool isRecorded = choices_.Either();
        if (!planner.hasPlan) {
            return;
        }
        for (const TimePoint& tp : planner.pair.GetAll(nbAtMost)) {
            EXPECT_GE(tp, TimePoint());
            if (isRecorded) {
                planner.pair.Source()->Insert(tp);
            }
        }
    }

    Choices& choices_;
    std::array<CachePair, 2> caches_;
    std::array<Planner, 2> planners_;
    StubPlayer player_;
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
