#include "Playout/Trace.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/TraceFile.h"

namespace Tavrin::Playout {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using Support::EventsNamed;
using Support::ReadTrace;
using Support::ThreadNames;
using Time::Ratio;
using Time::TimePoint;
namespace Clips = Support::Clips;

TEST(Trace, WithoutEventsIsAnArrayAllTheSame) {
    const std::string file = Clips::Scratch("empty.json");
    Trace(file).Close();
    const auto events = ReadTrace(file);
    EXPECT_EQ(EventsNamed(events, "process_name").size(), 1U);
}

TEST(Trace, AMarkHoldsItsCategoryAndItsArguments) {
    const std::string file = Clips::Scratch("mark.json");
    Trace trace(file);
    trace.NameThread("output");
    trace.Mark("order", "read", {{"track", 3}, {"sample", -7}});
    trace.Close();
    const auto marks = EventsNamed(ReadTrace(file), "read");
    ASSERT_EQ(marks.size(), 1U);
    EXPECT_EQ(marks[0].at("ph"), "i");
    EXPECT_EQ(marks[0].at("cat"), "order");
    EXPECT_EQ(marks[0].at("args"), (json{{"track", 3}, {"sample", -7}}));
}

TEST(Trace, ASpanLastsFromItsBeginToItsEnd) {
    const std::string file = Clips::Scratch("span.json");
    Trace trace(file);
    trace.NameThread("output");
    const auto begin = Trace::Clock::now();
    trace.Span("storage", "read", begin, begin + 1'234'567ns);
    trace.Close();
    const auto spans = EventsNamed(ReadTrace(file), "read");
    ASSERT_EQ(spans.size(), 1U);
    EXPECT_EQ(spans[0].at("ph"), "X");
    EXPECT_DOUBLE_EQ(spans[0].at("dur").get<double>(), 1234.567);
}

TEST(Trace, SpansOfScopesLieInOneAnother) {
    const std::string file = Clips::Scratch("nested.json");
    Trace trace(file);
    trace.NameThread("output");
    {
        const TraceSpan outer(&trace, "play", "outer");
        for (int i = 0; i < 100; ++i) {
            const TraceSpan inner(&trace, "play", "inner");
        }
    }
    trace.Close();
    const auto events = ReadTrace(file);
    EXPECT_EQ(EventsNamed(events, "outer").size(), 1U);
    EXPECT_EQ(EventsNamed(events, "inner").size(), 100U);
}

// What every trace here is read with has to be able to say no.
TEST(Trace, SpansThatOverlapAreFoundByThisTestsReader) {
    const std::string file = Clips::Scratch("overlapping.json");
    Trace trace(file);
    trace.NameThread("output");
    const auto begin = Trace::Clock::now();
    trace.Span("play", "first", begin, begin + 10us);
    trace.Span("play", "second", begin + 5us, begin + 15us);
    trace.Close();
    EXPECT_NONFATAL_FAILURE(static_cast<void>(ReadTrace(file)), "overlaps");
}

TEST(Trace, AThreadWithoutANameIsFoundByThisTestsReader) {
    const std::string file = Clips::Scratch("nameless.json");
    Trace trace(file);
    trace.Mark("play", "event");
    trace.Close();
    EXPECT_NONFATAL_FAILURE(static_cast<void>(ReadTrace(file)), "a thread has no name");
}

TEST(Trace, ASpanCarriesWhatIsAddedWhileItRuns) {
    const std::string file = Clips::Scratch("added.json");
    Trace trace(file);
    trace.NameThread("output");
    {
        TraceSpan span(&trace, "storage", "read", {{"track", 1}});
        span.Add({"bytes", 4096});
    }
    trace.Close();
    EXPECT_EQ(EventsNamed(ReadTrace(file), "read").at(0).at("args"), (json{{"track", 1}, {"bytes", 4096}}));
}

TEST(Trace, ArgumentsBeyondTheMostAreLeftOut) {
    const std::string file = Clips::Scratch("arguments.json");
    Trace trace(file);
    trace.NameThread("output");
    trace.Mark("play", "many", {{"a", 1}, {"b", 2}, {"c", 3}, {"d", 4}, {"e", 5}});
    trace.Close();
    EXPECT_EQ(EventsNamed(ReadTrace(file), "many").at(0).at("args").size(), Trace::kMostArguments);
}

TEST(Trace, ThreadsOfOneNameAreNumbered) {
    const std::string file = Clips::Scratch("threads.json");
    Trace trace(file);
    for (int i = 0; i < 2; ++i) {
        std::thread([&trace] {
            trace.NameThread("decoder");
            trace.NameThread("another name");
        }).join();
    }
    trace.Close();
    EXPECT_EQ(ThreadNames(ReadTrace(file)), (std::vector<std::string>{"decoder", "decoder 2", "trace"}));
}

TEST(Trace, EventsOfManyThreadsAreAllThere) {
    const std::string file = Clips::Scratch("many.json");
    constexpr std::size_t kNbThreads = 4;
    constexpr std::size_t kNbEvents = 2000;
    Trace trace(file);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kNbThreads; ++i) {
        threads.emplace_back([&trace] {
            trace.NameThread("worker");
            for (std::size_t event = 0; event < kNbEvents; ++event) {
                const TraceSpan span(&trace, "work", "work");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    trace.Close();
    EXPECT_EQ(EventsNamed(ReadTrace(file), "work").size() + trace.NbLost(), kNbThreads * kNbEvents);
    EXPECT_EQ(trace.NbLost(), 0U);
}

TEST(Trace, WhatTheBufferCannotHoldIsCountedAndSaidInTheFile) {
    const std::string file = Clips::Scratch("lost.json");
    constexpr std::size_t kNbEvents = 100'000;
    Trace trace(file, 2);
    trace.NameThread("output");
    for (std::size_t event = 0; event < kNbEvents; ++event) {
        trace.Mark("play", "event");
    }
    trace.Close();
    ASSERT_GT(trace.NbLost(), 0U) << "the writer kept up with a buffer of two events";
    const auto events = ReadTrace(file);
    std::uint64_t nbLost = 0;
    for (const json& event : EventsNamed(events, "lost")) {
        nbLost += event.at("args").at("events").get<std::uint64_t>();
    }
    EXPECT_EQ(nbLost, trace.NbLost());
    EXPECT_EQ(EventsNamed(events, "event").size() + nbLost, kNbEvents);
}

TEST(Trace, EventsAfterItsEndAreIgnored) {
    const std::string file = Clips::Scratch("closed.json");
    Trace trace(file);
    trace.Close();
    const std::string before = Clips::ReadFile(file);
    trace.Mark("play", "late");
    trace.NameThread("late");
    trace.Close();
    EXPECT_EQ(Clips::ReadFile(file), before);
}

TEST(Trace, ADestroyedOneIsWhole) {
    const std::string file = Clips::Scratch("destroyed.json");
    {
        Trace trace(file);
        trace.NameThread("output");
        trace.Mark("play", "last");
    }
    EXPECT_EQ(EventsNamed(ReadTrace(file), "last").size(), 1U);
}

TEST(Trace, AFileThatCannotBeMadeIsRefusedByName) {
    try {
        const Trace trace("/nowhere/trace.json");
        ADD_FAILURE() << "it was made";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "\"/nowhere/trace.json\": cannot be made: No such file or directory");
    }
}

TEST(Trace, ADiskThatFillsUpIsReportedAtTheEnd) {
    Trace trace("/dev/full");
    for (int event = 0; event < 1000; ++event) {
        trace.Mark("play", "event");
    }
    try {
        trace.Close();
        ADD_FAILURE() << "it was written";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "\"/dev/full\": cannot be written: No space left on device");
    }
}

TEST(TraceSpan, WithoutATraceDoesNothing) {
    TraceSpan span(nullptr, "play", "tick", {{"tick", 1}});
    span.Add({"time", 2});
}

/// What a session records.
class SessionTrace : public testing::Test {
protected:
    /// Plays it all, as fast as possible.
    static std::vector<json> Record(const std::string& clip, const Ratio& speed, ICommandSource* commands) {
        const std::string file = Clips::Scratch("session.json");
        SessionOptions options;
        options.trace = std::make_shared<Trace>(file);
        {
            Session session({RecordingIndex::Build(clip)}, options);
            PlaybackOptions playback;
            playback.speed = speed;
            Playback(session, playback).Run([](const auto&, const auto&) { return true; }, nullptr, commands);
        }
        options.trace->Close();
        EXPECT_EQ(options.trace->NbLost(), 0U);
        return ReadTrace(file);
    }

    static std::size_t NbWithout(const std::vector<json>& events, const std::string& argument) {
        return static_cast<std::size_t>(std::count_if(events.begin(), events.end(), [&](const json& event) {
            return !event.at("args").contains(argument);
        }));
    }
};

TEST_F(SessionTrace, HoldsTicksOrdersReadsAndDecodes) {
    const auto events = Record(Clips::LongGroups(), Ratio(1, 1), nullptr);
    const auto recording = RecordingIndex::Build(Clips::LongGroups());
    EXPECT_EQ(EventsNamed(events, "tick").size(), recording->NbPictures() - 1);
    std::size_t nbReads = 0;
    std::size_t nbReadOrders = 0;
    for (const json& event : EventsNamed(events, "read")) {
        ++(event.at("cat") == "storage" ? nbReads : nbReadOrders);
    }
    EXPECT_EQ(nbReads, recording->NbGroups());
    EXPECT_EQ(nbReadOrders, recording->NbPictures());
    EXPECT_GT(EventsNamed(events, "decode").size(), recording->NbPictures());
    EXPECT_FALSE(EventsNamed(events, "evict decoded").empty());
    EXPECT_FALSE(EventsNamed(events, "evict compressed").empty());
    EXPECT_EQ(NbWithout(EventsNamed(events, "decode"), "track"), 0U);
}

TEST_F(SessionTrace, NamesTheThreads) {
    const auto names = ThreadNames(Record(Clips::LongGroups(), Ratio(1, 1), nullptr));
    for (const char* name : {"decoder", "output", "reader", "trace"}) {
        EXPECT_TRUE(std::find(names.begin(), names.end(), name) != names.end()) << name;
    }
}

/// Gives its commands before the first tick.
class AtOnce final : public ICommandSource {
public:
    explicit AtOnce(std::vector<PlayCommand> commands) : commands_(std::move(commands)) {}
    std::vector<PlayCommand> Take(const TimePoint&) override { return std::exchange(commands_, {}); }
    bool IsOpen() const override { return !commands_.empty(); }

private:
    std::vector<PlayCommand> commands_;
};

TEST_F(SessionTrace, HoldsCommandsAndTheOrdersTheyWithdraw) {
    AtOnce commands({JumpTo{TimePoint().FromSeconds(1)}, SetSpeed{Ratio(-1, 1)}});
    const auto events = Record(Clips::LongGroups(), Ratio(1, 1), &commands);
    EXPECT_EQ(EventsNamed(events, "jump").size(), 1U);
    EXPECT_EQ(EventsNamed(events, "speed").size(), 1U);
    EXPECT_FALSE(EventsNamed(events, "withdraw").empty());
}

}  // namespace
}  // namespace Tavrin::Playout
