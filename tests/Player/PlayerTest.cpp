#include "Player/Player.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "Player/IPlayer.h"
#include "Player/IStream.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/ScriptedStream.h"
#include "Player/Support/Waiting.h"

namespace Tavrin::Player {
namespace {

using Clock = std::chrono::steady_clock;
using Testing::LetOthersRun;
using Testing::Ms;
using Testing::Ns;
using Testing::ScopedRecorder;
using Testing::ScopedSilence;
using Testing::ScriptedStream;
using Testing::Sec;
using Texts = std::vector<std::string>;
using Time::Ratio;
using Time::TimePoint;
using namespace qor::kp::logging;

constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

/// The number of a line "... after waiting <number> ms", or -1 when the text is not such a line.
std::int64_t WaitedMilliseconds(const std::string& text, const std::string& tp) {
    const std::string begin = "Player is now ready at " + tp + ", after waiting ";
    const std::string end = " ms";
    if (text.size() <= begin.size() + end.size() || text.compare(0, begin.size(), begin) != 0 ||
        text.compare(text.size() - end.size(), end.size(), end) != 0) {
        return -1;
    }
    const std::string number = text.substr(begin.size(), text.size() - begin.size() - end.size());
    return number.find_first_not_of("0123456789") == std::string::npos ? std::stoll(number) : -1;
}

std::int64_t MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

TEST(Player, FreshOneStandsAtTheOriginAtNormalSpeed) {
    const Player player;
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint());
    EXPECT_EQ(player.GetSpeed(), Ratio(1, 1));
}

TEST(Player, UpdateMovesAFreshOneByTheElapsedTime) {
    Player player;
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(40));
}

TEST(Player, IsUsedThroughItsInterface) {
    EXPECT_TRUE(std::has_virtual_destructor_v<IPlayer>);
    const std::unique_ptr<IPlayer> player = std::make_unique<Player>();
    ScriptedStream stream;
    player->AttachStream(&stream);
    player->SetSpeed(Ratio(2, 1));
    player->GoTo(Ms(100));
    player->Update(Ms(40));
    player->DetachStream(&stream);
    EXPECT_EQ(player->GetCurrentTimePoint(), Ms(180));
    EXPECT_EQ(player->GetSpeed(), Ratio(2, 1));
}

TEST(Player, ReferenceToTheCurrentTimePointShowsLaterMoves) {
    Player player;
    const TimePoint& current = player.GetCurrentTimePoint();
    player.GoTo(Ms(70));
    EXPECT_EQ(current, Ms(70));
}

TEST(Player, BackwardPlayMovesByDeltaTimesSpeedAndStopsAtTheOrigin) {
    Player player;
    player.GoTo(Ms(100));
    player.SetSpeed(Ratio(-2, 1));
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(20));
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint());
}

TEST(Player, BackwardPlayThatEndsExactlyAtTheOriginStandsThere) {
    Player player;
    player.GoTo(Ms(80));
    player.SetSpeed(Ratio(-2, 1));
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint());
}

TEST(Player, FractionalSpeedRoundsToTheNearestNanosecond) {
    Player player;
    player.SetSpeed(Ratio(1, 3));
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ns(13'333'333));
    player.SetSpeed(Ratio(2, 3));
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ns(13'333'333 + 26'666'667));
}

TEST(Player, ForwardAndBackByTheSameAmountReturnsToTheSamePlace) {
    Testing::Random random(Testing::TestSeed());
    Player player;
    for (int i = 0; i < 2000; ++i) {
        player.GoTo(Sec(1000));
        const Ratio speed(random.Between(1, 2000), random.Between(1, 1001));
        const TimePoint delta = Ns(random.Between(0, 100'000'000));
        player.SetSpeed(speed);
        player.Update(delta);
        player.SetSpeed(-speed);
        player.Update(delta);
        EXPECT_EQ(player.GetCurrentTimePoint(), Sec(1000)) << delta << " at " << speed;
    }
}

TEST(Player, NegativeDeltaMovesBackToTheOriginAtMost) {
    Player player;
    player.GoTo(Ms(100));
    player.Update(Ms(-40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(60));
    player.Update(Ms(-100));
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint());
}

