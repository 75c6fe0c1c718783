#include "Playout/ViewCounter.h"

#include <gtest/gtest.h>

#include <chrono>

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using Player::SampleStatus;

TrackView View(SampleStatus status) {
    TrackView view;
    view.status = status;
    return view;
}

TrackView Missing() {
    TrackView view = View(SampleStatus::Empty);
    view.missing = true;
    return view;
}

TrackView StandIn() {
    TrackView view = View(SampleStatus::NotReady);
    view.standIn = true;
    return view;
}

/// A counter and a clock, which stands still unless it is moved.
struct Counting {
    void Look(LookKind kind, const TrackView& view, WaitCause cause = WaitCause::None) {
        counter.Note(view, cause, kind, now);
    }
    void Look(LookKind kind, SampleStatus status) { Look(kind, View(status)); }

    const PictureCounters& Pictures() const { return counter.Pictures(); }

    ViewCounter::Clock::time_point now;
    ViewCounter counter{now};
};

/// Of all kinds together.
std::uint64_t Sum(const PictureCounters& pictures) {
    return pictures.nbExact + pictures.nbLate + pictures.nbRepeated + pictures.nbStoodIn +
           pictures.nbMissing + pictures.nbEmpty;
}

TEST(ViewCounter, ANewPictureIsExact) {
    Counting counting;
    counting.Look(LookKind::Tick, SampleStatus::New);
    EXPECT_EQ(counting.Pictures().nbExact, 1U);
    EXPECT_EQ(Sum(counting.Pictures()), 1U);
}

TEST(ViewCounter, TheSamePictureIsRepeated) {
    Counting counting;
    counting.Look(LookKind::Tick, SampleStatus::Same);
    EXPECT_EQ(counting.Pictures().nbRepeated, 1U);
    EXPECT_EQ(Sum(counting.Pictures()), 1U);
}

TEST(ViewCounter, APictureThatIsNotReadyIsLate) {
    Counting counting;
    counting.Look(LookKind::Tick, SampleStatus::NotReady);
    EXPECT_EQ(counting.Pictures().nbLate, 1U);
    EXPECT_EQ(Sum(counting.Pictures()), 1U);
}

TEST(ViewCounter, AnotherPictureInItsPlaceStandsIn) {
    Counting counting;
    counting.Look(LookKind::Tick, StandIn());
    EXPECT_EQ(counting.Pictures().nbStoodIn, 1U);
    EXPECT_EQ(Sum(counting.Pictures()), 1U);
}

TEST(ViewCounter, APictureThatCannotBeHadIsMissing) {
    Counting counting;
    counting.Look(LookKind::Tick, Missing());
    EXPECT_EQ(counting.Pictures().nbMissing, 1U);
    EXPECT_EQ(Sum(counting.Pictures()), 1U);
}

TEST(ViewCounter, OutsideOfTheRecordingATickIsEmpty) {
    Counting counting;
    counting.Look(LookKind::Tick, SampleStatus::Empty);
    EXPECT_EQ(counting.Pictures().nbEmpty, 1U);
    EXPECT_EQ(Sum(counting.Pictures()), 1U);
}

TEST(ViewCounter, LooksInBetweenCountNothingWhileNothingComes) {
    Counting counting;
    for (const SampleStatus status : {SampleStatus::NotReady, SampleStatus::NotReady, SampleStatus::Same}) {
        counting.Look(LookKind::Between, status);
    }
    EXPECT_EQ(Sum(counting.Pictures()), 0U);
}

TEST(ViewCounter, ALatePictureThatComesInBetweenIsExactOnce) {
    Counting counting;
    counting.Look(LookKind::Tick, SampleStatus::NotReady);
    counting.Look(LookKind::Between, SampleStatus::New);
    counting.Look(LookKind::Between, SampleStatus::Same);
    counting.Look(LookKind::InPlace, SampleStatus::Same);
    EXPECT_EQ(counting.Pictures().nbLate, 1U);
    EXPECT_EQ(counting.Pictures().nbExact, 1U);
    EXPECT_EQ(Sum(counting.Pictures()), 2U) << "two ticks of the output";
}

TEST(ViewCounter, EachTickInPlaceThatFindsNothingIsLateAgain) {
    Counting counting;
    counting.Look(LookKind::Tick, SampleStatus::NotReady);
    counting.Look(LookKind::InPlace, SampleStatus::NotReady);
    counting.Look(LookKind::InPlace, SampleStatus::NotReady);
    EXPECT_EQ(counting.Pictures().nbLate, 3U);
}

TEST(ViewCounter, AMissingPictureFoundInBetweenCountsOnce) {
    Counting counting;
    counting.Look(LookKind::Between, Missing());
    counting.Look(LookKind::Between, Missing());
    counting.Look(LookKind::InPlace, Missing());
    EXPECT_EQ(counting.Pictures().nbMissing, 1U);
}

TEST(ViewCounter, WaitingIsCountedForTheCauseThatTheLookBeforeFound) {
    Counting counting;
    counting.Look(LookKind::Tick, View(SampleStatus::NotReady), WaitCause::Storage);
    counting.now += 30ms;
    counting.Look(LookKind::Between, View(SampleStatus::NotReady), WaitCause::Decoder);
    counting.now += 5ms;
    counting.Look(LookKind::Between, View(SampleStatus::New));
    EXPECT_EQ(counting.counter.Waits().storage, 30ms);
    EXPECT_EQ(counting.counter.Waits().decoder, 5ms);
}

TEST(ViewCounter, TimeInWhichNothingIsWaitedForIsNotCounted) {
    Counting counting;
    counting.now += 1s;
    counting.Look(LookKind::Tick, SampleStatus::New);
    counting.now += 1s;
    counting.Look(LookKind::Tick, SampleStatus::New);
    EXPECT_EQ(counting.counter.Waits().storage, 0ms);
    EXPECT_EQ(counting.counter.Waits().decoder, 0ms);
}

}  // namespace
}  // namespace Tavrin::Playout
