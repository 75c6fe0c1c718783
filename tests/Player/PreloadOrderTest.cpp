#include "Player/PreloadOrder.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <set>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

using Testing::Ms;

/// A queue pointer that is only compared, never followed.
CacheUpdateQueue* Address(std::uintptr_t address) {
    return std::bit_cast<CacheUpdateQueue*>(address);
}

PreloadOrder Make(std::int64_t track, std::int64_t ms, std::uintptr_t queue) {
    return PreloadOrder(Ms(ms), SampleRate(25, 1), Address(queue), TrackId(StorageId("a", 1), track));
}

TEST(PreloadOrder, DefaultsDescribeAnOrderForNothing) {
    const PreloadOrder order;
    EXPECT_EQ(order.tp_, Time::TimePoint());
    EXPECT_EQ(order.s_, SampleRate());
    EXPECT_EQ(order.queue_, nullptr);
    EXPECT_TRUE(order.id_ == TrackId());
    EXPECT_EQ(order.priority_, 0);
    EXPECT_TRUE(std::has_virtual_destructor_v<PreloadOrder>);
}

TEST(PreloadOrder, ConstructorFillsTheFourFields) {
    const PreloadOrder order = Make(7, 40, 64);
    EXPECT_EQ(order.tp_, Ms(40));
    EXPECT_EQ(order.s_, SampleRate(25, 1));
    EXPECT_EQ(order.queue_, Address(64));
    EXPECT_EQ(order.id_.ToString(), "a:1:T7");
    EXPECT_EQ(order.Priority(), 0);
}

TEST(PreloadOrder, SetReplacesTheFourFieldsAndKeepsThePriority) {
    PreloadOrder order = Make(7, 40, 64);
    order.SetPriority(-9);
    order.Set(Ms(80), SampleRate(30000, 1001), Address(128), TrackId(StorageId("b", 2), 8));
    EXPECT_EQ(order.tp_, Ms(80));
    EXPECT_EQ(order.s_, SampleRate(30000, 1001));
    EXPECT_EQ(order.queue_, Address(128));
    EXPECT_EQ(order.id_.ToString(), "b:2:T8");
    EXPECT_EQ(order.Priority(), -9);
}

TEST(PreloadOrder, CopyAndAssignmentTakeEveryFieldThePriorityIncluded) {
    PreloadOrder original = Make(7, 40, 64);
    original.SetPriority(3);
    const PreloadOrder copied(original);
    PreloadOrder assigned;
    assigned = original;
    for (const PreloadOrder& order : {copied, assigned}) {
        EXPECT_EQ(order.tp_, Ms(40));
        EXPECT_EQ(order.s_, SampleRate(25, 1));
        EXPECT_EQ(order.queue_, Address(64));
        EXPECT_EQ(order.id_.Id(), 7);
        EXPECT_EQ(order.Priority(), 3);
    }
}

TEST(PreloadOrder, SortsByTrackBeforeTimePoint) {
    EXPECT_TRUE(Make(1, 80, 128) < Make(2, 40, 64));
    EXPECT_FALSE(Make(2, 40, 64) < Make(1, 80, 128));
}

TEST(PreloadOrder, SortsTracksByStorageBeforeNumber) {
    PreloadOrder first = Make(9, 80, 128);
    first.id_ = TrackId(StorageId("a", 0), 9);
    EXPECT_TRUE(first < Make(1, 40, 64));
    EXPECT_FALSE(Make(1, 40, 64) < first);
}

TEST(PreloadOrder, OfOneTrackSortsByTimePointBeforeQueue) {
    EXPECT_TRUE(Make(1, -40, 128) < Make(1, 40, 64));
    EXPECT_FALSE(Make(1, 40, 64) < Make(1, -40, 128));
}

TEST(PreloadOrder, OfOneTrackAndTimePointSortsByTheQueuesUnsignedAddress) {
    const std::uintptr_t high = std::numeric_limits<std::uintptr_t>::max() - 63;
    EXPECT_TRUE(Make(1, 40, 0) < Make(1, 40, 64));
    EXPECT_TRUE(Make(1, 40, 64) < Make(1, 40, high));
    EXPECT_FALSE(Make(1, 40, high) < Make(1, 40, 64));
}

TEST(PreloadOrder, DifferentQueuesAreDifferentKeys) {
    const std::set<PreloadOrder> orders{Make(1, 40, 64), Make(1, 40, 128)};
    EXPECT_EQ(orders.size(), 2U);
    EXPECT_FALSE(Make(1, 40, 64) == Make(1, 40, 128));
}

TEST(PreloadOrder, PriorityAndRateAreNoPartOfTheKeySoASetKeepsTheFirst) {
    PreloadOrder first = Make(1, 40, 64);
    first.SetPriority(1);
    PreloadOrder second = Make(1, 40, 64);
    second.SetPriority(2);
    second.s_ = SampleRate(50, 1);
    std::set<PreloadOrder> orders{first};
    EXPECT_FALSE(orders.insert(second).second);
    EXPECT_EQ(orders.begin()->Priority(), 1);
    EXPECT_TRUE(first == second);
}

TEST(PreloadOrderModel, OrderAndEqualityAreThoseOfTrackTimePointAndQueue) {
    Testing::Random random(Testing::TestSeed());
    const auto make = [&] {
        PreloadOrder order = Make(random.Between(0, 2), random.Between(-1, 1),
                                  static_cast<std::uintptr_t>(random.Between(0, 2)) * 64);
        order.id_.SetStorageId(StorageId(random.Chance(50) ? "a" : "b", random.Between(0, 1)));
        order.SetPriority(static_cast<int>(random.Between(0, 3)));
        order.s_ = SampleRate(random.Between(1, 3), 1);
        return order;
    };
    const auto key = [](const PreloadOrder& order) {
        return std::tuple(order.id_.StorageId().Address(), order.id_.StorageId().Port(), order.id_.Id(),
                          order.tp_, reinterpret_cast<std::uintptr_t>(order.queue_));
    };
    for (int i = 0; i < 5000; ++i) {
        const PreloadOrder a = make();
        const PreloadOrder b = make();
        EXPECT_EQ(a < b, key(a) < key(b));
        EXPECT_EQ(b < a, key(b) < key(a));
        EXPECT_EQ(a == b, key(a) == key(b));
    }
}

}  // namespace
}  // namespace Tavrin::Player
