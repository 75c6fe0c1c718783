// A message that the logger's level silences costs nothing: no text is composed, the heap is asked for nothing, and
// nothing is asked of the client's objects.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "Logging/ILogger.h"
#include "Player/Cache.h"
#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/FakePreloader.h"
#include "Player/IPreloader.h"
#include "Player/ISampleDecoder.h"
#include "Player/Player.h"
#include "Player/PreloadThread.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/AllocationCount.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/ScriptedStream.h"
#include "Player/Support/UncountedSample.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/TimedPreloadThread.h"

namespace Tavrin::Player {
namespace {

using namespace qor::kp::logging;
using Testing::CountedSample;
using Testing::Ms;
using Testing::OrderAt;
using Testing::SampleCensus;
using Testing::ScopedLoggerName;
using Testing::ScriptedStream;
using Testing::StartOf;
using Testing::UncountedSample;
using Time::Ratio;
using Time::TimePoint;

const SampleRate kRate(25, 1);
constexpr std::int64_t kNbRounds = 50;

/// Counts messages and keeps none, so that what it costs is what the message cost.
class CountingLogger final : public ILogger {
public:
    explicit CountingLogger(Level level) : level_(level) {}

    void Log(Level, const std::string&, const char*, int) override { ++nbMessages_; }
    void SetLevel(Level level) override { level_ = level; }
    Level GetLevel() const override { return level_; }
    std::size_t NbMessages() const { return nbMessages_; }

private:
    std::atomic<Level> level_;
    std::atomic<std::size_t> nbMessages_ = 0;
};

/// Makes its objects, which fetch their loggers then, and returns how often what it does with them asked the heap.
using Scenario = std::function<std::size_t()>;

template <typename Action>
std::size_t AllocationsOf(Action action) {
    const std::size_t before = Testing::NbAllocations();
    action();
    return Testing::NbAllocations() - before;
}

class LoggingCost : public ::testing::Test {
protected:
    void SetUp() override {
        if (!Testing::AllocationsAreCounted()) {
            GTEST_SKIP() << "this build's operator new cannot be counted";
        }
    }

    struct Cost {
        std::size_t nbAllocations_ = 0;
        std::size_t nbMessages_ = 0;
    };

    static Cost CostAt(const std::string& name, Level level, const Scenario& scenario) {
        const auto logger = std::make_shared<CountingLogger>(level);
        const ScopedLoggerName scope(name, logger);
        const std::size_t nbAllocations = scenario();
        return {nbAllocations, logger->NbMessages()};
    }

    static std::size_t CostWithoutLogger(const std::string& name, const Scenario& scenario) {
        const ScopedLoggerName scope(name, nullptr);
        return scenario();
    }

