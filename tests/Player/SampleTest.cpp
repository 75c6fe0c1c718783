#include "Player/ISample.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "Time/TimePoint.h"

namespace Tavrin::Player {
namespace {

/// The least that a client has to write: the protection is the base's.
class PlainSample final : public ISample {
public:
    explicit PlainSample(bool* destroyed = nullptr) : destroyed_(destroyed) {}
    ~PlainSample() override {
        if (destroyed_ != nullptr) {
            *destroyed_ = true;
        }
    }
    PlainSample(const PlainSample&) = delete;
    PlainSample& operator=(const PlainSample&) = delete;

    Time::TimePoint GetTimePoint() const override { return {}; }
    Time::TimePoint GetDuration() const override { return {}; }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t&) const override { return nullptr; }
    const std::uint8_t* GetData(const std::string&, std::uint64_t&) const override { return nullptr; }

private:
    bool* destroyed_;
};

TEST(Sample, FreshOneIsUnprotected) {
    PlainSample sample;
    EXPECT_EQ(sample.GetProtectionCounter(), 0);
}

TEST(Sample, ContentAccessorsAreTheClientsToWrite) {
    EXPECT_TRUE(std::is_abstract_v<ISample>);
}

TEST(Sample, IsDestroyedThroughItsInterface) {
    EXPECT_TRUE(std::has_virtual_destructor_v<ISample>);
    bool destroyed = false;
    const ISample* sample = new PlainSample(&destroyed);
    delete sample;
    EXPECT_TRUE(destroyed);
}

TEST(Sample, ProtectAddsAndReturnsTheNewCounter) {
    PlainSample sample;
    EXPECT_EQ(sample.Protect(1), 1);
    EXPECT_EQ(sample.Protect(4), 5);
    EXPECT_EQ(sample.GetProtectionCounter(), 5);
}

TEST(Sample, UnprotectSubtractsAndReturnsTheNewCounter) {
    PlainSample sample;
    sample.Protect(5);
    EXPECT_EQ(sample.Unprotect(2), 3);
    EXPECT_EQ(sample.GetProtectionCounter(), 3);
    EXPECT_EQ(sample.Unprotect(3), 0);
    EXPECT_EQ(sample.GetProtectionCounter(), 0);
}

TEST(Sample, UnprotectPastZeroStopsAtZeroAndLeavesNoDebt) {
    PlainSample sample;
    sample.Protect(3);
    EXPECT_EQ(sample.Unprotect(5), 0);
    EXPECT_EQ(sample.GetProtectionCounter(), 0);
    EXPECT_EQ(sample.Protect(1), 1);
}

TEST(Sample, ProtectByZeroReturnsTheUnchangedCounter) {
    PlainSample sample;
    sample.Protect(2);
    EXPECT_EQ(sample.Protect(0), 2);
    EXPECT_EQ(sample.GetProtectionCounter(), 2);
}

TEST(Sample, ProtectByANegativeNumberIsNotFloored) {
    PlainSample sample;
    sample.Protect(1);
    EXPECT_EQ(sample.Protect(-2), -1);
    EXPECT_EQ(sample.GetProtectionCounter(), -1);
}

TEST(Sample, UnprotectOfANegativeCounterReturnsToZero) {
    PlainSample sample;
    sample.Protect(-4);
    EXPECT_EQ(sample.Unprotect(1), 0);
    EXPECT_EQ(sample.GetProtectionCounter(), 0);
}

TEST(Sample, UnprotectByANegativeNumberAdds) {
    PlainSample sample;
    EXPECT_EQ(sample.Unprotect(-3), 3);
    EXPECT_EQ(sample.GetProtectionCounter(), 3);
}

TEST(Sample, NoProtectionIsLostBetweenThreads) {
    constexpr int kNbThreads = 4;
    constexpr int kNbRounds = 2000;
    PlainSample sample;
    sample.Protect(1);
    std::vector<std::thread> threads;
    threads.reserve(kNbThreads);
    for (int t = 0; t < kNbThreads; ++t) {
        threads.emplace_back([&sample] {
            for (int i = 0; i < kNbRounds; ++i) {
                sample.Protect(2);
                EXPECT_GE(sample.GetProtectionCounter(), 2);
                sample.Unprotect(1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(sample.GetProtectionCounter(), 1 + kNbThreads * kNbRounds);
}

}  // namespace
}  // namespace Tavrin::Player
