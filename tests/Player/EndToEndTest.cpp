#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Player/Player.h"
#include "Player/Support/Random.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/WorkerStream.h"

// The whole road, from the play head's tick to the decoded sample under it, on the library's own doubles: the
// test is the client that drives it. After each tick it waits until the workers have answered everything.

namespace Tavrin::Player {
namespace {

using namespace qor::kp::logging;
using Testing::Ms;
using Testing::Pacing;
using Testing::Random;
using Testing::ScopedRecorder;
using Testing::Sec;
using Testing::SimulatedServer;
using Testing::SimulatedStream;
using Testing::SimulatedTrack;
using Testing::StartOf;
using Testing::TestSeed;
using Time::Ratio;
using Time::TimePoint;

const TimePoint kTick = Ms(40);

std::vector<SimulatedTrack> ThreeTracks() {
    return {{.track_ = 1, .rate_ = SampleRate(25, 1), .display_ = SampleRate(25, 1)},
            {.track_ = 2, .rate_ = SampleRate(50, 1), .display_ = SampleRate(25, 1)},
            {.track_ = 3, .rate_ = SampleRate(30000, 1001), .display_ = SampleRate(60, 1)}};
}

/// A client with a player and some streams, and the server that answers them.
class Client {
public:
    explicit Client(const std::vector<SimulatedTrack>& tracks, Pacing pacing = Pacing::AtOnce)
        : server_(pacing) {
        for (const SimulatedTrack& track : tracks) {
            streams_.push_back(server_.AddStream(track));
            streams_.back()->LinkPlayer(&player_);
            player_.AttachStream(streams_.back().get());
        }
        server_.Start();
    }

    ~Client() {
        for (const auto& stream : streams_) {
            server_.Storage().Calls(stream->Settings().track_).Release();
        }
        player_.DetachAllStreams();
        server_.Stop();
    }

    /// Lets the workers do all there is to do around the play head; false when that takes implausibly long.
    [[nodiscard]] bool Settle() {
        std::vector<SimulatedStream*> all;
        for (const auto& stream : streams_) {
            all.push_back(stream.get());
        }
        return Settle(all);
    }