TEST(Player, HasNoUpperEndButThatOfTime) {
    Player player;
    player.GoTo(TimePoint::GetHighestTimePoint());
    player.Update(Sec(1));
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint::GetHighestTimePoint());
    player.SetSpeed(Ratio(-kHighest, 1));
    player.Update(TimePoint::GetHighestTimePoint());
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint());
}

TEST(Player, GoToANegativeTimePointLandsOnTheOrigin) {
    Player player;
    player.GoTo(Ms(100));
    player.GoTo(Ns(-1));
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint());
}

TEST(Player, GoToLogsTheClampedTimePointAndTheSpeedAtDebug) {
    const ScopedRecorder log("Player");
    Player player;
    player.GoTo(Ms(1040));
    const auto lines = log->Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text_, "Goto 1.040000000 on speed 1/1");
    EXPECT_EQ(lines[0].level_, Level_Debug);
    EXPECT_EQ(lines[0].file_, "Player/Player");
    EXPECT_GT(lines[0].line_, 0);
    player.GoTo(Ms(-5));
    EXPECT_EQ(log->TakeTexts(), Texts{"Goto 0.000000000 on speed 1/1"});
}

TEST(Player, GoToSaysNothingAboveDebug) {
    const ScopedRecorder log("Player", static_cast<Level>(Level_Debug + 1));
    Player player;
    player.GoTo(Ms(1040));
    EXPECT_EQ(log->TakeTexts(), Texts());
}

TEST(Player, DestructionLogsPlaceAndSpeedAtInfo) {
    const ScopedRecorder log("Player", Level_Info);
    {
        Player player;
        player.GoTo(Ms(40));
        player.SetSpeed(Ratio(-3, 2));
    }
    const auto lines = log->Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text_, "Player destroyed at 0.040000000 on speed -3/2");
    EXPECT_EQ(lines[0].level_, Level_Info);
    EXPECT_EQ(lines[0].file_, "Player/Player");
}

TEST(Player, DestructionSaysNothingAboveInfo) {
    const ScopedRecorder log("Player", static_cast<Level>(Level_Info + 1));
    { const Player player; }
    EXPECT_EQ(log->TakeTexts(), Texts());
}

TEST(Player, DestructionTouchesNoStream) {
    ScriptedStream stream;
    {
        Player player;
        player.AttachStream(&stream);
    }
    EXPECT_EQ(stream.NbForeignCalls() + stream.NbReadyCalls() + stream.NbParameterCalls(), 0);
}

TEST(Player, SetSpeedLogsTheChangeAtDebug) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    player.SetSpeed(Ratio(-3, 2));
    const auto lines = log->Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text_, "Player's speed is now -1.5 -3/2 at 0.000000000");
    EXPECT_EQ(lines[0].level_, Level_Debug);
    EXPECT_EQ(lines[0].file_, "Player/Player");
    EXPECT_GT(lines[0].line_, 0);
}

TEST(Player, SetSpeedMessageTruncatesToOneDecimalTowardZero) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    player.GoTo(Ms(40));
    log->Take();
    for (const Ratio& speed : {Ratio(1, 3), Ratio(4, 1), Ratio(-1, 100), Ratio(0, 1), Ratio(-5, 3),
                               Ratio(30000, 1001), Ratio(2, 1)}) {
        player.SetSpeed(speed);
    }
    EXPECT_EQ(
        log->TakeTexts(),
        (Texts{"Player's speed is now 0.3 1/3 at 0.040000000", "Player's speed is now 4 4/1 at 0.040000000",
               "Player's speed is now 0 -1/100 at 0.040000000", "Player's speed is now 0 0/1 at 0.040000000",
               "Player's speed is now -1.6 -5/3 at 0.040000000",
               "Player's speed is now 29.9 30000/1001 at 0.040000000",
               "Player's speed is now 2 2/1 at 0.040000000"}));
}

