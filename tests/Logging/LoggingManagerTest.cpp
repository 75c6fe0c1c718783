#include "Logging/LoggingManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace qor::kp::logging {
namespace {

class NullLogger : public ILogger {
public:
    void Log(Level, const std::string&, const char*, int) override {}
    void SetLevel(Level level) override { level_ = level; }
    Level GetLevel() const override { return level_; }

private:
    Level level_ = Level_Info;
};

/// What a logger writes to standard error while `act` runs.
template <typename Act>
std::string Written(Act act) {
    testing::internal::CaptureStderr();
    act();
    return testing::internal::GetCapturedStderr();
}

TEST(LoggingManager, SameNameGivesTheSameLogger) {
    ILogger* const logger = LoggingManager::GetLoggerPtr("same");
    ASSERT_NE(logger, nullptr);
    EXPECT_EQ(LoggingManager::GetLoggerPtr("same"), logger);
    EXPECT_NE(LoggingManager::GetLoggerPtr("other"), logger);
}

TEST(LoggingManager, LoggersBeginAtWarning) {
    EXPECT_EQ(LoggingManager::GetLoggerPtr("fresh")->GetLevel(), Level_Warning);
}

TEST(LoggingManager, LevelsHaveTheirNumbers) {
    EXPECT_EQ(Level_Trace, 10);
    EXPECT_EQ(Level_Debug, 20);
    EXPECT_EQ(Level_Info, 30);
    EXPECT_EQ(Level_Warning, 40);
    EXPECT_EQ(Level_Error, 50);
    EXPECT_EQ(Level_Fatal, 60);
    EXPECT_EQ(Level_NoLog, 100);
}

TEST(LoggingManager, MessagesAtOrAboveTheLevelAreWrittenToStandardError) {
    ILogger* const logger = LoggingManager::GetLoggerPtr("written");
    EXPECT_NE(Written([&] { logger->Log(Level_Warning, "a warning", "Player/Cache", 7); }).find("a warning"),
              std::string::npos);
    EXPECT_EQ(Written([&] { logger->Log(Level_Info, "a remark", "Player/Cache", 8); }), "");
}

TEST(LoggingManager, SetLevelChangesWhatIsWritten) {
    ILogger* const logger = LoggingManager::GetLoggerPtr("levels");
    logger->SetLevel(Level_Trace);
    EXPECT_NE(Written([&] { logger->Log(Level_Trace, "detail", "Player/Cache", 1); }), "");
    logger->SetLevel(Level_NoLog);
    EXPECT_EQ(Written([&] { logger->Log(Level_Fatal, "the end", "Player/Cache", 2); }), "");
}

TEST(LoggingManager, TextIsWrittenAsItIs) {
    ILogger* const logger = LoggingManager::GetLoggerPtr("verbatim");
    const std::string text = "{} {0} {x} {{}} %s %n %v 100%";
    EXPECT_NE(Written([&] { logger->Log(Level_Error, text, "Player/Cache", 3); }).find(text),
              std::string::npos);
}

TEST(LoggingManager, LineNamesLoggerSourceAndLine) {
    ILogger* const logger = LoggingManager::GetLoggerPtr("named");
    const std::string line = Written([&] { logger->Log(Level_Error, "text", "Player/Cache", 123); });
    EXPECT_NE(line.find("named"), std::string::npos);
    EXPECT_NE(line.find("Player/Cache:123"), std::string::npos);
}

TEST(LoggingManager, ClientsLoggerTakesTheNameOver) {
    const auto mine = std::make_shared<NullLogger>();
    LoggingManager::SetLogger("mine", mine);
    EXPECT_EQ(LoggingManager::GetLoggerPtr("mine"), mine.get());
}

TEST(LoggingManager, NullSilencesANameUntilALoggerIsPutBack) {
    LoggingManager::SetLogger("silenced", nullptr);
    EXPECT_EQ(LoggingManager::GetLoggerPtr("silenced"), nullptr);
    EXPECT_EQ(LoggingManager::GetLoggerPtr("silenced"), nullptr);
    const auto mine = std::make_shared<NullLogger>();
    LoggingManager::SetLogger("silenced", mine);
    EXPECT_EQ(LoggingManager::GetLoggerPtr("silenced"), mine.get());
}

TEST(LoggingManager, LoggerHandedOutOutlivesItsReplacement) {
    std::weak_ptr<ILogger> watched;
    {
        const auto mine = std::make_shared<NullLogger>();
        watched = mine;
        LoggingManager::SetLogger("replaced", mine);
    }
    ILogger* const handedOut = LoggingManager::GetLoggerPtr("replaced");
    LoggingManager::SetLogger("replaced", nullptr);
    EXPECT_FALSE(watched.expired());
    EXPECT_EQ(handedOut->GetLevel(), Level_Info);
}

TEST(LoggingManager, LoggerIsDestroyedThroughItsInterface) {
    class Watched final : public NullLogger {
    public:
        explicit Watched(bool& isGone) : isGone_(isGone) {}
        ~Watched() override { isGone_ = true; }

    private:
        bool& isGone_;
    };
    bool isGone = false;
    std::unique_ptr<ILogger> logger = std::make_unique<Watched>(isGone);
    EXPECT_FALSE(isGone);
    logger.reset();
    EXPECT_TRUE(isGone);
}

TEST(LoggingManager, ManyThreadsGetOneLogger) {
    std::vector<ILogger*> found(8, nullptr);
    std::vector<std::thread> threads;
    for (ILogger*& logger : found) {
        threads.emplace_back([&logger] { logger = LoggingManager::GetLoggerPtr("contended"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const ILogger* logger : found) {
        EXPECT_EQ(logger, found.front());
        EXPECT_NE(logger, nullptr);
    }
}

}  // namespace
}  // namespace qor::kp::logging
