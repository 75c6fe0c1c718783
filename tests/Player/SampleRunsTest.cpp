#include "Player/SampleRuns.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <set>
#include <vector>

#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

using Runs = std::vector<SampleRuns::Run>;

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

SampleRuns Of(const std::vector<std::int64_t>& numbers) {
    SampleRuns runs;
    for (const std::int64_t number : numbers) {
        runs.Insert(number);
    }
    return runs;
}

Runs All(const SampleRuns& runs) {
    return {runs.Runs().begin(), runs.Runs().end()};
}

TEST(SampleRuns, AnEmptySetHoldsNothing) {
    const SampleRuns runs;
    EXPECT_TRUE(runs.Runs().empty());
    EXPECT_FALSE(runs.Contains(0));
    EXPECT_EQ(runs.FirstAbsentFrom(7), 7);
    EXPECT_EQ(runs.LastAbsentUpTo(7), 7);
}

TEST(SampleRuns, NumbersSideBySideAreOneRun) {
    EXPECT_EQ(All(Of({5, 6, 7})), (Runs{{5, 7}}));
}

TEST(SampleRuns, TheOrderOfInsertionMakesNoDifference) {
    EXPECT_EQ(All(Of({7, 5, 6})), (Runs{{5, 7}}));
}

TEST(SampleRuns, ANumberInsertedTwiceIsThereOnce) {
    SampleRuns runs = Of({5, 5});
    runs.Erase(5, 5);
    EXPECT_TRUE(runs.Runs().empty());
}

TEST(SampleRuns, ANumberThatClosesAHoleJoinsTwoRuns) {
    EXPECT_EQ(All(Of({1, 2, 4, 5, 3})), (Runs{{1, 5}}));
}

TEST(SampleRuns, ErasingWithinARunSplitsIt) {
    SampleRuns runs = Of({1, 2, 3, 4, 5});
    runs.Erase(3, 3);
    EXPECT_EQ(All(runs), (Runs{{1, 2}, {4, 5}}));
}

TEST(SampleRuns, ErasingAnEndShortensTheRun) {
    SampleRuns runs = Of({1, 2, 3, 4, 5});
    runs.Erase(1, 1);
    runs.Erase(5, 5);
    EXPECT_EQ(All(runs), (Runs{{2, 4}}));
}

TEST(SampleRuns, ErasingARangeTakesOutWhatOfItIsThere) {
    SampleRuns runs = Of({1, 2, 3, 5, 6, 8, 10, 11});
    runs.Erase(3, 10);
    EXPECT_EQ(All(runs), (Runs{{1, 2}, {11, 11}}));
}

TEST(SampleRuns, ARangeThatEndsBeforeItBeginsErasesNothing) {
    SampleRuns runs = Of({1, 2, 3});
    runs.Erase(3, 2);
    EXPECT_EQ(All(runs), (Runs{{1, 3}}));
}

TEST(SampleRuns, ErasingAllNumbersThereAreDoesNotWrap) {
    SampleRuns runs = Of({kLowest, 0, kHighest});
    runs.Erase(kLowest, kHighest);
    EXPECT_EQ(All(runs), Runs());
}

TEST(SampleRuns, ErasingWhatIsNotThereChangesNothing) {
    SampleRuns runs = Of({1, 2, 4});
    runs.Erase(3, 3);
    runs.Erase(0, 0);
    runs.Erase(9, 9);
    EXPECT_EQ(All(runs), (Runs{{1, 2}, {4, 4}}));
}

TEST(SampleRuns, TheNextAbsentNumberIsBeyondTheRun) {
    const SampleRuns runs = Of({1, 2, 3, 5});
    EXPECT_EQ(runs.FirstAbsentFrom(1), 4);
    EXPECT_EQ(runs.FirstAbsentFrom(5), 6);
    EXPECT_EQ(runs.LastAbsentUpTo(3), 0);
    EXPECT_EQ(runs.LastAbsentUpTo(5), 4);
}

TEST(SampleRuns, TheHighestAndLowestNumbersDoNotWrap) {
    const SampleRuns runs = Of({kHighest, kHighest - 1, kLowest, kLowest + 1});
    EXPECT_EQ(All(runs), (Runs{{kLowest, kLowest + 1}, {kHighest - 1, kHighest}}));
    EXPECT_EQ(runs.FirstAbsentFrom(kHighest - 1), kHighest);
    EXPECT_EQ(runs.LastAbsentUpTo(kLowest + 1), kLowest);
}

/// Whether the runs are those of the set of the same numbers, none touching the next.
void ExpectSame(const SampleRuns& runs, const std::set<std::int64_t>& numbers) {
    std::set<std::int64_t> unfolded;
    for (const SampleRuns::Run& run : runs.Runs()) {
        ASSERT_LE(run.first_, run.last_);
        ASSERT_EQ(unfolded.count(run.first_ - 1), 0U) << "two runs touch at " << run.first_;
        for (std::int64_t number = run.first_; number <= run.last_; ++number) {
            unfolded.insert(unfolded.end(), number);
        }
    }
    ASSERT_EQ(unfolded, numbers);
}

TEST(SampleRuns, RandomChangesGiveWhatASetOfNumbersGives) {
    Testing::Random random(Testing::TestSeed());
    constexpr int kNbSequences = 40;
    constexpr int kNbSteps = 500;
    for (int sequence = 0; sequence < kNbSequences; ++sequence) {
        SampleRuns runs;
        std::set<std::int64_t> numbers;
        const std::int64_t range = random.Between(3, 120);
        const int insertions = static_cast<int>(random.Between(30, 95));
        for (int step = 0; step < kNbSteps; ++step) {
            const std::int64_t number = random.Between(-range, range);
            if (random.Chance(insertions)) {
                runs.Insert(number);
                numbers.insert(number);
            } else {
                const std::int64_t last = number + random.Among(std::vector<std::int64_t>{0, 0, 0, 1, 2, 9});
                runs.Erase(number, last);
                numbers.erase(numbers.lower_bound(number), numbers.upper_bound(last));
            }
            ASSERT_NO_FATAL_FAILURE(ExpectSame(runs, numbers));
            const std::int64_t asked = random.Between(-range, range);
            std::int64_t up = asked;
            std::int64_t down = asked;
            while (numbers.count(up) != 0) {
                ++up;
            }
            while (numbers.count(down) != 0) {
                --down;
            }
            ASSERT_EQ(runs.Contains(asked), numbers.count(asked) != 0) << asked;
            ASSERT_EQ(runs.FirstAbsentFrom(asked), up) << asked;
            ASSERT_EQ(runs.LastAbsentUpTo(asked), down) << asked;
        }
    }
}

}  // namespace
}  // namespace Tavrin::Player