TEST(Player, SetSpeedMessageSaturatesItsFirstNumberAtThirtyTwoBits) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    player.SetSpeed(Ratio(1'000'000'000'000, 1));
    player.SetSpeed(Ratio(-1'000'000'000'000, 1));
    player.SetSpeed(Ratio(kHighest, 1));
    EXPECT_EQ(log->TakeTexts(),
              (Texts{"Player's speed is now 2.14748e+08 1000000000000/1 at 0.000000000",
                     "Player's speed is now -2.14748e+08 -1000000000000/1 at 0.000000000",
                     "Player's speed is now 2.14748e+08 9223372036854775807/1 at 0.000000000"}));
}

TEST(Player, SetSpeedToAnEqualValueLogsNothing) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    player.SetSpeed(Ratio(2, 2));
    EXPECT_EQ(log->TakeTexts(), Texts());
    EXPECT_EQ(player.GetSpeed(), Ratio(1, 1));
}

TEST(Player, SetSpeedSaysNothingAboveDebugButChangesTheSpeed) {
    const ScopedRecorder log("Player", static_cast<Level>(Level_Debug + 1));
    Player player;
    player.SetSpeed(Ratio(2, 1));
    EXPECT_EQ(log->TakeTexts(), Texts());
    EXPECT_EQ(player.GetSpeed(), Ratio(2, 1));
}

TEST(Player, FetchesItsLoggerOnceAtConstruction) {
    const ScopedRecorder first("Player");
    Player player;
    const ScopedRecorder second("Player");
    player.GoTo(Ms(40));
    EXPECT_EQ(first->TakeTexts(), Texts{"Goto 0.040000000 on speed 1/1"});
    EXPECT_EQ(second->TakeTexts(), Texts());
}

TEST(Player, WithoutALoggerEverythingWorksInSilence) {
    const ScopedSilence silence("Player");
    ScriptedStream stream(7);
    stream.SetReady(false);
    {
        Player player;
        player.AttachStream(&stream);
        player.SetSpeed(Ratio(2, 1));
        player.GoTo(Ms(100));
        player.Update(Ms(40));
        EXPECT_EQ(player.GetCurrentTimePoint(), Ms(100));
        stream.SetReady(true);
        player.Update(Ms(40));
        EXPECT_EQ(player.GetCurrentTimePoint(), Ms(180));
    }
    EXPECT_EQ(stream.NbParameterCalls(), 0);
}

TEST(Player, AttachingAndDetachingCallsNothingOfTheStream) {
    Player player;
    ScriptedStream stream;
    player.AttachStream(&stream);
    player.DetachStream(&stream);
    player.AttachStream(&stream);
    player.DetachAllStreams();
    EXPECT_EQ(stream.NbForeignCalls() + stream.NbReadyCalls() + stream.NbParameterCalls(), 0);
}

TEST(Player, AttachingTwiceAsksTheStreamOnceAndOneDetachIsEnough) {
    Player player;
    ScriptedStream stream;
    player.AttachStream(&stream);
    player.AttachStream(&stream);
    player.Update(Ms(40));
    EXPECT_EQ(stream.NbReadyCalls(), 1);
    player.DetachStream(&stream);
    player.Update(Ms(40));
    EXPECT_EQ(stream.NbReadyCalls(), 1);
}

TEST(Player, DetachingAnUnknownStreamIsHarmless) {
    Player player;
    ScriptedStream attached;
    ScriptedStream unknown;
    player.AttachStream(&attached);
    player.DetachStream(&unknown);
    attached.SetReady(false);
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint());
}

TEST(Player, NullStreamIsIgnored) {
    Player player;
    player.AttachStream(nullptr);
    player.DetachStream(nullptr);
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(40));
    EXPECT_TRUE(player.AllDisplayedCamerasEmpty());
    player.ResetDisplayedCamerasEmptyFlag();
}

TEST(Player, DetachAllStreamsLeavesNoneToAsk) {
    Player player;
    std::array<ScriptedStream, 3> streams;
    for (ScriptedStream& stream : streams) {
        stream.SetReady(false);
        player.AttachStream(&stream);
    }
    player.DetachAllStreams();
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(40));
    for (const ScriptedStream& stream : streams) {
        EXPECT_EQ(stream.NbReadyCalls(), 0);
    }
}

