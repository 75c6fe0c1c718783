#include "Player/TrackId.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

TrackId Make(const std::string& address, std::int64_t port, std::int64_t id) {
    return TrackId(StorageId(address, port), id);
}

TEST(TrackId, DefaultIsTrackZeroOfADefaultStorage) {
    EXPECT_EQ(TrackId().Id(), 0);
    EXPECT_TRUE(TrackId().StorageId() == StorageId());
    EXPECT_EQ(TrackId().ToString(), ":-1:T0");
}

TEST(TrackId, ConstructorAndSettersFillTheFields) {
    TrackId id = Make("10.0.0.2", 5000, 7);
    EXPECT_EQ(id.Id(), 7);
    EXPECT_EQ(id.StorageId().ToString(), "10.0.0.2:5000");
    id.SetId(-3);
    id.SetStorageId(StorageId("b", 1));
    EXPECT_EQ(id.Id(), -3);
    EXPECT_EQ(id.StorageId().ToString(), "b:1");
}

TEST(TrackId, CopiesAreIndependentValues) {
    TrackId original = Make("a", 1, 7);
    const TrackId copied(original);
    TrackId assigned;
    assigned = original;
    original.SetId(8);
    EXPECT_EQ(copied.Id(), 7);
    EXPECT_TRUE(assigned == copied);
}

TEST(TrackId, OnDifferentStoragesOrdersByStorageEvenWhenTheNumbersOrderTheOtherWay) {
    EXPECT_TRUE(Make("10.0.0.2", 0, 9) < Make("10.0.0.3", 0, 1));
    EXPECT_FALSE(Make("10.0.0.3", 0, 1) < Make("10.0.0.2", 0, 9));
    EXPECT_TRUE(Make("a", -1, 9) < Make("a", 0, 1));
    EXPECT_FALSE(Make("a", 0, 1) < Make("a", -1, 9));
}

TEST(TrackId, OnOneStorageOrdersBySignedNumber) {
    EXPECT_TRUE(Make("a", 1, -5) < Make("a", 1, 0));
    EXPECT_TRUE(Make("a", 1, 0) < Make("a", 1, 5));
    EXPECT_FALSE(Make("a", 1, 5) < Make("a", 1, 5));
}

TEST(TrackId, EqualityNeedsStorageAndNumber) {
    EXPECT_TRUE(Make("a", 1, 7) == Make("a", 1, 7));
    EXPECT_FALSE(Make("a", 1, 7) != Make("a", 1, 7));
    for (const TrackId& other : {Make("a", 1, 8), Make("a", 2, 7), Make("b", 1, 7)}) {
        EXPECT_FALSE(Make("a", 1, 7) == other) << other.ToString();
        EXPECT_TRUE(Make("a", 1, 7) != other) << other.ToString();
    }
}

TEST(TrackId, TextIsStorageThenTAndTheNumber) {
    EXPECT_EQ(Make("10.0.0.2", 5000, 7).ToString(), "10.0.0.2:5000:T7");
}

TEST(TrackId, NegativeNumberPrintsWithAMinusSign) {
    EXPECT_EQ(Make("a", -2, -7).ToString(), "a:-2:T-7");
}

TEST(TrackId, IsAKeyOfAnOrderedSet) {
    const std::set<TrackId> tracks{Make("b", 0, 1), Make("a", 0, 2), Make("a", 0, 1), Make("a", 0, 2)};
    std::vector<std::string> texts;
    texts.reserve(tracks.size());
    for (const TrackId& track : tracks) {
        texts.push_back(track.ToString());
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"a:0:T1", "a:0:T2", "b:0:T1"}));
}

TEST(TrackIdModel, OrderIsThatOfAddressPortAndNumber) {
    Testing::Random random(Testing::TestSeed());
    const std::vector<std::string> addresses{"", "10.0.0.2", "10.0.0.20", "10.0.0.3"};
    const auto make = [&] {
        return Make(random.Among(addresses), random.Between(-1, 1), random.Between(-2, 2));
    };
    const auto key = [](const TrackId& id) {
        return std::tuple(id.StorageId().Address(), id.StorageId().Port(), id.Id());
    };
    for (int i = 0; i < 5000; ++i) {
        const TrackId a = make();
        const TrackId b = make();
        EXPECT_EQ(a < b, key(a) < key(b)) << a.ToString() << " and " << b.ToString();
        EXPECT_EQ(a == b, key(a) == key(b)) << a.ToString() << " and " << b.ToString();
        EXPECT_EQ(a != b, key(a) != key(b)) << a.ToString() << " and " << b.ToString();
    }
}

}  // namespace
}  // namespace Tavrin::Player
