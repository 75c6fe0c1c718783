#include "Player/FakeSample.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Player/Support/Moments.h"
#include "Player/Support/Waiting.h"

namespace Tavrin::Player {
namespace {

using Testing::Gate;
using Testing::Ms;
using Testing::Ns;
using Testing::Sec;

std::string Property(const ISample& sample, const std::string& key = "any") {
    std::uint64_t size = 0;
    return reinterpret_cast<const char*>(sample.GetProperty(key, size));
}

std::string Data(const ISample& sample, const std::string& key = "any") {
    std::uint64_t size = 0;
    return reinterpret_cast<const char*>(sample.GetData(key, size));
}

TEST(FakeSample, GivesBackItsTimePointAndDuration) {
    const FakeSample sample(Sec(2), Ms(40));
    EXPECT_EQ(sample.GetTimePoint(), Sec(2));
    EXPECT_EQ(sample.GetDuration(), Ms(40));
}

TEST(FakeSample, ShowsItsTimePointInNanosecondsAsPropertyAndItsDurationAsData) {
    const FakeSample sample(Sec(2), Ms(40));
    EXPECT_EQ(Property(sample), "2000000000");
    EXPECT_EQ(Data(sample), "40000000");
}

TEST(FakeSample, TheTextsOfZeroAreASingleDigit) {
    const FakeSample sample(Ns(0), Ns(0));
    EXPECT_EQ(Property(sample), "0");
    EXPECT_EQ(Data(sample), "0");
}

TEST(FakeSample, NegativeTimesBeginWithAMinusSign) {
    const FakeSample sample(Ns(-1), Ns(std::numeric_limits<std::int64_t>::min()));
    EXPECT_EQ(Property(sample), "-1");
    EXPECT_EQ(Data(sample), "-9223372036854775808");
}

TEST(FakeSample, AnswersEveryKeyAlikeAndListsNone) {
    const FakeSample sample(Ms(1), Ms(2));
    EXPECT_TRUE(sample.GetPropertyKeys().empty());
    EXPECT_TRUE(sample.GetDataKeys().empty());
    EXPECT_EQ(Property(sample, ""), "1000000");
    EXPECT_EQ(Property(sample, "codec"), "1000000");
    EXPECT_EQ(Data(sample, ""), "2000000");
    EXPECT_EQ(Data(sample, "picture"), "2000000");
}

TEST(FakeSample, LeavesTheSizeUntouched) {
    const FakeSample sample(Ms(1), Ms(2));
    std::uint64_t size = 77;
    sample.GetProperty("key", size);
    EXPECT_EQ(size, 77u);
    sample.GetData("key", size);
    EXPECT_EQ(size, 77u);
}

TEST(FakeSample, GivesTheSameBytesAtEveryCall) {
    const FakeSample sample(Ms(1), Ms(2));
    std::uint64_t size = 0;
    EXPECT_EQ(sample.GetProperty("a", size), sample.GetProperty("b", size));
    EXPECT_EQ(sample.GetData("a", size), sample.GetData("b", size));
}

TEST(FakeSample, IsBornUnprotected) {
    FakeSample sample(Ms(1), Ms(2));
    EXPECT_EQ(sample.GetProtectionCounter(), 0);
}

TEST(FakeSample, UnprotectOfAFreshSampleReturnsZero) {
    FakeSample sample(Ms(1), Ms(2));
    EXPECT_EQ(sample.Unprotect(3), 0);
    EXPECT_EQ(sample.GetProtectionCounter(), 0);
}

TEST(FakeSample, ProtectAddsAndReturnsTheCounter) {
    FakeSample sample(Ms(1), Ms(2));
    EXPECT_EQ(sample.Protect(2), 2);
    EXPECT_EQ(sample.GetProtectionCounter(), 2);
    EXPECT_EQ(sample.Protect(3), 5);
    EXPECT_EQ(sample.Protect(0), 5);
}

TEST(FakeSample, UnprotectSubtractsAndReturnsTheCounter) {
    FakeSample sample(Ms(1), Ms(2));
    sample.Protect(5);
    EXPECT_EQ(sample.Unprotect(2), 3);
    EXPECT_EQ(sample.GetProtectionCounter(), 3);
}

TEST(FakeSample, OneReleaseTooManyLeavesNoDebt) {
    FakeSample sample(Ms(1), Ms(2));
    sample.Protect(3);
    EXPECT_EQ(sample.Unprotect(5), 0);
    EXPECT_EQ(sample.Protect(1), 1);
}

TEST(FakeSample, ANegativeProtectionIsNotStoppedAtZero) {
    FakeSample sample(Ms(1), Ms(2));
    sample.Protect(1);
    EXPECT_EQ(sample.Protect(-2), -1);
    EXPECT_EQ(sample.GetProtectionCounter(), -1);
}

TEST(FakeSample, ItsCounterIsTheOneSeenThroughTheInterface) {
    FakeSample sample(Ms(1), Ms(2));
    ISample& interface = sample;
    interface.Protect(4);
    EXPECT_EQ(sample.GetProtectionCounter(), 4);
}

TEST(FakeSample, ProtectionsOfSeveralThreadsAddUp) {
    FakeSample sample(Ms(1), Ms(2));
    Gate start;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            EXPECT_TRUE(start.Wait());
            for (int i = 0; i < 50'000; ++i) {
                sample.Protect(2);
                sample.Unprotect(1);
            }
        });
    }
    start.Open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(sample.GetProtectionCounter(), 200'000);
}

TEST(FakeSample, IsDestroyedThroughTheInterface) {
    const std::unique_ptr<ISample> sample = std::make_unique<FakeSample>(Ms(1), Ms(2));
    EXPECT_EQ(Property(*sample), "1000000");
}

}  // namespace
}  // namespace Tavrin::Player