TEST(Player, AsksEveryStreamBeforeItMoves) {
    Player player;
    std::array<ScriptedStream, 3> streams;
    for (ScriptedStream& stream : streams) {
        player.AttachStream(&stream);
    }
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(40));
    for (const ScriptedStream& stream : streams) {
        EXPECT_EQ(stream.NbReadyCalls(), 1);
        EXPECT_EQ(stream.NbParameterCalls() + stream.NbForeignCalls(), 0);
    }
}

TEST(Player, OneUnreadyStreamHoldsThePlayHeadAndIsNamedAtEachUpdate) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    player.GoTo(Ms(100));
    ScriptedStream stream(-7);
    stream.SetReady(false);
    player.AttachStream(&stream);
    log->Take();
    for (int i = 0; i < 3; ++i) {
        player.Update(Ms(40));
        EXPECT_EQ(player.GetCurrentTimePoint(), Ms(100));
        const auto lines = log->Take();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].text_, "Stream on track -7 not ready at 0.100000000, we don't Update");
        EXPECT_EQ(lines[0].level_, Level_Debug);
        EXPECT_EQ(lines[0].file_, "Player/Player");
        EXPECT_GT(lines[0].line_, 0);
    }
}

TEST(Player, OnlyTheFirstUnreadyStreamInAddressOrderIsNamedAndLaterOnesAreNotAsked) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    std::array<ScriptedStream, 4> streams{ScriptedStream(0), ScriptedStream(1), ScriptedStream(2),
                                          ScriptedStream(3)};
    streams[1].SetReady(false);
    streams[2].SetReady(false);
    for (const std::size_t i : {3U, 2U, 1U, 0U}) {
        player.AttachStream(&streams[i]);
    }
    player.Update(Ms(40));
    EXPECT_EQ(log->TakeTexts(), Texts{"Stream on track 1 not ready at 0.000000000, we don't Update"});
    EXPECT_EQ(streams[0].NbReadyCalls(), 1);
    EXPECT_EQ(streams[1].NbReadyCalls(), 1);
    EXPECT_EQ(streams[2].NbReadyCalls(), 0);
    EXPECT_EQ(streams[3].NbReadyCalls(), 0);
    EXPECT_EQ(streams[1].NbParameterCalls(), 1);
    EXPECT_EQ(streams[0].NbParameterCalls() + streams[2].NbParameterCalls(), 0);
}

TEST(Player, AsksNoParametersForAMessageThatIsSilenced) {
    const ScopedRecorder log("Player", static_cast<Level>(Level_Debug + 1));
    Player player;
    ScriptedStream stream;
    stream.SetReady(false);
    player.AttachStream(&stream);
    player.Update(Ms(40));
    EXPECT_EQ(stream.NbParameterCalls(), 0);
    EXPECT_EQ(log->TakeTexts(), Texts());
    EXPECT_EQ(player.GetCurrentTimePoint(), TimePoint());
}

TEST(Player, FirstUpdateThatAdvancesLogsTheEndOfTheWaitAtTheNewTimePoint) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    ScriptedStream stream;
    stream.SetReady(false);
    player.AttachStream(&stream);
    player.Update(Ms(40));
    log->Take();
    stream.SetReady(true);
    player.Update(Ms(40));
    const auto lines = log->Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_GE(WaitedMilliseconds(lines[0].text_, "0.040000000"), 0) << lines[0].text_;
    EXPECT_EQ(lines[0].level_, Level_Debug);
    EXPECT_EQ(lines[0].file_, "Player/Player");
    player.Update(Ms(40));
    EXPECT_EQ(log->TakeTexts(), Texts()) << "a wait ends once";
}

TEST(Player, WaitIsMeasuredFromItsFirstRefusedUpdateThroughLaterOnesJumpsAndSpeedChanges) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    ScriptedStream stream;
    stream.SetReady(false);
    player.AttachStream(&stream);
    const auto before = Clock::now();
    player.Update(Ms(40));
    const auto after = Clock::now();
    LetOthersRun();
    player.Update(Ms(40));
    player.GoTo(Sec(2));
    player.SetSpeed(Ratio(3, 1));
    stream.SetReady(true);
    log->Take();
    const std::int64_t least = MillisecondsSince(after);
    player.Update(Ms(40));
    const std::int64_t most = MillisecondsSince(before);
    const Texts texts = log->TakeTexts();
    ASSERT_EQ(texts.size(), 1U);
    const std::int64_t waited = WaitedMilliseconds(texts[0], "2.120000000");
    EXPECT_GE(least, 20) << "otherwise this shows nothing";
    EXPECT_GE(waited, least) << texts[0];
    EXPECT_LE(waited, most) << texts[0];
}

