// The window map against std::map and plain walks. Blocks hold some dozens of entries, so a few hundred are many blocks.

#include "Player/WindowMap.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"
#include "Player/WindowMapImpl.h"

namespace Tavrin::Player {
namespace {

using Testing::Ns;
using Testing::Random;
using Time::TimePoint;
using Map = WindowMap<int>;

Map::Iterator Add(Map& map, std::int64_t key, int value) {
    const auto [place, isNew] = map.Insert(Ns(key));
    EXPECT_TRUE(isNew) << key;
    place.Get() = value;
    return place;
}

TEST(WindowMap, IsEmptyAtFirst) {
    Map map;
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.size(), 0U);
    EXPECT_EQ(map.begin(), map.end());
    EXPECT_EQ(map.LowerBound(Ns(0)), map.end());
    EXPECT_EQ(map.Find(Ns(0)), map.end());
    EXPECT_EQ(map.MarkedFrom(map.begin()), map.end());
    EXPECT_EQ(map.MarkedBefore(map.end()), map.end());
    EXPECT_EQ(map.NbMarkedFrom(map.begin()), 0U);
}

TEST(WindowMap, AnEntryThatIsThereIsGivenBackUnchanged) {
    Map map;
    Add(map, 5, 50);
    const auto [place, isNew] = map.Insert(Ns(5));
    EXPECT_FALSE(isNew);
    EXPECT_EQ(place.Get(), 50);
    EXPECT_EQ(map.size(), 1U);
}

TEST(WindowMap, ANewEntryIsFreshAlthoughItsPlaceWasUsedBefore) {
    Map map;
    map.Mark(Add(map, 5, 50));
    map.Erase(map.Find(Ns(5)));
    const auto [place, isNew] = map.Insert(Ns(6));
    EXPECT_TRUE(isNew);
    EXPECT_EQ(place.Get(), 0);
    EXPECT_EQ(map.MarkedFrom(map.begin()), map.end());
}

TEST(WindowMap, ErasingGivesTheNextEntry) {
    Map map;
    for (int i = 0; i < 100; ++i) {
        Add(map, i, i);
    }
    EXPECT_EQ(map.Erase(map.Find(Ns(40))).Key(), Ns(41));
    EXPECT_EQ(map.Erase(map.Find(Ns(99))), map.end());
}

TEST(WindowMap, ClearingLeavesNothing) {
    Map map;
    for (int i = 0; i < 100; ++i) {
        map.Mark(Add(map, i, i));
    }
    map.Clear();
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.MarkedFrom(map.begin()), map.end());
    Add(map, 7, 70);
    EXPECT_EQ(map.begin().Key(), Ns(7));
}

/// What the map is to hold, and random changes of both.
class Twin {
public:
    explicit Twin(std::uint64_t seed) : random_(seed) {}

    void Insert(std::int64_t key) {
        const auto [place, isNew] = map_.Insert(Ns(key));
        ASSERT_EQ(isNew, model_.count(key) == 0) << key;
        ASSERT_EQ(place.Key(), Ns(key));
        if (isNew) {
            ASSERT_EQ(place.Get(), 0);
            place.Get() = ++nbInserted_;
            model_[key] = {nbInserted_, false};
        }
        if (random_.Chance(markPercent_)) {
            map_.Mark(place);
            model_[key].marked = true;
        }
    }

    void Erase(std::int64_t from) {
        const auto expected = model_.lower_bound(from);
        const auto place = map_.LowerBound(Ns(from));
        ASSERT_EQ(place == map_.end(), expected == model_.end());
        if (expected == model_.end()) {
            return;
        }
        ASSERT_EQ(place.Key(), Ns(expected->first));
        ExpectAt(map_.Erase(place), model_.erase(expected));
    }

    void Clear() {
        map_.Clear();
        model_.clear();
    }

    void LookUp(std::int64_t key) {
        ExpectAt(map_.LowerBound(Ns(key)), model_.lower_bound(key));
        ExpectAt(map_.Find(Ns(key)), model_.find(key));
        ExpectAt(map_.MarkedFrom(map_.LowerBound(Ns(key))), MarkedFrom(key));
        ExpectAt(map_.MarkedBefore(map_.LowerBound(Ns(key))), MarkedBefore(key));
        std::size_t nb = 0;
        for (auto item = model_.lower_bound(key); item != model_.end(); ++item) {
            nb += item->second.marked ? 1 : 0;
        }
        ASSERT_EQ(map_.NbMarkedFrom(map_.LowerBound(Ns(key))), nb);
    }