    [[nodiscard]] bool Settle(const std::vector<SimulatedStream*>& streams) {
        const auto bound = std::chrono::steady_clock::now() + Testing::kFailureBound;
        while (std::chrono::steady_clock::now() < bound) {
            bool busy = false;
            for (SimulatedStream* stream : streams) {
                busy = Drive(*stream) || busy;
            }
            if (!busy) {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    /// One round of filing and ordering for each stream.
    void Drive() {
        for (const auto& stream : streams_) {
            Drive(*stream);
        }
    }

    /// Moves the play head and settles; all streams must have been ready.
    void Step() {
        player_.Update(kTick);
        ASSERT_TRUE(Settle());
    }

    Player& Head() { return player_; }
    SimulatedStream& At(std::size_t i) { return *streams_[i]; }
    const std::vector<std::unique_ptr<SimulatedStream>>& Streams() const { return streams_; }
    SimulatedServer& Server() { return server_; }

private:
    /// One round of filing and ordering; false when nothing is left to wait for.
    static bool Drive(SimulatedStream& stream) {
        stream.Intake();
        const bool hasOrdered = stream.Plan() > 0;
        return hasOrdered || stream.HasPending();
    }

    Player player_;
    SimulatedServer server_;
    std::vector<std::unique_ptr<SimulatedStream>> streams_;
};

std::int64_t NumberAtHead(Client& client, const SimulatedStream& stream) {
    return client.Head().GetCurrentTimePoint().SampleNumber(stream.NeededRate());
}

/// Expects that the stream shows the sample under the play head and not another.
void ExpectShown(Client& client, SimulatedStream& stream) {
    ISample* sample = nullptr;
    const SampleStatus status = stream.GetCurrentSample(&sample);
    ASSERT_TRUE(status == SampleStatus::New || status == SampleStatus::Same);
    EXPECT_EQ(sample->GetTimePoint().SampleNumber(stream.NeededRate()), NumberAtHead(client, stream));
}

/// Expects that all samples from `first` to `last`, as far as the stream has them, are there, and none that
/// is further than the window from the play head.
void ExpectWindow(Cache& cache, SimulatedStream& stream, std::int64_t first, std::int64_t last,
                  std::int64_t lowest, std::int64_t highest) {
    const SampleRate rate = stream.NeededRate();
    const std::set<std::int64_t> held = cache.FindMultiples(rate);
    for (std::int64_t number = std::max<std::int64_t>(first, 0); number <= last; ++number) {
        if (stream.Exists(StartOf(number, rate))) {
            EXPECT_EQ(held.count(number), 1u) << number;
        }
    }
    ASSERT_FALSE(held.empty());
    EXPECT_GE(*held.begin(), lowest);
    EXPECT_LE(*held.rbegin(), highest);
    const Cache::Information information = cache.GetInformation();
    EXPECT_EQ(information.nbValidSamples_, information.cacheSize_) << information.ToString();
    EXPECT_EQ(information.nbProtectedSamples_, 0) << information.ToString();
}

/// Expects what a stream must hold at the player's speed once it has settled.
void ExpectWindows(Client& client, SimulatedStream& stream) {
    const std::int64_t head = NumberAtHead(client, stream);
    const std::int64_t speed = client.Head().GetSpeed().Numerator();
    const SimulatedTrack& settings = stream.Settings();
    for (const bool decoded : {false, true}) {
        const std::int64_t nb = decoded ? settings.nbDecoded_ : settings.nbCompressed_;
        const std::int64_t nbWanted = speed == 0 ? nb / 2 : nb;
        Cache& cache = decoded ? stream.Decoded() : stream.Compressed();
        ExpectWindow(cache, stream, speed > 0 ? head : head - nbWanted, speed < 0 ? head : head + nbWanted,
                     head - (speed > 0 ? settings.nbBehind_ : nb),
                     head + (speed < 0 ? settings.nbBehind_ : nb));
    }
}

void ExpectEverything(Client& client) {
    for (const auto& stream : client.Streams()) {
        SCOPED_TRACE("track " + std::to_string(stream->Settings().track_) + " at " +
                     client.Head().GetCurrentTimePoint().ToString());
        ExpectShown(client, *stream);
        stream->Plan();  // with the new sample in use, the former one may go
        ExpectWindows(client, *stream);
    }
}

// ---- Several streams at one speed, with seeks -------------------------------------------------------------

class EndToEndAtSpeed : public testing::TestWithParam<Ratio> {};

std::string NameOf(const testing::TestParamInfo<Ratio>& test) {
    const std::string sign = test.param.Numerator() < 0 ? "Minus" : "";
    return sign + std::to_string(std::abs(test.param.Numerator())) + "Over" +
           std::to_string(test.param.Denominator());
}

INSTANTIATE_TEST_SUITE_P(Speed, EndToEndAtSpeed,
                         testing::Values(Ratio(1, 1), Ratio(4, 1), Ratio(-1, 1), Ratio(-2, 1), Ratio(0, 1),
                                         Ratio(1, 2)),
                         NameOf);

TEST_P(EndToEndAtSpeed, EverySampleNeededBecomesValidAndTheWindowsHold) {
    const ScopedRecorder cacheLog("Cache", Level_Warning);
    const ScopedRecorder decodeLog("DecodeThread", Level_Warning);
    Random random(TestSeed());
    Client client(ThreeTracks());
    client.Head().SetSpeed(GetParam());
    for (int seek = 0; seek < 4; ++seek) {
        client.Head().GoTo(Ms(random.Between(5'000, 50'000)));
        ASSERT_TRUE(client.Settle());
        for (int tick = 0; tick < 12; ++tick) {
            ExpectEverything(client);
            const TimePoint before = client.Head().GetCurrentTimePoint();
            client.Step();
            EXPECT_EQ(client.Head().GetCurrentTimePoint(), before + kTick * GetParam());
        }
    }
    EXPECT_TRUE(cacheLog->Take().empty());
    EXPECT_TRUE(decodeLog->Take().empty());
}

TEST(EndToEnd, ChangesOfSpeedAndSeeksInAnyOrderLeaveEverySampleNeededValid) {
    Random random(TestSeed());
    Client client(ThreeTracks());
    const std::vector<Ratio> speeds = {Ratio(1, 1),  Ratio(4, 1), Ratio(-1, 1),
                                       Ratio(-2, 1), Ratio(0, 1), Ratio(1, 2)};
    for (int change = 0; change < 25; ++change) {
        client.Head().SetSpeed(random.Among(speeds));
        if (random.Chance(40)) {
            client.Head().GoTo(Ms(random.Between(0, 60'000)));
        }
        ASSERT_TRUE(client.Settle());
        for (int tick = 0; tick < 3 && client.Head().GetCurrentTimePoint() < Sec(60); ++tick) {
            ExpectEverything(client);
            client.Step();
        }
    }
}

// ---- What is shown ----------------------------------------------------------------------------------------

/// The numbers of the samples that a stream of 25 samples per second shows in so many ticks, one for each
/// tick.
std::vector<std::int64_t> Shown(Client& client, int nbTicks) {
    std::vector<std::int64_t> numbers;
    for (int tick = 0; tick < nbTicks; ++tick) {
        EXPECT_TRUE(client.Settle());
        ISample* sample = nullptr;
        client.At(0).GetCurrentSample(&sample);
        numbers.push_back(sample == nullptr ? -1 : sample->GetTimePoint().SampleNumber(SampleRate(25, 1)));
        client.Head().Update(kTick);
    }
    return numbers;
}

std::vector<SimulatedTrack> OneTrack() {
    return {{.track_ = 1}};
}

using Numbers = std::vector<std::int64_t>;

TEST(EndToEnd, AtSpeedOneEverySampleIsShownOnceInOrder) {
    Client client(OneTrack());
    EXPECT_EQ(Shown(client, 8), Numbers({0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(EndToEnd, AtSpeedFourEveryFourthSampleIsShown) {
    Client client(OneTrack());
    client.Head().SetSpeed(Ratio(4, 1));
    EXPECT_EQ(Shown(client, 5), Numbers({0, 4, 8, 12, 16}));
}

TEST(EndToEnd, AtSpeedMinusOneEverySampleIsShownBackwardAndTheFirstOneStays) {
    Client client(OneTrack());
    client.Head().GoTo(Ms(160));
    client.Head().SetSpeed(Ratio(-1, 1));
    EXPECT_EQ(Shown(client, 7), Numbers({4, 3, 2, 1, 0, 0, 0}));
}

TEST(EndToEnd, AtSpeedMinusTwoEverySecondSampleIsShownBackward) {
    Client client(OneTrack());
    client.Head().GoTo(Ms(400));
    client.Head().SetSpeed(Ratio(-2, 1));
    EXPECT_EQ(Shown(client, 4), Numbers({10, 8, 6, 4}));
}

TEST(EndToEnd, AtHalfSpeedEverySampleIsShownTwice) {
    Client client(OneTrack());
    client.Head().SetSpeed(Ratio(1, 2));
    EXPECT_EQ(Shown(client, 6), Numbers({0, 0, 1, 1, 2, 2}));
}

TEST(EndToEnd, AtSpeedZeroThePictureStays) {
    Client client(OneTrack());
    client.Head().GoTo(Ms(400));
    client.Head().SetSpeed(Ratio(0, 1));
    EXPECT_EQ(Shown(client, 3), Numbers({10, 10, 10}));
}

TEST(EndToEnd, BeyondTheEndOfAStreamNothingIsShownAndThePlayHeadGoesOn) {
    std::vector<SimulatedTrack> tracks = OneTrack();
    tracks[0].end_ = Ms(120);
    Client client(tracks);
    EXPECT_EQ(Shown(client, 5), Numbers({0, 1, 2, -1, -1}));
    EXPECT_EQ(client.Head().GetCurrentTimePoint(), Ms(200));
    EXPECT_TRUE(client.Head().AllDisplayedCamerasEmpty());
}

TEST(EndToEnd, ATrackThatStorageCannotDeliverIsShownAsEmptyAndHoldsNobodyUp) {
    Client client({{.track_ = 1}, {.track_ = 2, .isBroken_ = true}});
    EXPECT_EQ(Shown(client, 4), Numbers({0, 1, 2, 3}));
    ISample* sample = nullptr;
    EXPECT_EQ(client.At(1).GetCurrentSample(&sample), SampleStatus::Empty);
    EXPECT_EQ(sample, nullptr);
    EXPECT_TRUE(client.At(1).IsEmptyFlag());
    EXPECT_EQ(client.Head().GetCurrentTimePoint(), Ms(160));
}

TEST(EndToEnd, AServerThatFetchesInSlotsShowsTheSame) {
    Client client(OneTrack(), Pacing::InSlots);
    EXPECT_EQ(Shown(client, 8), Numbers({0, 1, 2, 3, 4, 5, 6, 7}));
    client.Head().GoTo(Sec(20));
    client.Head().SetSpeed(Ratio(-1, 1));
    EXPECT_EQ(Shown(client, 3), Numbers({500, 499, 498}));
}

TEST(EndToEnd, StreamsGoWhileTheirOrdersAreStillOut) {
    Client client(ThreeTracks());
    client.Server().Storage().Calls(1).Hold();
    client.Drive();
    // The client's destructor lets the workers finish, stops them, and then lets the streams go.
}

// ---- Waiting ----------------------------------------------------------------------------------------------

TEST(EndToEnd, ThePlayHeadWaitsForAnUnreadyStreamAndSaysSo) {
    const ScopedRecorder log("Player", Level_Debug);
    Client client(ThreeTracks());
    client.Head().GoTo(Sec(10));
    // The held calls of one track keep all workers, so the others come first.
    ASSERT_TRUE(client.Settle({&client.At(0), &client.At(2)}));
    client.Server().Storage().Calls(2).Hold();
    log->Take();
    for (int tick = 0; tick < 3; ++tick) {
        client.Drive();
        client.Head().Update(kTick);
        EXPECT_EQ(client.Head().GetCurrentTimePoint(), Sec(10));
        EXPECT_EQ(log->TakeTexts(),
                  std::vector<std::string>{"Stream on track 2 not ready at 10.000000000, we don't Update"});
    }
    client.Server().Storage().Calls(2).Release();
    ASSERT_TRUE(client.Settle());
    client.Head().Update(kTick);
    EXPECT_EQ(client.Head().GetCurrentTimePoint(), Sec(10) + kTick);
    const std::vector<std::string> texts = log->TakeTexts();
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0].rfind("Player is now ready at 10.040000000, after waiting ", 0), 0u) << texts[0];
}

TEST(EndToEnd, APlayHeadThatDoesNotWaitGoesOnWhileAStreamIsUnready) {
    Client client(OneTrack());
    client.Head().WaitWhenStreamIsNotReady(false);
    client.Server().Storage().Calls(1).Hold();
    client.Drive();
    client.Head().Update(kTick);
    EXPECT_EQ(client.Head().GetCurrentTimePoint(), kTick);
    ISample* sample = nullptr;
    EXPECT_EQ(client.At(0).GetCurrentSample(&sample), SampleStatus::NotReady);
}

}  // namespace
}  // namespace Tavrin::Player