TEST(Player, WaitIsMeasuredAlsoWhileItsMessagesAreSilenced) {
    const ScopedRecorder log("Player", Level_Info);
    Player player;
    ScriptedStream stream;
    stream.SetReady(false);
    player.AttachStream(&stream);
    player.Update(Ms(40));
    LetOthersRun();
    stream.SetReady(true);
    log->SetLevel(Level_Debug);
    player.Update(Ms(40));
    const Texts texts = log->TakeTexts();
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_GE(WaitedMilliseconds(texts[0], "0.040000000"), 20) << texts[0];
}

TEST(Player, WaitThatEndsSilencedIsOver) {
    const ScopedRecorder log("Player", Level_Info);
    Player player;
    ScriptedStream stream;
    stream.SetReady(false);
    player.AttachStream(&stream);
    player.Update(Ms(40));
    stream.SetReady(true);
    player.Update(Ms(40));
    log->SetLevel(Level_Debug);
    player.Update(Ms(40));
    EXPECT_EQ(log->TakeTexts(), Texts());
}

TEST(Player, EachWaitHasItsOwnStart) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    ScriptedStream stream;
    player.AttachStream(&stream);
    stream.SetReady(false);
    player.Update(Ms(40));
    LetOthersRun();
    stream.SetReady(true);
    player.Update(Ms(40));
    log->Take();
    const auto before = Clock::now();
    stream.SetReady(false);
    player.Update(Ms(40));
    stream.SetReady(true);
    player.Update(Ms(40));
    const std::int64_t most = MillisecondsSince(before);
    const Texts texts = log->TakeTexts();
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_GE(WaitedMilliseconds(texts[1], "0.080000000"), 0) << texts[1];
    EXPECT_LE(WaitedMilliseconds(texts[1], "0.080000000"), most) << texts[1];
}

TEST(Player, AtSpeedZeroUpdateKeepsThePlaceButEndsAWait) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    player.GoTo(Ms(100));
    player.SetSpeed(Ratio(0, 1));
    ScriptedStream stream;
    stream.SetReady(false);
    player.AttachStream(&stream);
    player.Update(Ms(40));
    stream.SetReady(true);
    log->Take();
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(100));
    const Texts texts = log->TakeTexts();
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_GE(WaitedMilliseconds(texts[0], "0.100000000"), 0) << texts[0];
}

TEST(Player, WithoutWaitingNoStreamIsAsked) {
    Player player;
    ScriptedStream stream;
    stream.SetReady(false);
    player.AttachStream(&stream);
    player.WaitWhenStreamIsNotReady(false);
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(40));
    EXPECT_EQ(stream.NbReadyCalls(), 0);
    player.WaitWhenStreamIsNotReady(true);
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(40));
    EXPECT_EQ(stream.NbReadyCalls(), 1);
}

TEST(Player, SwitchingWaitingOffEndsAWaitAtTheNextUpdate) {
    const ScopedRecorder log("Player", Level_Debug);
    Player player;
    ScriptedStream stream;
    stream.SetReady(false);
    player.AttachStream(&stream);
    player.Update(Ms(40));
    log->Take();
    player.WaitWhenStreamIsNotReady(false);
    EXPECT_EQ(log->TakeTexts(), Texts());
    player.Update(Ms(40));
    const Texts texts = log->TakeTexts();
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_GE(WaitedMilliseconds(texts[0], "0.040000000"), 0) << texts[0];
}

TEST(Player, AllDisplayedCamerasAreEmptyWithoutStreams) {
    const Player player;
    EXPECT_TRUE(player.AllDisplayedCamerasEmpty());
}