    /// Expects that messages of `level` cost nothing unless they are written: as much as without any logger.
    /// `nbOthers` messages of the scenario are of a higher level, and come when nothing is counted any more.
    static void ExpectFreeWhenSilenced(const std::string& name, Level level, const Scenario& scenario,
                                       std::size_t nbOthers = 0) {
        const std::size_t without = CostWithoutLogger(name, scenario);
        const Cost silenced = CostAt(name, static_cast<Level>(level + 1), scenario);
        const Cost written = CostAt(name, level, scenario);
        EXPECT_EQ(silenced.nbMessages_, nbOthers);
        EXPECT_EQ(silenced.nbAllocations_, without);
        // Or else the scenario leads to no message, and nothing is proved.
        EXPECT_GE(written.nbMessages_, nbOthers + static_cast<std::size_t>(kNbRounds));
        EXPECT_GE(written.nbAllocations_, without + static_cast<std::size_t>(kNbRounds));
    }
};

// The cache.

std::size_t AskForWhatIsThere() {
    Cache cache;
    cache.SetStreamSampleRate(kRate);
    cache.InsertPendingEntry(Ms(40));
    return AllocationsOf([&] {
        for (std::int64_t i = 0; i < kNbRounds; ++i) {
            cache.InsertPendingEntry(Ms(40));
        }
    });
}

TEST_F(LoggingCost, OfAnEntryThatIsThereAlready) {
    ExpectFreeWhenSilenced("Cache", Level_Trace, AskForWhatIsThere);
    EXPECT_EQ(CostWithoutLogger("Cache", AskForWhatIsThere), 0U);
}

std::size_t FileSamples() {
    Cache cache;
    cache.SetStreamSampleRate(kRate);
    for (std::int64_t i = 0; i < kNbRounds; ++i) {
        Output output;
        output.tp_ = StartOf(i, kRate);
        output.sample_ = new UncountedSample(output.tp_);
        cache.InsertPendingEntry(output.tp_);
        cache.GetQueue()->Push(output);
    }
    return AllocationsOf([&] { cache.Update(); });
}

TEST_F(LoggingCost, OfSamplesThatAreFiled) {
    ExpectFreeWhenSilenced("Cache", Level_Trace, FileSamples);
    EXPECT_EQ(CostWithoutLogger("Cache", FileSamples), 0U);
}

TEST_F(LoggingCost, OfSamplesThatAreFiledIsNoQuestionToTheSample) {
    const ScopedLoggerName scope("Cache", std::make_shared<CountingLogger>(Level_Debug));
    SampleCensus census;
    Cache cache;
    cache.SetStreamSampleRate(kRate);
    cache.InsertPendingEntry(Ms(40));
    Output output;
    output.tp_ = Ms(40);
    CountedSample* const sample = census.Make(Ms(40));
    output.sample_ = sample;
    cache.GetQueue()->Push(output);
    cache.Update();
    EXPECT_TRUE(sample->Calls().empty());
}

// The player.

/// A player says that it ends, which matters more than what it does.
constexpr std::size_t kNbOfPlayersEnd = 1;

std::size_t ChangeSpeedAndPlace() {
    Player player;
    return AllocationsOf([&] {
        for (std::int64_t i = 0; i < kNbRounds; ++i) {
            player.SetSpeed(Ratio(i + 2, 1));
            player.GoTo(Ms(40 * i));
        }
    });
}

TEST_F(LoggingCost, OfAChangeOfSpeedAndPlace) {
    ExpectFreeWhenSilenced("Player", Level_Debug, ChangeSpeedAndPlace, kNbOfPlayersEnd);
    EXPECT_EQ(CostWithoutLogger("Player", ChangeSpeedAndPlace), 0U);
}

std::size_t WaitForAStream() {
    Player player;
    ScriptedStream stream(7);
    player.AttachStream(&stream);
    const std::size_t nb = AllocationsOf([&] {
        for (std::int64_t i = 0; i < kNbRounds; ++i) {
            stream.SetReady(i % 2 != 0);
            player.Update(Ms(40));
        }
    });
    player.DetachAllStreams();
    return nb;
}

TEST_F(LoggingCost, OfAPlayHeadThatWaitsForAStream) {
    ExpectFreeWhenSilenced("Player", Level_Debug, WaitForAStream, kNbOfPlayersEnd);
    EXPECT_EQ(CostWithoutLogger("Player", WaitForAStream), 0U);
}

TEST_F(LoggingCost, OfAPlayHeadThatWaitsIsNoQuestionToTheStream) {
    const ScopedLoggerName scope("Player", std::make_shared<CountingLogger>(Level_Info));
    Player player;
    ScriptedStream stream(7);
    stream.SetReady(false);
    player.AttachStream(&stream);
    player.Update(Ms(40));
    EXPECT_EQ(stream.NbParameterCalls(), 0);
    player.DetachAllStreams();
}

TEST_F(LoggingCost, OfAPlayersEnd) {
    ExpectFreeWhenSilenced("Player", Level_Info, [] {
        std::size_t nb = 0;
        for (std::int64_t i = 0; i < kNbRounds; ++i) {
            auto player = std::make_unique<Player>();
            nb += AllocationsOf([&] { player.reset(); });
        }
        return nb;
    });
}

// The planner.

TEST_F(LoggingCost, OfPlanningIsNothingAtAnyLevel) {
    const Scenario plan = [] {
        const ScopedLoggerName cacheScope("Cache", nullptr);
        Cache cache;
        cache.SetStreamSampleRate(kRate);
        Player player;
        PreloadTimePointGenerator planner;
        planner.SetSampleRate(kRate);
        planner.SetDisplayRate(kRate);
        planner.SetCache(&cache);
        return AllocationsOf([&] {
            for (TimePoint tp; planner.Get(tp);) {
            }
            planner.Update(&player);
        });
    };
    const Cost written = CostAt("PreloadTimePointGenerator", Level_Trace, plan);
    const Cost silenced = CostAt("PreloadTimePointGenerator", Level_NoLog, plan);
    EXPECT_EQ(written.nbMessages_ + silenced.nbMessages_, 0U);
    EXPECT_EQ(written.nbAllocations_, CostWithoutLogger("PreloadTimePointGenerator", plan));
    EXPECT_EQ(silenced.nbAllocations_, written.nbAllocations_);
}

// The preload workers.

/// Answers without asking the heap, or throws without asking it.
class FrugalPreloader final : public IPreloader {
public:
    class Failure : public std::exception {
    public:
        explicit Failure(int& nbQuestions) : nbQuestions_(&nbQuestions) {}
        const char* what() const noexcept override {
            ++*nbQuestions_;
            return "storage does not answer";
        }

