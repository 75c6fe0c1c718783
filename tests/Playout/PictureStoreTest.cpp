#include "Playout/PictureStore.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <vector>

#include "Playout/FramePool.h"
#include "Playout/Support/MadePictures.h"

namespace Tavrin::Playout {
namespace {

using Support::PlainPicture;

std::size_t OnePicture() {
    return PlainPicture(0, 16, 16, 0)->ByteSize();
}

std::vector<std::size_t> Held(const PictureStore& store) {
    std::vector<std::size_t> numbers;
    for (std::size_t number = 0; number < 100; ++number) {
        if (store.Find(number) != nullptr) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

/// Adds pictures on the way to the wanted one.
void Add(PictureStore& store, std::initializer_list<std::size_t> numbers, std::size_t wanted) {
    for (const auto number : numbers) {
        store.Add(PlainPicture(number, 16, 16, 0), wanted);
    }
}

using Numbers = std::vector<std::size_t>;

TEST(PictureStore, FindsWhatItHolds) {
    PictureStore store(10 * OnePicture());
    const auto picture = PlainPicture(7, 16, 16, 0);
    store.Add(picture, 7);
    EXPECT_EQ(store.Find(7), picture);
    EXPECT_EQ(store.Find(6), nullptr);
    EXPECT_EQ(store.Size(), 1u);
    EXPECT_EQ(store.Bytes(), OnePicture());
}

TEST(PictureStore, KeepsTheLastPicturesUpToTheWantedOne) {
    PictureStore store(3 * OnePicture());
    Add(store, {0, 1, 2, 3, 4, 5}, 5);
    EXPECT_EQ(Held(store), (Numbers{3, 4, 5}));
    EXPECT_EQ(store.MaxBytesEver(), 3 * OnePicture());
}

TEST(PictureStore, PicturesAfterTheWantedOneGoFirstTheFarthestBeforeTheOthers) {
    PictureStore store(4 * OnePicture());
    Add(store, {6, 7, 8, 9}, 9);
    Add(store, {0, 1}, 5);
    EXPECT_EQ(Held(store), (Numbers{0, 1, 6, 7}));
    Add(store, {2, 3, 4, 5}, 5);
    EXPECT_EQ(Held(store), (Numbers{2, 3, 4, 5}));
}

TEST(PictureStore, HoldsOnePictureHoweverLarge) {
    PictureStore store(1);
    Add(store, {3}, 3);
    EXPECT_EQ(Held(store), (Numbers{3}));
    Add(store, {4}, 4);
    EXPECT_EQ(Held(store), (Numbers{4}));
    EXPECT_EQ(store.MaxBytesEver(), OnePicture());
}

TEST(PictureStore, APictureAddedAgainIsCountedOnce) {
    PictureStore store(10 * OnePicture());
    Add(store, {3, 3, 3}, 3);
    EXPECT_EQ(store.Size(), 1u);
    EXPECT_EQ(store.Bytes(), OnePicture());
}

TEST(PictureStore, ClearGivesTheBytesBack) {
    PictureStore store(10 * OnePicture());
    Add(store, {1, 2}, 2);
    store.Clear();
    EXPECT_EQ(store.Size(), 0u);
    EXPECT_EQ(store.Bytes(), 0u);
    EXPECT_EQ(store.Find(1), nullptr);
}

TEST(PictureStore, WhatOthersHeldGoesAtTheNextPlaceOnceTheyHaveLetGo) {
    PictureStore store(4 * OnePicture(), FramePool::Create(4 * OnePicture()));
    std::vector<std::shared_ptr<const Picture>> others;
    for (std::size_t number = 0; number < 4; ++number) {
        others.push_back(PlainPicture(number, 16, 16, 0));
        store.Add(others.back(), number);
    }
    store.SetMaxBytes(2 * OnePicture());
    const PlayPlace atTheBeginning;
    store.SetPlace(atTheBeginning);
    EXPECT_EQ(store.Size(), 4u) << "to drop what is held frees nothing";
    others.clear();
    store.SetPlace(atTheBeginning);
    EXPECT_EQ(Held(store), (Numbers{0, 1}));
}

TEST(PictureStore, NearestIsTakenFromTheRangeAskedFor) {
    PictureStore store(10 * OnePicture());
    Add(store, {10, 14, 20, 21}, 21);
    EXPECT_EQ(store.Nearest(13, 0, 100)->Number(), 14U);
    EXPECT_EQ(store.Nearest(11, 0, 100)->Number(), 10U);
    EXPECT_EQ(store.Nearest(19, 0, 20)->Number(), 14U);
    EXPECT_EQ(store.Nearest(5, 20, 30)->Number(), 20U);
    EXPECT_EQ(store.Nearest(5, 22, 30), nullptr);
}

TEST(PictureStore, NewestIsTheOneAddedLastAsLongAsItIsHeld) {
    PictureStore store(10 * OnePicture());
    EXPECT_EQ(store.Newest(), nullptr);
    Add(store, {3, 9, 4}, 9);
    EXPECT_EQ(store.Newest()->Number(), 4U);
    store.Clear();
    EXPECT_EQ(store.Newest(), nullptr);
}

TEST(PictureStore, WithoutAPlaceEveryPictureIsWanted) {
    const PictureStore store(10 * OnePicture());
    EXPECT_TRUE(store.Wants(0));
    EXPECT_FALSE(store.IsPassed(0));
}

TEST(PictureStore, WantedIsWhatIsShownAndWithinReach) {
    PictureStore store(10 * OnePicture());
    store.SetPlace({20, false, 2, 8, 4});
    for (const std::size_t number : {16U, 18U, 20U, 28U}) {
        EXPECT_TRUE(store.Wants(number)) << number;
    }
    for (const std::size_t number : {14U, 21U, 19U, 30U}) {
        EXPECT_FALSE(store.Wants(number)) << number;
    }
}

TEST(PictureStore, BackwardAheadIsBelow) {
    PictureStore store(10 * OnePicture());
    store.SetPlace({20, true, 1, 8, 0});
    EXPECT_TRUE(store.Wants(12));
    EXPECT_FALSE(store.Wants(11));
    EXPECT_FALSE(store.Wants(21));
    EXPECT_TRUE(store.IsPassed(21));
    EXPECT_FALSE(store.IsPassed(20));
    EXPECT_FALSE(store.IsPassed(19));
}

}  // namespace
}  // namespace Tavrin::Playout