TEST(Player, OneLinkedStreamThatShowsASampleMeansNotAllEmpty) {
    Player player;
    ScriptedStream stream;
    player.AttachStream(&stream);
    EXPECT_FALSE(player.AllDisplayedCamerasEmpty());
}

TEST(Player, UnlinkedStreamsDoNotCountAsDisplayed) {
    Player player;
    ScriptedStream stream;
    stream.SetLinked(false);
    player.AttachStream(&stream);
    EXPECT_TRUE(player.AllDisplayedCamerasEmpty());
}

TEST(Player, AllDisplayedCamerasAreEmptyOnlyWhenEveryLinkedOneIs) {
    Player player;
    std::array<ScriptedStream, 3> streams;
    for (ScriptedStream& stream : streams) {
        player.AttachStream(&stream);
    }
    streams[0].SetEmpty(true);
    streams[1].SetLinked(false);
    EXPECT_FALSE(player.AllDisplayedCamerasEmpty());
    streams[2].SetEmpty(true);
    EXPECT_TRUE(player.AllDisplayedCamerasEmpty());
}

TEST(Player, ResetDisplayedCamerasEmptyFlagResetsLinkedAndUnlinkedStreams) {
    Player player;
    std::array<ScriptedStream, 3> streams;
    for (ScriptedStream& stream : streams) {
        stream.SetEmpty(true);
    }
    streams[1].SetLinked(false);
    player.AttachStream(&streams[0]);
    player.AttachStream(&streams[1]);
    player.ResetDisplayedCamerasEmptyFlag();
    EXPECT_FALSE(streams[0].IsEmptyFlag());
    EXPECT_FALSE(streams[1].IsEmptyFlag());
    EXPECT_TRUE(streams[2].IsEmptyFlag()) << "not attached";
}

/// Wants no message, and fails the test when it gets one.
class SilentLogger final : public ILogger {
public:
    void Log(Level, const std::string& text, const char*, int) override { ADD_FAILURE() << text; }
    void SetLevel(Level) override {}
    Level GetLevel() const override { return Level_NoLog; }
};

TEST(Player, SendsNothingToALoggerThatWantsNothing) {
    const Testing::ScopedLoggerName name("Player", std::make_shared<SilentLogger>());
    ScriptedStream stream;
    Player player;
    player.AttachStream(&stream);
    player.GoTo(Ms(40));
    player.SetSpeed(Ratio(2, 1));
    stream.SetReady(false);
    player.Update(Ms(40));
    stream.SetReady(true);
    player.Update(Ms(40));
    EXPECT_EQ(player.GetCurrentTimePoint(), Ms(120));
}

TEST(Stream, IdentifierIsReadAndWritten) {
    ScriptedStream stream;
    stream.SetStreamId(12);
    EXPECT_EQ(stream.StreamId(), 12);
    stream.SetStreamId(-3);
    EXPECT_EQ(stream.StreamId(), -3);
}

TEST(Stream, EnablePreloadWritesItsFlag) {
    ScriptedStream stream;
    stream.EnablePreload(true);
    EXPECT_TRUE(stream.Preloading());
    stream.EnablePreload(false);
    EXPECT_FALSE(stream.Preloading());
}

TEST(Stream, ResetEmptyFlagClearsWhatTheImplementationSet) {
    ScriptedStream stream;
    stream.SetEmpty(true);
    EXPECT_TRUE(stream.IsEmptyFlag());
    stream.ResetEmptyFlag();
    EXPECT_FALSE(stream.IsEmptyFlag());
}

TEST(Stream, StatusesHaveTheirPublishedNumbers) {
    EXPECT_EQ(static_cast<int>(SampleStatus::New), 0);
    EXPECT_EQ(static_cast<int>(SampleStatus::New_And_Decoded), 1);
    EXPECT_EQ(static_cast<int>(SampleStatus::Same), 2);
    EXPECT_EQ(static_cast<int>(SampleStatus::Empty), 3);
    EXPECT_EQ(static_cast<int>(SampleStatus::NotReady), 4);
    EXPECT_EQ(static_cast<int>(SampleStatus::Unlinked), 5);
}

}  // namespace
}  // namespace Tavrin::Player
