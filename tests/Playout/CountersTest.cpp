#include "Playout/Counters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>

#include "Playout/CounterTable.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/FailingStorage.h"
#include "Playout/Support/MetricsText.h"

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using Support::MetricsText;
using Support::ParseMetrics;
using Time::Ratio;
using Time::TimePoint;
namespace Clips = Support::Clips;

constexpr auto kDeadline = 60s;

/// Two tracks whose numbers are all different.
Counters Sample() {
    Counters counters;
    counters.nbTicks = 77;
    std::uint64_t value = 0;
    for (const char* file : {"left.mp4", "right.mp4"}) {
        TrackCounters track;
        track.file = file;
        track.pictures = {++value, ++value, ++value, ++value, ++value, ++value};
        track.fetches = {++value, ++value, ++value, ++value, ++value, ++value, ++value};
        track.waits = {std::chrono::milliseconds(++value), std::chrono::milliseconds(++value)};
        track.reads = {++value, ++value, ++value, ++value, ++value, {}};
        track.decodes = {++value, ++value, ++value, ++value, ++value, ++value, {}};
        track.bytes = {++value, ++value, ++value, ++value, ++value, ++value};
        track.reads.latency.Add(4ms);
        track.decodes.latency.Add(20ms);
        track.decodes.latency.Add(40ms);
        counters.tracks.push_back(track);
    }
    return counters;
}

TEST(Counters, TheSumIsThatOfEveryNumber) {
    const Counters counters = Sample();
    const TrackCounters all = counters.All();
    for (const CounterField& field : CounterFields()) {
        EXPECT_EQ(field.value(all), field.value(counters.tracks[0]) + field.value(counters.tracks[1]))
            << field.group << '.' << field.name;
    }
    EXPECT_EQ(all.reads.latency.Count(), 2U);
    EXPECT_EQ(all.decodes.latency.Sum(), 120ms);
    EXPECT_EQ(all.file, "");
}

TEST(Counters, EveryNumberHasItsOwnPlaceInTheTable) {
    // Were one listed twice or one forgotten, the numbers of a track would not all come out.
    std::multiset<std::uint64_t> found;
    for (const CounterField& field : CounterFields()) {
        const std::uint64_t value = field.value(Sample().tracks[0]);
        found.insert(field.metric->unit == CounterMetric::Unit::Seconds ? value / 1'000'000 : value);
    }
    std::multiset<std::uint64_t> expected;
    for (std::uint64_t value = 1; value <= CounterFields().size(); ++value) {
        expected.insert(value);
    }
    EXPECT_EQ(found, expected);
}

TEST(CountersAsJson, HoldEachTrackAndTheSum) {
    const json parsed = json::parse(ToJson(Sample()));
    EXPECT_EQ(parsed.at("ticks"), 77);
    ASSERT_EQ(parsed.at("tracks").size(), 2U);
    EXPECT_EQ(parsed.at("tracks").at(1).at("file"), "right.mp4");
    EXPECT_EQ(parsed.at("tracks").at(0).at("pictures").at("exact"), 1);
    EXPECT_EQ(parsed.at("tracks").at(1).at("pictures").at("exact"), 33);
    EXPECT_EQ(parsed.at("all").at("pictures").at("exact"), 34);
}

TEST(CountersAsJson, HoldEveryNumberOfTheTable) {
    const Counters counters = Sample();
    const json track = json::parse(ToJson(counters)).at("tracks").at(0);
    for (const CounterField& field : CounterFields()) {
        const auto value = static_cast<double>(field.value(counters.tracks[0]));
        const bool isTime = field.metric->unit == CounterMetric::Unit::Seconds;
        EXPECT_DOUBLE_EQ(track.at(field.group).at(field.name).get<double>(), isTime ? value / 1e9 : value)
            << field.group << '.' << field.name;
    }
}

TEST(CountersAsJson, HoldLatenciesInMilliseconds) {
    const json latency = json::parse(ToJson(Sample())).at("tracks").at(0).at("decodes").at("latency");
    EXPECT_EQ(latency.at("count"), 2);
    EXPECT_EQ(latency.at("meanMs"), 30);
    EXPECT_EQ(latency.at("maxMs"), 40);
    EXPECT_EQ(latency.at("p99Ms"), 40);
    EXPECT_NEAR(latency.at("p50Ms").get<double>(), 20, 20 / 8.0);
}

TEST(CountersAsJson, KeepNumbersThatADoubleWouldRound) {
    Counters counters = Sample();
    counters.tracks[0].bytes.read = (std::uint64_t{1} << 60) + 1;
    EXPECT_EQ(json::parse(ToJson(counters)).at("tracks").at(0).at("bytes").at("read").get<std::uint64_t>(),
              (std::uint64_t{1} << 60) + 1);
}

