#include "Playout/MemoryPlan.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

std::shared_ptr<const RecordingIndex> Groups() {
    static const auto index = RecordingIndex::Build(Support::Clips::LongGroups());
    return index;
}

TrackNeeds Needs(std::size_t least, std::size_t usual) {
    TrackNeeds needs;
    needs.least = least;
    needs.usual = usual;
    return needs;
}

std::string ErrorOf(std::size_t total, const std::vector<TrackNeeds>& needs,
                    const std::vector<std::size_t>& weights) {
    try {
        static_cast<void>(ShareMemory(total, needs, weights));
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

TEST(MemoryPlan, LeastHoldsPacketsWorkAndAFewPictures) {
    const TrackNeeds needs = NeedsOf(*Groups(), {2, 1});
    EXPECT_GT(needs.picture, 0U);
    EXPECT_GT(needs.packets, 0U);
    EXPECT_GT(needs.working, 2 * needs.picture);
    EXPECT_GT(needs.least, needs.packets + needs.working);
    EXPECT_GT(needs.usual, needs.least);
}

TEST(MemoryPlan, UsualIsAtLeastTwoGroups) {
    const TrackNeeds needs = NeedsOf(*Groups(), {2, 1});
    EXPECT_GE(needs.usual, 2 * 25 * needs.picture);
}

TEST(MemoryPlan, MoreDecodersNeedMore) {
    EXPECT_GT(NeedsOf(*Groups(), {2, 1}).least, NeedsOf(*Groups(), {1, 1}).least);
    EXPECT_GT(NeedsOf(*Groups(), {2, 2}).least, NeedsOf(*Groups(), {2, 1}).least);
}

TEST(MemoryPlan, PicturesByThemselvesAreDecodedSideBySide) {
    const auto intra = RecordingIndex::Build(Support::Clips::IntraOnlyH264());
    EXPECT_EQ(PlanLanes(*intra, 1, 5).nbLanes, 5U);
    EXPECT_EQ(PlanLanes(*intra, 1, 5).nbThreads, 1);
    EXPECT_EQ(PlanLanes(*Groups(), 1, 5).nbLanes, 2U);
}

TEST(MemoryPlan, TheThreadsOfADecoderShareTheCores) {
    EXPECT_EQ(PlanLanes(*Groups(), 1, 8).nbThreads, 8);
    EXPECT_EQ(PlanLanes(*Groups(), 4, 8).nbThreads, 2);
}

TEST(MemoryPlan, ManyTracksHaveOneThreadADecoder) {
    EXPECT_EQ(PlanLanes(*Groups(), 1000, 2).nbThreads, 1);
}

TEST(MemoryPlan, EachGetsItsLeastAndItsPartOfTheRest) {
    const auto shares = ShareMemory(1000, {Needs(100, 0), Needs(300, 0)}, {1, 2});
    EXPECT_EQ(shares, (std::vector<std::size_t>{300, 700}));
}

TEST(MemoryPlan, SharesNeverExceedTheTotal) {
    for (std::size_t total = 600; total < 700; ++total) {
        const auto shares = ShareMemory(total, {Needs(100, 0), Needs(200, 0), Needs(300, 0)}, {3, 1, 7});
        EXPECT_LE(std::accumulate(shares.begin(), shares.end(), std::size_t{0}), total);
    }
}

TEST(MemoryPlan, TooLittleIsRefusedWithTheNumberThatWouldDo) {
    const std::size_t mebibyte = std::size_t{1} << 20U;
    EXPECT_EQ(ErrorOf(3 * mebibyte, {Needs(2 * mebibyte, 0), Needs(3 * mebibyte, 0)}, {1, 1}),
              "a memory budget of 3 MiB is too small to play 2 tracks: it takes at least 5 MiB");
    EXPECT_EQ(ErrorOf(5 * mebibyte, {Needs(2 * mebibyte, 0), Needs(3 * mebibyte, 0)}, {1, 1}), "");
}

TEST(MemoryPlan, WeightOfZeroIsRefused) {
    EXPECT_NE(ErrorOf(100, {Needs(1, 0), Needs(1, 0)}, {1, 0}), "");
}

TEST(MemoryPlan, DefaultIsTheUsualButNeverTooLittle) {
    EXPECT_EQ(DefaultMemory({Needs(10, 100), Needs(20, 200)}), 300U);
    const std::size_t beyondAnyMachine = std::size_t{1} << 60U;
    EXPECT_LT(DefaultMemory({Needs(10, beyondAnyMachine)}), beyondAnyMachine);
    EXPECT_EQ(DefaultMemory({Needs(beyondAnyMachine, beyondAnyMachine)}), beyondAnyMachine);
}

}  // namespace
}  // namespace Tavrin::Playout
