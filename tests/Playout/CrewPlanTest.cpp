#include "Playout/CrewPlan.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace Tavrin::Playout {
namespace {

TEST(CrewPlan, OneTrackHasAsManyWorkersAsThereAreCores) {
    EXPECT_EQ(NbDecodeWorkersFor(1, 2), 2U);
    EXPECT_EQ(NbDecodeWorkersFor(1, 16), 16U);
}

TEST(CrewPlan, SeveralTracksHaveTwoEach) {
    EXPECT_EQ(NbDecodeWorkersFor(4, 2), 8U);
    EXPECT_EQ(NbDecodeWorkersFor(3, 2), 6U);
}

TEST(CrewPlan, ManyTracksHaveFourForEachCore) {
    EXPECT_EQ(NbDecodeWorkersFor(100, 2), 8U);
    EXPECT_EQ(NbDecodeWorkersFor(100, 1), 4U);
}

TEST(CrewPlan, OneTrackIsServedByAll) {
    EXPECT_EQ(NbDecodeCrews(2, 1, 2), 1U);
    EXPECT_EQ(NbDecodeCrews(16, 1, 16), 1U);
}

TEST(CrewPlan, TwoWorkersServeOneTrackEach) {
    EXPECT_EQ(NbDecodeCrews(8, 4, 2), 4U);
    EXPECT_EQ(NbDecodeCrews(8, 100, 2), 4U);
}

TEST(CrewPlan, FewWorkersGoApartSoThatNoCoreIsIdle) {
    EXPECT_EQ(NbDecodeCrews(2, 4, 2), 2U);
    EXPECT_EQ(NbDecodeCrews(4, 100, 4), 4U);
}

TEST(CrewPlan, EveryCrewHasAWorkerAndATrack) {
    for (std::size_t nbWorkers = 1; nbWorkers <= 20; ++nbWorkers) {
        for (std::size_t nbTracks = 1; nbTracks <= 20; ++nbTracks) {
            for (std::size_t nbCores = 1; nbCores <= 20; ++nbCores) {
                const std::size_t nbCrews = NbDecodeCrews(nbWorkers, nbTracks, nbCores);
                ASSERT_GE(nbCrews, 1U);
                ASSERT_LE(nbCrews, nbWorkers);
                ASSERT_LE(nbCrews, nbTracks);
            }
        }
    }
}

}  // namespace
}  // namespace Tavrin::Playout