TEST(CountersAsJson, NeedNoFileNamesInUtf8) {
    Counters counters = Sample();
    counters.tracks[0].file = "cut\xff.mp4";
    EXPECT_EQ(json::parse(ToJson(counters)).at("tracks").at(0).at("file"), "cut\xef\xbf\xbd.mp4");
}

TEST(CountersAsMetrics, AreWhatTheFormatAsksFor) {
    EXPECT_NO_THROW(static_cast<void>(ParseMetrics(ToOpenMetrics(Sample()))));
}

TEST(CountersAsMetrics, HoldEveryNumberOfTheTable) {
    const Counters counters = Sample();
    const MetricsText metrics = ParseMetrics(ToOpenMetrics(counters));
    for (std::size_t track = 0; track < counters.tracks.size(); ++track) {
        for (const CounterField& field : CounterFields()) {
            const bool isTotal = field.metric->kind == CounterMetric::Kind::Total;
            std::string key = field.metric->name + std::string(isTotal ? "_total" : "") + "{track=\"" +
                              std::to_string(track) + '"';
            key += *field.label == '\0' ? "}"
                                        : std::string(",") + field.label + "=\"" + field.labelValue + "\"}";
            const auto value = static_cast<double>(field.value(counters.tracks[track]));
            const bool isTime = field.metric->unit == CounterMetric::Unit::Seconds;
            ASSERT_TRUE(metrics.samples.contains(key)) << key;
            EXPECT_DOUBLE_EQ(metrics.At(key), isTime ? value / 1e9 : value) << key;
        }
    }
}

TEST(CountersAsMetrics, DeclareTypesAndUnits) {
    const MetricsText metrics = ParseMetrics(ToOpenMetrics(Sample()));
    EXPECT_EQ(metrics.types.at("tavrin_pictures"), "counter");
    EXPECT_EQ(metrics.types.at("tavrin_held_bytes"), "gauge");
    EXPECT_EQ(metrics.units.at("tavrin_held_bytes"), "bytes");
    EXPECT_EQ(metrics.types.at("tavrin_read_latency_seconds"), "summary");
    EXPECT_EQ(metrics.units.at("tavrin_waiting_seconds"), "seconds");
    EXPECT_EQ(metrics.units.count("tavrin_pictures"), 0U);
}

TEST(CountersAsMetrics, HoldLatenciesAsSummariesInSeconds) {
    const MetricsText metrics = ParseMetrics(ToOpenMetrics(Sample()));
    EXPECT_EQ(metrics.At("tavrin_decode_latency_seconds_count{track=\"0\"}"), 2);
    EXPECT_DOUBLE_EQ(metrics.At("tavrin_decode_latency_seconds_sum{track=\"0\"}"), 0.06);
    EXPECT_DOUBLE_EQ(metrics.At("tavrin_decode_latency_seconds{track=\"0\",quantile=\"0.99\"}"), 0.04);
    EXPECT_NEAR(metrics.At("tavrin_decode_latency_seconds{track=\"0\",quantile=\"0.5\"}"), 0.02, 0.02 / 8);
}

TEST(CountersAsMetrics, HaveNoPercentilesOfNothing) {
    Counters counters = Sample();
    counters.tracks[0].reads.latency = {};
    const MetricsText metrics = ParseMetrics(ToOpenMetrics(counters));
    EXPECT_EQ(metrics.At("tavrin_read_latency_seconds_count{track=\"0\"}"), 0);
    EXPECT_EQ(metrics.samples.count("tavrin_read_latency_seconds{track=\"0\",quantile=\"0.5\"}"), 0U);
}

TEST(CountersAsMetrics, NameTheRecordingsOnce) {
    Counters counters = Sample();
    counters.tracks[0].file = "a \"b\"\\c\nd\xff";
    const MetricsText metrics = ParseMetrics(ToOpenMetrics(counters));
    EXPECT_EQ(metrics.types.at("tavrin_track"), "info");
    EXPECT_EQ(metrics.At("tavrin_track_info{track=\"0\",file=\"a \\\"b\\\"\\\\c\\nd\xef\xbf\xbd\"}"), 1);
    EXPECT_EQ(metrics.At("tavrin_track_info{track=\"1\",file=\"right.mp4\"}"), 1);
}

