#include "Playout/CellState.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <vector>

#include "Player/Cache.h"
#include "Player/FakeSample.h"
#include "Player/Output.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

using Player::Cache;
using Player::FakeSample;
using Player::SampleRate;
using Time::TimePoint;
using States = std::vector<CellState>;
using enum CellState;

const SampleRate kRate(25, 1);

TimePoint Sample(std::int64_t number) {
    return TimePoint::StartOfSample(number, kRate);
}

/// Two caches of a stream at 25 per second.
class CellStates : public testing::Test {
protected:
    CellStates() {
        compressed_.SetStreamSampleRate(kRate);
        decoded_.SetStreamSampleRate(kRate);
    }

    static void Ask(Cache& cache, std::int64_t number) {
        EXPECT_FALSE(cache.InsertPendingEntry(Sample(number)));
    }

    static void Answer(Cache& cache, std::int64_t number, FakeSample* sample) {
        Ask(cache, number);
        Player::Output output;
        output.tp_ = Sample(number);
        output.sample_ = sample;
        cache.GetQueue()->Push(output);
        cache.Update();
    }

    /// The cache owns it.
    static FakeSample* Make(std::int64_t number) { return new FakeSample(Sample(number), Sample(1)); }

    States Of(std::int64_t from, std::int64_t to, std::size_t nbCells) {
        return CellStatesOf({compressed_, decoded_, kRate, fetched_, {}},
                            {Sample(from), Sample(to), nbCells});
    }

    Cache compressed_;
    Cache decoded_;
    SampleRate fetched_ = kRate;
};

TEST_F(CellStates, AreAbsentWhereNothingIsKnown) {
    EXPECT_EQ(Of(0, 4, 4), (States{Absent, Absent, Absent, Absent}));
}

TEST_F(CellStates, TellWhatBecameOfEachSample) {
    Ask(decoded_, 1);
    Answer(decoded_, 2, Make(2));
    Answer(decoded_, 3, nullptr);
    EXPECT_EQ(Of(0, 5, 5), (States{Absent, AskedFor, Ready, Missing, Absent}));
}

TEST_F(CellStates, TellOfSamplesThatAreNotDecodedYet) {
    Ask(compressed_, 0);
    Answer(compressed_, 1, Make(1));
    Answer(compressed_, 2, nullptr);
    EXPECT_EQ(Of(0, 4, 4), (States{AskedFor, AskedFor, Missing, Absent}));
}

TEST_F(CellStates, TellOfTheDecodedSampleWhereThereAreBoth) {
    Answer(compressed_, 0, Make(0));
    Answer(decoded_, 0, Make(0));
    EXPECT_EQ(Of(0, 1, 1), States{Ready});
}

TEST_F(CellStates, AreProtectedForAsLongAsTheSampleIs) {
    FakeSample* const sample = Make(1);
    Answer(decoded_, 1, sample);
    sample->Protect(1);
    EXPECT_EQ(Of(0, 2, 2), (States{Absent, Protected}));
    sample->Unprotect(1);
    EXPECT_EQ(Of(0, 2, 2), (States{Absent, Ready}));
}

TEST_F(CellStates, OfSeveralSamplesInACellTheOneThatSaysMostCounts) {
    Answer(decoded_, 0, Make(0));
    Ask(decoded_, 1);
    Ask(decoded_, 4);
    Answer(decoded_, 7, nullptr);
    Answer(decoded_, 8, Make(8));
    EXPECT_EQ(Of(0, 9, 3), (States{Ready, AskedFor, Missing}));
}

TEST_F(CellStates, OfOneSampleInSeveralCellsAllTellTheSame) {
    Answer(decoded_, 1, Make(1));
    EXPECT_EQ(Of(0, 3, 6), (States{Absent, Absent, Ready, Ready, Absent, Absent}));
}

TEST_F(CellStates, LeaveOutWhatLiesOutsideOfTheRange) {
    Answer(decoded_, 1, Make(1));
    Answer(decoded_, 8, Make(8));
    EXPECT_EQ(Of(2, 4, 2), (States{Absent, Absent}));
}

TEST_F(CellStates, AtACoarserRateAnEntryStandsForAllTheSamplesUpToTheNext) {
    fetched_ = SampleRate(25, 4);
    Answer(decoded_, 4, Make(4));
    EXPECT_EQ(Of(0, 12, 12), (States{Absent, Absent, Absent, Absent, Ready, Ready, Ready, Ready, Absent,
                                     Absent, Absent, Absent}));
}

TEST_F(CellStates, NeedARangeWithCells) {
    EXPECT_THROW(Of(0, 0, 1), std::invalid_argument);
    EXPECT_THROW(Of(2, 1, 1), std::invalid_argument);
    EXPECT_THROW(Of(0, 1, 0), std::invalid_argument);
}

TEST_F(CellStates, ASessionTellsWhatIsReadyAroundThePlayHead) {
    const auto recording = RecordingIndex::Build(Support::Clips::ClosedGroups());
    Session session({recording});
    session.SetSpeed(Time::Ratio());
    const CellRange all{{}, session.End(), recording->NbPictures()};
    EXPECT_EQ(session.CellStates(0, all), States(recording->NbPictures(), Absent));
    session.GoTo(recording->SampleStart(30));
    session.Tick(TimePoint());
    EXPECT_EQ(session.CellStates(0, all).at(30), AskedFor);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!session.Tick(TimePoint()).IsReady()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        session.WaitForProgress(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(session.CellStates(0, all).at(30), Protected) << "it is on show";
}

}  // namespace
}  // namespace Tavrin::Playout
