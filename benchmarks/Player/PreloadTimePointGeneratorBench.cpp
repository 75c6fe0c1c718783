#include "Player/PreloadTimePointGenerator.h"

#include <cstdint>
#include <string>
#include <vector>

#include "Support/Cases.h"
#include "Support/Scene.h"
#include "Support/Suites.h"
#include "Time/Ratio.h"

namespace Tavrin::Player::Bench {

namespace {

using Time::Ratio;
using Time::TimePoint;

/// Where the play head stands at one update, and how fast it moves.
struct Moment {
    TimePoint tp_;
    Ratio speed_;
};

/// A cache and its planner: a tenth of the entries lies behind the play head, the rest ahead of it.
template <typename Kit>
class Planner {
public:
    explicit Planner(std::int64_t nbEntries) {
        Fill(cache_, nbEntries);
        generator_.SetSampleRate(StreamRate());
        generator_.SetDisplayRate(StreamRate());
        generator_.SetCache(&cache_);
        generator_.SetNumberPreloads(static_cast<std::uint64_t>(nbEntries - nbEntries / 10));
    }

    /// One update and all its proposals.
    template <typename Take>
    void Plan(const Moment& moment, Take take) {
        player_.GoTo(moment.tp_);
        player_.SetSpeed(moment.speed_);
        generator_.Update(&player_);
        TimePoint tp;
        while (generator_.Get(tp)) {
            take(tp);
        }
    }

private:
    BenchPlayer player_;
    typename Kit::Cache cache_;
    typename Kit::PreloadTimePointGenerator generator_;
};

/// The play head goes round among four samples, so that each update finds it elsewhere; two to five samples
/// ahead are not held.
std::vector<Moment> MomentsAt(std::int64_t nbEntries, const std::vector<Ratio>& speeds) {
    std::vector<Moment> moments;
    for (std::size_t i = 0; i < 4 * speeds.size(); ++i) {
        const auto step = static_cast<std::int64_t>(i % 4);
        moments.push_back({Inside(kFirst + nbEntries / 10 + 1 + step), speeds[i % speeds.size()]});
    }
    return moments;
}

std::vector<TimePoint> Proposals(auto& planner, const Moment& moment) {
    std::vector<TimePoint> proposals;
    planner.Plan(moment, [&proposals](const TimePoint& tp) { proposals.push_back(tp); });
    return proposals;
}

void Check(std::int64_t nbEntries, const std::vector<Ratio>& speeds) {
    Planner<LiteralKit> literal(nbEntries);
    Planner<EngineKit> engine(nbEntries);
    for (const Moment& moment : MomentsAt(nbEntries, speeds)) {
        const auto proposals = Proposals(literal, moment);
        Require(!proposals.empty() && proposals == Proposals(engine, moment),
                "the proposals at " + moment.tp_.ToString() + " and speed " + moment.speed_.ToString());
    }
}

template <typename Kit>
void Run(benchmark::State& state, std::int64_t nbEntries, const std::vector<Ratio>& speeds) {
    Planner<Kit> planner(nbEntries);
    Carousel<Moment> moments(MomentsAt(nbEntries, speeds));
    for (auto _ : state) {
        planner.Plan(moments.Next(), [](const TimePoint& tp) { benchmark::DoNotOptimize(tp); });
    }
}

void Add(const std::string& name, std::int64_t nbEntries, const std::vector<Ratio>& speeds) {
    AddCase(
        "Planner: " + name + ", " + Entries(nbEntries) + " held", Timing::Whole,
        [=] { Check(nbEntries, speeds); },
        [=](benchmark::State& state, auto kit) { Run<decltype(kit)>(state, nbEntries, speeds); });
}

}  // namespace

void AddPreloadTimePointGeneratorCases() {
    // Two thirds of them halve the preload rate once or twice, by which a sample that is held covers more.
    const std::vector<Ratio> changing = {Ratio(1, 1), Ratio(11, 10), Ratio(5, 2),
                                         Ratio(4, 5), Ratio(2, 1),   Ratio(3, 1)};
    for (const std::int64_t nbEntries : {100, 1'000}) {
        Add("update and all proposals", nbEntries, {Ratio(1, 1)});
        Add("the same at a speed that changes", nbEntries, changing);
    }
}

}  // namespace Tavrin::Player::Bench
