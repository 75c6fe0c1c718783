// A client's logger may throw. What was to be logged is lost then, and nothing else: everything else goes as with a logger
// that writes nothing.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Logging/ILogger.h"
#include "Logging/LoggingManager.h"
#include "Player/Cache.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/FakePreloader.h"
#include "Player/Player.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/ScriptedStream.h"
#include "Player/Support/WorkerDoubles.h"

namespace Tavrin::Player {
namespace {

using namespace qor::kp::logging;
using Testing::Ms;
using Testing::ScopedLoggerName;

/// Throws at every message; what it throws is no standard exception half of the time.
class ThrowingLogger final : public ILogger {
public:
    void Log(Level, const std::string&, const char*, int) override {
        ++nbThrown_;
        if (nbThrown_ % 2 == 0) {
            throw nbThrown_;
        }
        throw std::runtime_error("the log's disk is full");
    }
    void SetLevel(Level) override {}
    Level GetLevel() const override { return Level_Trace; }

    int NbThrown() const { return nbThrown_; }

private:
    int nbThrown_ = 0;
};

class LoggerFault : public ::testing::Test {
protected:
    /// Has the objects of that name that are made from now on log to a logger that throws.
    void Spoil(const std::string& name) {
        spoilt_.push_back(std::make_unique<ScopedLoggerName>(name, logger_));
    }

    std::shared_ptr<ThrowingLogger> logger_ = std::make_shared<ThrowingLogger>();

private:
    std::vector<std::unique_ptr<ScopedLoggerName>> spoilt_;
};

TEST_F(LoggerFault, ThePlayHeadMovesJumpsAndWaits) {
    Spoil("Player");
    {
        Player player;
        Testing::ScriptedStream stream;
        player.AttachStream(&stream);
        player.SetSpeed(Time::Ratio(2, 1));
        EXPECT_EQ(player.GetSpeed(), Time::Ratio(2, 1));
        player.GoTo(Ms(400));
        stream.SetReady(false);
        player.Update(Ms(40));
        EXPECT_EQ(player.GetCurrentTimePoint(), Ms(400));
        stream.SetReady(true);
        player.Update(Ms(40));
        EXPECT_EQ(player.GetCurrentTimePoint(), Ms(480));
        player.DetachAllStreams();
    }
    // Speed, jump, wait, its end, and the destruction.
    EXPECT_EQ(logger_->NbThrown(), 5);
}

TEST_F(LoggerFault, ACacheFilesAndRefusesAsEver) {
    Spoil("Cache");
    Testing::SampleCensus census;
    {
        Cache cache;
        cache.SetStreamSampleRate(SampleRate(25, 1));
        EXPECT_FALSE(cache.InsertPendingEntry(Ms(40)));
        try {
            cache.InsertPendingEntry(Ms(41));
            FAIL() << "a misaligned time point was taken";
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find("must be aligned"), std::string::npos) << error.what();
        }
        for (const int ms : {80, 40}) {
            Output output;
            output.tp_ = Ms(ms);
            output.sample_ = census.Make(Ms(ms), Ms(40));
            cache.GetQueue()->Push(output);
        }
        // Nobody has asked for the first answer.
        EXPECT_THROW(cache.Update(), std::runtime_error);
        EXPECT_EQ(census.NbLive(), 1U);
        EXPECT_EQ(cache.Update(), 1U);
        EXPECT_EQ(cache.GetInformation().nbValidSamples_, 1);
    }
    EXPECT_GE(logger_->NbThrown(), 3);
    EXPECT_EQ(census.NbLive(), 0U);
    EXPECT_EQ(census.NbAbused(), 0U);
}

TEST_F(LoggerFault, APreloadWorkerGoesOn) {
    Spoil("PreloadThread");
    Testing::ScriptedPreloader preloader;
    PreloadThread worker;
    worker.SetPreloader(&preloader);
    CacheUpdateQueue answers;
    PreloadOrder order = Testing::OrderAt(26, &answers);
    // What could not be logged counts as a preload that failed, although it was made.
    EXPECT_FALSE(worker.ProcessOrder(order));
    EXPECT_EQ(logger_->NbThrown(), 2);
    order.queue_ = nullptr;
    EXPECT_FALSE(worker.ProcessOrder(order));
    EXPECT_EQ(logger_->NbThrown(), 3);
}

TEST_F(LoggerFault, ADecodeWorkerDeliversAsEver) {
    Spoil("DecodeThread");
    Testing::SampleCensus census;
    {
        Testing::ScriptedDecoder decoder;
        CacheUpdateQueue answers;
        DecodeThread worker;
        DecodeOrder order;
        order.orderTp_ = Ms(40);
        order.queue_ = &answers;
        order.toDecode_ = census.Make(Ms(40), Ms(40));
        order.toDecode_->Protect(1);
        // Without a decoder: dropped.
        worker.ProcessOrder(order);
        worker.SetDecoder(&decoder);
        for (const bool works : {true, false}) {
            decoder.Script([works](const DecodeOrder&) -> ISample* {
                if (!works) {
                    throw std::runtime_error("broken");
                }
                return nullptr;
            });
            worker.ProcessOrder(order);
            Output output;
            ASSERT_TRUE(answers.Pop(output));
            EXPECT_EQ(output.sample_, nullptr);
        }
        delete order.toDecode_;
    }
    EXPECT_GE(logger_->NbThrown(), 3);
    EXPECT_EQ(census.NbLive(), 0U);
}

TEST_F(LoggerFault, TheFakePreloaderDeliversAsEver) {
    Spoil("FakePreloader");
    FakePreloader preloader;
    CacheUpdateQueue answers;
    EXPECT_EQ(preloader.Preload(Testing::OrderAt(26, &answers)), IPreloader::SUCCESS_EXIST);
    Output output;
    ASSERT_TRUE(answers.Pop(output));
    delete output.sample_;
    EXPECT_EQ(preloader.Preload(Testing::OrderAt(26, nullptr)), IPreloader::ERROR);
    EXPECT_EQ(logger_->NbThrown(), 2);
}

}  // namespace
}  // namespace Tavrin::Player