TEST(CountersAsMetrics, KeepTotalsOfMonths) {
    Counters counters = Sample();
    counters.tracks[0].bytes.read = 1'234'567'890'123'457;
    EXPECT_EQ(ParseMetrics(ToOpenMetrics(counters)).At("tavrin_read_bytes_total{track=\"0\"}"),
              1'234'567'890'123'457.0);
}

// The parser has to be able to say no.
TEST(CountersAsMetrics, TheOlderTextFormatWouldNotPass) {
    for (const char* text :
         {"# TYPE a_total counter\na_total 1\n# EOF\n", "# TYPE a counter\na_total 1\n",
          "# TYPE a counter\na 1\n# EOF\n", "# TYPE a gauge\na 1\n# TYPE b gauge\nb 1\na{c=\"d\"} 1\n# EOF\n",
          "# TYPE a gauge\n# UNIT a bytes\na 1\n# EOF\n", "# TYPE a gauge\na 1\na 1\n# EOF\n",
          "# TYPE a gauge\na{b=\"c\"d\"} 1\n# EOF\n", "# TYPE a gauge\na 1\n# EOF\n# EOF\n"}) {
        EXPECT_THROW(static_cast<void>(ParseMetrics(text)), std::runtime_error) << text;
    }
}

/// What a session counts.
class SessionCounters : public testing::Test {
protected:
    static std::shared_ptr<const RecordingIndex> LongGroups() {
        static const auto index = RecordingIndex::Build(Clips::LongGroups());
        return index;
    }

    static TimePoint MiddleOf(std::int64_t sample) {
        return LongGroups()->SampleStart(sample) + LongGroups()->SampleStart(1) / 2;
    }

    static void Settle(Session& session, TickReport report) {
        const auto deadline = std::chrono::steady_clock::now() + kDeadline;
        while (!report.IsReady()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "no picture at " << report.time;
            session.WaitForProgress(100ms);
            report = session.Tick(TimePoint());
        }
    }

    /// Waits until no answer is out.
    static void Drain(Session& session) {
        const auto deadline = std::chrono::steady_clock::now() + kDeadline;
        while (session.GetInformation(0).nbPending > 0) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "an answer never came";
            session.WaitForProgress(20ms);
            session.Tick(TimePoint());
        }
    }

    /// All pictures, in order.
    static void PlayThrough(Session& session) {
        session.GoTo(MiddleOf(0));
        Settle(session, session.Tick(TimePoint()));
        for (std::size_t picture = 1; picture < LongGroups()->NbPictures(); ++picture) {
            Settle(session, session.Tick(LongGroups()->SampleStart(1)));
        }
    }
};

TEST_F(SessionCounters, EveryPictureOfARecordingThatIsPlayedIsExactOnce) {
    Session session({LongGroups()});
    PlayThrough(session);
    const TrackCounters counters = session.GetCounters().tracks.at(0);
    EXPECT_EQ(counters.pictures.nbExact, LongGroups()->NbPictures());
    EXPECT_EQ(counters.pictures.nbRepeated, 0U);
    EXPECT_EQ(counters.pictures.nbMissing, 0U);
    EXPECT_EQ(session.GetCounters().nbTicks, LongGroups()->NbPictures() - 1)
        << "the first was looked at only";
}

TEST_F(SessionCounters, PicturesFetchedAreReadyOrEvicted) {
    Session session({LongGroups()});
    PlayThrough(session);
    Drain(session);
    const FetchCounters fetches = session.GetCounters().tracks.at(0).fetches;
    EXPECT_EQ(fetches.nbFetched, LongGroups()->NbPictures());
    EXPECT_EQ(fetches.nbFetched, fetches.nbEvicted + fetches.nbReady);
    EXPECT_GT(fetches.nbEvicted, 0U);
}

TEST_F(SessionCounters, NothingThatIsPlayedInOrderGoesUnseen) {
    Session session({LongGroups()});
    PlayThrough(session);
    EXPECT_EQ(session.GetCounters().tracks.at(0).fetches.nbEvictedUnseen, 0U);
}

TEST_F(SessionCounters, PicturesThatAJumpLeavesBehindAreEvictedUnseen) {
    Session session({LongGroups()});
    session.GoTo(MiddleOf(0));
    Settle(session, session.Tick(TimePoint()));
    Drain(session);
    const std::uint64_t nbReady = session.GetCounters().tracks.at(0).fetches.nbReady;
    ASSERT_GT(nbReady, 1U) << "only the first is on show";
    session.GoTo(MiddleOf(99));
    session.SetSpeed(Ratio(0, 1));
    Settle(session, session.Tick(TimePoint()));
    Drain(session);
    const FetchCounters fetches = session.GetCounters().tracks.at(0).fetches;
    EXPECT_GE(fetches.nbEvictedUnseen, 1U);
    EXPECT_LE(fetches.nbEvictedUnseen, fetches.nbEvicted);
}