    private:
        int* nbQuestions_;
    };

    explicit FrugalPreloader(bool fails) : fails_(fails) {}

    PreloadResult Preload(const PreloadOrder&) override {
        if (fails_) {
            throw Failure(nbQuestions_);
        }
        return SUCCESS_EXIST;
    }
    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues*) override {}

    /// How often a failure was asked for its text.
    int NbQuestions() const { return nbQuestions_; }

private:
    bool fails_;
    int nbQuestions_ = 0;
};

template <typename Worker>
std::size_t Preload(IPreloader& preloader, CacheUpdateQueue* queue) {
    Worker worker;
    worker.SetPreloader(&preloader);
    const PreloadOrder order = OrderAt(3, queue);
    return AllocationsOf([&] {
        for (std::int64_t i = 0; i < kNbRounds; ++i) {
            worker.ProcessOrder(order);
        }
    });
}

template <typename Worker>
class PreloadLoggingCost : public LoggingCost {};

struct PlainWorker {
    using Type = PreloadThread;
    static constexpr const char* kLogger = "PreloadThread";
};
struct TimedWorker {
    using Type = TimedPreloadThread;
    static constexpr const char* kLogger = "TimedPreloadThread";
};
using PreloadWorkers = ::testing::Types<PlainWorker, TimedWorker>;
TYPED_TEST_SUITE(PreloadLoggingCost, PreloadWorkers);

TYPED_TEST(PreloadLoggingCost, OfAnOrderThatIsRun) {
    CacheUpdateQueue queue;
    FrugalPreloader preloader(false);
    const Scenario run = [&] { return Preload<typename TypeParam::Type>(preloader, &queue); };
    this->ExpectFreeWhenSilenced(TypeParam::kLogger, Level_Trace, run);
    EXPECT_EQ(this->CostWithoutLogger(TypeParam::kLogger, run), 0U);
}

TYPED_TEST(PreloadLoggingCost, OfAnOrderWithoutAQueue) {
    FrugalPreloader preloader(false);
    const Scenario run = [&] { return Preload<typename TypeParam::Type>(preloader, nullptr); };
    this->ExpectFreeWhenSilenced(TypeParam::kLogger, Level_Warning, run);
    EXPECT_EQ(this->CostWithoutLogger(TypeParam::kLogger, run), 0U);
}

TYPED_TEST(PreloadLoggingCost, OfAPreloaderThatFails) {
    CacheUpdateQueue queue;
    FrugalPreloader preloader(true);
    const Scenario run = [&] { return Preload<typename TypeParam::Type>(preloader, &queue); };
    this->ExpectFreeWhenSilenced(TypeParam::kLogger, Level_Warning, run);
}

TYPED_TEST(PreloadLoggingCost, OfAPreloaderThatFailsIsNoQuestionToItsException) {
    CacheUpdateQueue queue;
    FrugalPreloader preloader(true);
    this->CostAt(TypeParam::kLogger, Level_Error,
                 [&] { return Preload<typename TypeParam::Type>(preloader, &queue); });
    EXPECT_EQ(preloader.NbQuestions(), 0);
}

// The decode worker.

/// Returns a sample, or null, or throws; the exception is made beforehand, since making it asks the heap.
class FrugalDecoder final : public ISampleDecoder {
public:
    enum class Mode { Decodes, ReturnsNull, Throws };