    void CompareAll() {
        ASSERT_EQ(map_.size(), model_.size());
        ASSERT_EQ(map_.empty(), model_.empty());
        auto item = model_.begin();
        for (const auto& place : map_) {
            ASSERT_NE(item, model_.end());
            ASSERT_EQ(place.Key(), Ns(item->first));
            ASSERT_EQ(place.Get(), item->second.value);
            ++item;
        }
        ASSERT_EQ(item, model_.end());
        auto place = map_.end();
        while (place != map_.begin()) {
            --place;
            --item;
            ASSERT_EQ(place.Key(), Ns(item->first));
        }
        ASSERT_EQ(item, model_.begin());
    }

    Random& Choices() { return random_; }
    std::int64_t Lowest() const { return model_.empty() ? 0 : model_.begin()->first; }
    std::int64_t Highest() const { return model_.empty() ? 0 : model_.rbegin()->first; }
    std::size_t Size() const { return model_.size(); }
    void SetMarkPercent(int percent) { markPercent_ = percent; }

private:
    struct Entry {
        int value = 0;
        bool marked = false;
    };
    using Model = std::map<std::int64_t, Entry>;

    void ExpectAt(Map::Iterator place, Model::iterator item) {
        ASSERT_EQ(place == map_.end(), item == model_.end());
        if (item != model_.end()) {
            ASSERT_EQ(place.Key(), Ns(item->first));
            ASSERT_EQ(place.Get(), item->second.value);
        }
    }

    Model::iterator MarkedFrom(std::int64_t key) {
        auto item = model_.lower_bound(key);
        while (item != model_.end() && !item->second.marked) {
            ++item;
        }
        return item;
    }

    Model::iterator MarkedBefore(std::int64_t key) {
        auto item = model_.lower_bound(key);
        while (item != model_.begin()) {
            --item;
            if (item->second.marked) {
                return item;
            }
        }
        return model_.end();
    }

    Random random_;
    Map map_;
    Model model_;
    int nbInserted_ = 0;
    int markPercent_ = 50;
};

TEST(WindowMap, RandomChangesGiveWhatAPlainMapGives) {
    const std::uint64_t seed = Testing::TestSeed();
    constexpr int kNbSequences = 60;
    constexpr int kNbSteps = 3000;
    for (int i = 0; i < kNbSequences && !HasFatalFailure(); ++i) {
        const std::uint64_t own = seed + static_cast<std::uint64_t>(i);
        SCOPED_TRACE(::testing::Message() << "TAVRIN_TEST_SEED=" << own);
        Twin twin(own);
        Random& random = twin.Choices();
        const std::int64_t range = random.Between(20, 4000);
        for (int step = 0; step < kNbSteps && !HasFatalFailure(); ++step) {
            if (step % 500 == 0) {
                twin.SetMarkPercent(static_cast<int>(random.Between(0, 100)));
            }
            // Fills for a while, then thins out, so that blocks split and join.
            const bool isFilling = step / 700 % 2 == 0;
            const std::int64_t key = random.Between(-range, range);
            if (random.Chance(isFilling ? 75 : 20)) {
                twin.Insert(key);
            } else {
                twin.Erase(key);
            }
            twin.LookUp(random.Between(-range - 1, range + 1));
            if (step % 97 == 0) {
                twin.CompareAll();
            }
        }
        twin.CompareAll();
    }
}

/// Windows that slide upward and downward, with entries that stay behind and holes that are filled later.
TEST(WindowMap, SlidingWindowsGiveWhatAPlainMapGives) {
    const std::uint64_t seed = Testing::TestSeed();
    constexpr int kNbSequences = 60;
    constexpr int kNbSteps = 2000;
    for (int i = 0; i < kNbSequences && !HasFatalFailure(); ++i) {
        const std::uint64_t own = seed + static_cast<std::uint64_t>(i);
        SCOPED_TRACE(::testing::Message() << "TAVRIN_TEST_SEED=" << own);
        Twin twin(own);
        Random& random = twin.Choices();
        const auto window = static_cast<std::size_t>(random.Between(1, 300));
        const std::int64_t stride = random.Between(1, 5);
        bool isForward = random.Chance(50);
        for (int step = 0; step < kNbSteps && !HasFatalFailure(); ++step) {
            if (random.Chance(1)) {
                isForward = !isForward;
            }
            twin.Insert(isForward ? twin.Highest() + stride : twin.Lowest() - stride);
            if (random.Chance(10)) {
                twin.Insert(random.Between(twin.Lowest(), twin.Highest()));
            }
            while (twin.Size() > window && !HasFatalFailure()) {
                const std::int64_t kept = random.Chance(10) ? random.Between(1, 20) : 0;
                twin.Erase(isForward ? twin.Lowest() + kept : twin.Highest() - kept);
            }
            twin.LookUp(random.Between(twin.Lowest() - 1, twin.Highest() + 1));
            if (step % 97 == 0) {
                twin.CompareAll();
            }
        }
        twin.CompareAll();
    }
}

}  // namespace
}  // namespace Tavrin::Player