TEST_F(SessionCounters, AReadThatIsHeldUpIsWaitedForAsStorage) {
    Session session({LongGroups()});
    const Support::FailingStorage storage(session);
    session.Tick(TimePoint());
    EXPECT_EQ(session.GetCounters().tracks.at(0).waits.storage, 0ns) << "it has only begun";
    session.Tick(TimePoint());
    EXPECT_GT(session.GetCounters().tracks.at(0).waits.storage, 0ns);
    EXPECT_EQ(session.GetCounters().tracks.at(0).waits.decoder, 0ns);
}

TEST_F(SessionCounters, FailedReadsHaveALatencyToo) {
    Session session({LongGroups()});
    const Support::FailingStorage storage(session);
    session.GoTo(MiddleOf(3));
    Settle(session, session.Tick(TimePoint()));
    Drain(session);
    const TrackCounters counters = session.GetCounters().tracks.at(0);
    EXPECT_GT(counters.reads.nbFailed, 0U);
    EXPECT_EQ(counters.reads.latency.Count(), counters.reads.nbFailed);
    EXPECT_EQ(counters.pictures.nbMissing, 1U);
}

TEST_F(SessionCounters, EachReadAndEachDecodeIsTimed) {
    Session session({LongGroups()});
    PlayThrough(session);
    Drain(session);
    const TrackCounters counters = session.GetCounters().tracks.at(0);
    EXPECT_EQ(counters.reads.latency.Count(), counters.reads.nbReads);
    EXPECT_EQ(counters.decodes.latency.Count() + counters.decodes.nbFromStore, LongGroups()->NbPictures());
    EXPECT_GT(counters.decodes.latency.Percentile(50), 0ns);
}

TEST_F(SessionCounters, AllBytesOfARecordingThatIsPlayedAreReadFromStorage) {
    Session session({LongGroups()});
    PlayThrough(session);
    std::uint64_t nbPacketBytes = 0;
    for (std::size_t packet = 0; packet < LongGroups()->NbPackets(); ++packet) {
        nbPacketBytes += static_cast<std::uint64_t>(LongGroups()->Packet(packet).size);
    }
    EXPECT_GE(session.GetCounters().tracks.at(0).bytes.read, nbPacketBytes);
}

TEST_F(SessionCounters, BytesReadyAreThoseOfThePicturesReady) {
    Session session({LongGroups()});
    const TickReport first = session.Tick(TimePoint());
    Settle(session, first);
    Drain(session);
    const TickReport report = session.Tick(TimePoint());
    const TrackCounters counters = session.GetCounters().tracks.at(0);
    EXPECT_EQ(counters.bytes.decoded, counters.fetches.nbReady * report.tracks.at(0).picture->ByteSize());
    EXPECT_GT(counters.bytes.compressed, 0U);
}

TEST_F(SessionCounters, APictureOnSeveralSamplesIsInMemoryOnce) {
    const auto recording = RecordingIndex::Build(Clips::VariableRate());
    Session session({recording});
    const TickReport first = session.Tick(TimePoint());
    Settle(session, first);
    Drain(session);
    const auto picture = session.Tick(TimePoint()).tracks.at(0).picture;
    const TrackCounters counters = session.GetCounters().tracks.at(0);
    ASSERT_GT(counters.fetches.nbReady, 0U);
    EXPECT_LT(counters.bytes.decoded, counters.fetches.nbReady * picture->ByteSize());
    EXPECT_EQ(counters.bytes.decoded % picture->ByteSize(), 0U);
}

TEST_F(SessionCounters, TracksAreCountedApart) {
    const auto brief = RecordingIndex::Build(Clips::Short());
    Session session({LongGroups(), brief});
    session.GoTo(LongGroups()->SampleStart(50));
    Settle(session, session.Tick(TimePoint()));
    Settle(session, session.Tick(LongGroups()->SampleStart(1)));
    const Counters counters = session.GetCounters();
    EXPECT_EQ(counters.tracks.at(0).file, Clips::LongGroups());
    EXPECT_EQ(counters.tracks.at(0).pictures.nbExact, 2U);
    EXPECT_EQ(counters.tracks.at(1).file, Clips::Short());
    EXPECT_EQ(counters.tracks.at(1).pictures.nbExact, 0U);
    EXPECT_EQ(counters.tracks.at(1).pictures.nbEmpty, 2U);
}

}  // namespace
}  // namespace Tavrin::Playout
