#include "Playout/EventQueue.h"

#include <gtest/gtest.h>

#include <vector>

#include "Playout/UsageMeter.h"

namespace Tavrin::Playout {
namespace {

using Time::TimePoint;

TimePoint Ms(std::int64_t milliseconds) {
    return TimePoint().FromMilliseconds(milliseconds);
}

TEST(EventQueue, HasEventsHappenInTheOrderOfTheirTimes) {
    EventQueue events;
    std::vector<int> happened;
    events.At(Ms(20), [&] { happened.push_back(2); });
    events.At(Ms(10), [&] { happened.push_back(1); });
    while (events.RunNext(Ms(30))) {
    }
    EXPECT_EQ(happened, (std::vector{1, 2}));
}

TEST(EventQueue, HasEventsOfTheSameTimeHappenInTheOrderInWhichTheyWerePutIn) {
    EventQueue events;
    std::vector<int> happened;
    for (const int number : {1, 2, 3}) {
        events.At(Ms(10), [&happened, number] { happened.push_back(number); });
    }
    while (events.RunNext(Ms(10))) {
    }
    EXPECT_EQ(happened, (std::vector{1, 2, 3}));
}

TEST(EventQueue, StandsAtTheLimitWhenNothingIsDueByThen) {
    EventQueue events;
    bool happened = false;
    events.At(Ms(20), [&] { happened = true; });
    EXPECT_FALSE(events.RunNext(Ms(19)));
    EXPECT_FALSE(happened);
    EXPECT_EQ(events.Now(), Ms(19));
}

TEST(EventQueue, TakesWhatIsPutInForThePastAsDueNow) {
    EventQueue events;
    EXPECT_FALSE(events.RunNext(Ms(50)));
    TimePoint when;
    events.At(Ms(10), [&] { when = events.Now(); });
    EXPECT_TRUE(events.RunNext(Ms(50)));
    EXPECT_EQ(when, Ms(50));
}

TEST(EventQueue, LetsAnEventPutInAnother) {
    EventQueue events;
    TimePoint when;
    events.After(Ms(5), [&] { events.After(Ms(5), [&] { when = events.Now(); }); });
    while (events.RunNext(Ms(100))) {
    }
    EXPECT_EQ(when, Ms(10));
}

TEST(UsageMeter, CountsEachUserForAsLongAsItUses) {
    UsageMeter meter{TimePoint()};
    meter.SetUsers(2, Ms(0));
    meter.SetUsers(1, Ms(10));
    meter.SetUsers(0, Ms(30));
    // 2 users for 10 ms and 1 for 20 ms, of 4 users' 40 ms.
    EXPECT_DOUBLE_EQ(meter.Percent(4, Ms(40)), 25);
}

TEST(UsageMeter, ForgetsWhatWasBeforeTheRestart) {
    UsageMeter meter{TimePoint()};
    meter.SetUsers(1, Ms(0));
    meter.Restart(Ms(10));
    meter.SetUsers(0, Ms(15));
    EXPECT_DOUBLE_EQ(meter.Percent(1, Ms(20)), 50);
}

TEST(UsageMeter, IsUnusedBeforeAnyTimeHasPassed) {
    UsageMeter meter{TimePoint()};
    EXPECT_DOUBLE_EQ(meter.Percent(1, TimePoint()), 0);
}

}  // namespace
}  // namespace Tavrin::Playout