    class Failure : public std::runtime_error {
    public:
        explicit Failure(int& nbQuestions) : std::runtime_error("broken"), nbQuestions_(&nbQuestions) {}
        const char* what() const noexcept override {
            ++*nbQuestions_;
            return std::runtime_error::what();
        }

    private:
        int* nbQuestions_;
    };

    explicit FrugalDecoder(Mode mode) : mode_(mode) {}

    ISample* Decode(const DecodeOrder& order) override {
        if (mode_ == Mode::Throws) {
            throw failure_;  // NOLINT(misc-throw-by-value-catch-by-reference): a copy asks the heap for nothing
        }
        return mode_ == Mode::Decodes ? new UncountedSample(order.orderTp_) : nullptr;
    }

    int NbQuestions() const { return nbQuestions_; }

private:
    Mode mode_;
    int nbQuestions_ = 0;
    Failure failure_{nbQuestions_};
};

/// One order, run again and again; with a registry or without.
std::size_t Decode(ISampleDecoder* decoder, bool throughRegistry) {
    CacheUpdateQueue queue;
    ExistingCacheUpdateQueues queues;
    queues.InsertExistingQueue(&queue);
    DecodeThread worker;
    worker.SetDecoder(decoder);
    worker.SetExistingUncompressedCacheUpdateQueues(throughRegistry ? &queues : nullptr);
    UncountedSample compressed(Ms(40));
    DecodeOrder order;
    order.toDecode_ = &compressed;
    order.orderTp_ = Ms(40);
    order.queue_ = &queue;
    compressed.Protect(kNbRounds);
    return AllocationsOf([&] {
        for (std::int64_t i = 0; i < kNbRounds; ++i) {
            worker.ProcessOrder(order);
        }
    });
}

TEST_F(LoggingCost, OfASampleThatIsDecoded) {
    FrugalDecoder decoder(FrugalDecoder::Mode::Decodes);
    for (const bool throughRegistry : {false, true}) {
        ExpectFreeWhenSilenced("DecodeThread", Level_Trace,
                               [&] { return Decode(&decoder, throughRegistry); });
    }
}

TEST_F(LoggingCost, OfASampleThatIsNotDecoded) {
    FrugalDecoder decoder(FrugalDecoder::Mode::ReturnsNull);
    ExpectFreeWhenSilenced("DecodeThread", Level_Warning, [&] { return Decode(&decoder, false); });
}

TEST_F(LoggingCost, OfADecoderThatThrows) {
    FrugalDecoder decoder(FrugalDecoder::Mode::Throws);
    ExpectFreeWhenSilenced("DecodeThread", Level_Warning, [&] { return Decode(&decoder, false); });
}

TEST_F(LoggingCost, OfADecoderThatThrowsIsNoQuestionToItsException) {
    FrugalDecoder decoder(FrugalDecoder::Mode::Throws);
    for (const bool throughRegistry : {false, true}) {
        CostAt("DecodeThread", Level_Error, [&] { return Decode(&decoder, throughRegistry); });
    }
    EXPECT_EQ(decoder.NbQuestions(), 0);
}

TEST_F(LoggingCost, OfAWorkerWithoutADecoder) {
    ExpectFreeWhenSilenced("DecodeThread", Level_Error, [] { return Decode(nullptr, true); });
}

// The fake preloader.

std::size_t Fake(CacheUpdateQueue* queue) {
    FakePreloader preloader;
    const PreloadOrder order = OrderAt(3, queue);
    return AllocationsOf([&] {
        for (std::int64_t i = 0; i < kNbRounds; ++i) {
            preloader.Preload(order);
        }
    });
}

TEST_F(LoggingCost, OfAFakeSample) {
    ExpectFreeWhenSilenced("FakePreloader", Level_Trace, [] {
        CacheUpdateQueue queue;
        return Fake(&queue);
    });
}

TEST_F(LoggingCost, OfAFakeOrderWithoutAQueue) {
    ExpectFreeWhenSilenced("FakePreloader", Level_Warning, [] { return Fake(nullptr); });
    EXPECT_EQ(CostWithoutLogger("FakePreloader", [] { return Fake(nullptr); }), 0U);
}

}  // namespace
}  // namespace Tavrin::Player
