#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "Support/Cases.h"
#include "Support/Suites.h"
#include "Support/Wall.h"

/// The whole tick of the output thread: the player's update and then, for each track, the intake of the
/// sample that has come, the lookup of the one under the play head, the planner, the order it leads to, and
/// the eviction behind the play head.
///
/// Workers answer between the ticks and outside of the measured time: that is other threads' work, and has
/// cases of its own.
namespace Tavrin::Player::Bench {

namespace {

struct Size {
    std::size_t nbTracks_;
    std::int64_t nbEntries_;
};

// Two lines through the field: many tracks with either window, and many windows with a hundred tracks.
constexpr Size kSizes[] = {{1, 100},     {100, 100},     {1'000, 100},    {10'000, 100}, {1, 1'000},
                           {100, 1'000}, {1'000, 1'000}, {10'000, 1'000}, {100, 10},     {100, 10'000}};

using Results = std::vector<std::int64_t>;

/// Writes down every result of a tick, sample pointers by where they lie in the arena.
class Record {
public:
    explicit Record(Results& results) : results_(&results) {}

    void operator()(const Time::TimePoint& tp) const { results_->push_back(tp.ToNanoseconds()); }
    void operator()(ISample* sample) const {
        const auto* const first = reinterpret_cast<const char*>(WallSamples().At(0));
        results_->push_back(reinterpret_cast<const char*>(sample) - first);
    }
    template <typename Number>
    requires std::is_integral_v<Number> || std::is_enum_v<Number>
    void operator()(Number number) const { results_->push_back(static_cast<std::int64_t>(number)); }

private:
    Results* results_;
};

template <typename Kit>
Results Play(std::size_t nbTracks, std::int64_t nbEntries, std::size_t nbTicks) {
    Wall<Kit> wall(nbTracks, nbEntries);
    Results results;
    for (std::size_t i = 0; i < nbTicks; ++i) {
        wall.Answer();
        wall.Tick(Record(results));
    }
    return results;
}

void Check(const Size& size) {
    // All tracks do the same, so that ten show what ten thousand do.
    const std::size_t nbTracks = std::min<std::size_t>(size.nbTracks_, 10);
    constexpr std::size_t nbTicks = 50;
    const Results results = Play<LiteralKit>(nbTracks, size.nbEntries_, nbTicks);
    // The intake, the lookup, its sample, one proposal, the eviction: five for each track and tick.
    Require(results.size() == nbTicks * 5 * nbTracks, "the number of results of a steady tick");
    Require(results == Play<EngineKit>(nbTracks, size.nbEntries_, nbTicks), "the results of a tick");
}

/// Builds the wall when the case is run first and keeps it: building a large one takes longer than all of its
/// repetitions.
template <typename Kit>
Wall<Kit>& KeptWall(std::unique_ptr<Wall<Kit>>& wall, const Size& size) {
    if (wall == nullptr) {
        wall = std::make_unique<Wall<Kit>>(size.nbTracks_, size.nbEntries_);
    }
    return *wall;
}

template <typename Kit>
void Run(benchmark::State& state, Wall<Kit>& wall) {
    for (auto _ : state) {
        wall.Answer();
        Timed(state, [&wall] { wall.Tick([](const auto& result) { benchmark::DoNotOptimize(result); }); });
    }
}

void Add(const Size& size) {
    struct Walls {
        std::unique_ptr<Wall<LiteralKit>> literal_;
        std::unique_ptr<Wall<EngineKit>> engine_;
    };
    const auto walls = std::make_shared<Walls>();
    const std::string tracks =
        size.nbTracks_ == 1 ? "1 track" : Grouped(static_cast<std::int64_t>(size.nbTracks_)) + " tracks";
    AddCase(
        "Tick: " + tracks + ", window " + Grouped(size.nbEntries_), Timing::Own, [size] { Check(size); },
        [size, walls](benchmark::State& state, auto kit) {
            if constexpr (std::is_same_v<decltype(kit), LiteralKit>) {
                Run(state, KeptWall(walls->literal_, size));
            } else {
                Run(state, KeptWall(walls->engine_, size));
            }
        });
}

}  // namespace

void AddTickCases() {
    for (const Size& size : kSizes) {
        Add(size);
    }
}

}  // namespace Tavrin::Player::Bench
