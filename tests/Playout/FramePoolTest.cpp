#include "Playout/FramePool.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

#include "Playout/DecodeLane.h"
#include "Playout/GroupReader.h"
#include "Playout/MemoryPlan.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/Oracle.h"

namespace Tavrin::Playout {
namespace {

constexpr std::size_t kPlenty = std::size_t{64} << 20U;

/// A recording whose pictures are decoded into a pool.
class FromPool : public testing::Test {
protected:
    std::shared_ptr<const Picture> Decode(DecodeLane& lane, std::size_t picture) {
        return lane.Decode(*reader_.Read(index_->Picture(picture).group), picture);
    }

    std::unique_ptr<DecodeLane> Lane(int nbThreads = 1) {
        return std::make_unique<DecodeLane>(index_, DecodeLaneOptions{kPlenty, nbThreads}, nullptr, pool_);
    }

    std::shared_ptr<const RecordingIndex> index_ = RecordingIndex::Build(Support::Clips::ClosedGroups());
    GroupReader reader_{index_};
    std::shared_ptr<FramePool> pool_ = FramePool::Create(kPlenty);
};

TEST_F(FromPool, PicturesAreThoseOfAStraightDecode) {
    const Support::Oracle oracle(index_);
    for (const int nbThreads : {1, 2}) {
        const auto lane = Lane(nbThreads);
        for (std::size_t number = 0; number < index_->NbPictures(); ++number) {
            const auto picture = Decode(*lane, number);
            ASSERT_NE(picture, nullptr) << number;
            ASSERT_EQ(picture->Md5(), oracle.md5[number]) << number << " with " << nbThreads << " threads";
        }
    }
}

TEST_F(FromPool, WhatIsInUseIsCountedUntilTheLastOneLetsGo) {
    std::shared_ptr<const Picture> kept;
    {
        const auto lane = Lane();
        kept = Decode(*lane, 5);
        ASSERT_NE(kept, nullptr);
        EXPECT_GT(pool_->UsedBytes(), 6 * kept->ByteSize())
            << "the store's pictures and what decoders refer to";
    }
    EXPECT_EQ(pool_->UsedBytes(), kept->ByteSize());
    kept.reset();
    EXPECT_EQ(pool_->UsedBytes(), 0U);
    EXPECT_GT(pool_->MaxUsedBytesEver(), 0U);
}

TEST_F(FromPool, LanesWriteOverWhatOthersLetGo) {
    {
        const auto lane = Lane();
        ASSERT_NE(Decode(*lane, 11), nullptr);
    }
    const std::size_t idle = pool_->IdleBytes();
    ASSERT_GT(idle, 0U);
    const auto other = Lane();
    ASSERT_NE(Decode(*other, 11), nullptr);
    EXPECT_EQ(pool_->UsedBytes() + pool_->IdleBytes(), idle) << "nothing was mapped anew";
}

TEST_F(FromPool, IdleMemoryBeyondTheBoundIsGivenBack) {
    {
        const auto lane = Lane();
        ASSERT_NE(Decode(*lane, 11), nullptr);
    }
    ASSERT_GT(pool_->IdleBytes(), 0U);
    pool_->SetMaxBytes(0);
    EXPECT_EQ(pool_->IdleBytes(), 0U);
    const auto lane = Lane();
    EXPECT_NE(Decode(*lane, 11), nullptr) << "a decoder is never refused";
    EXPECT_EQ(pool_->IdleBytes(), 0U);
}

TEST_F(FromPool, APictureOutlivesEveryoneElse) {
    auto lane = Lane();
    const auto picture = Decode(*lane, 3);
    ASSERT_NE(picture, nullptr);
    const auto md5 = picture->Md5();
    lane.reset();
    pool_.reset();
    EXPECT_EQ(picture->Md5(), md5);
}

TEST_F(FromPool, APictureTakesWhatIsPlannedForIt) {
    const auto lane = Lane();
    const auto picture = Decode(*lane, 0);
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(NeedsOf(*index_, {}).picture, picture->ByteSize());
}

TEST_F(FromPool, SeveralLanesDecodeAtOnce) {
    const Support::Oracle oracle(index_);
    std::vector<std::thread> threads;
    for (std::size_t group = 0; group < 4; ++group) {
        threads.emplace_back([&, group] {
            GroupReader reader(index_);
            const auto lane = Lane();
            const PictureGroup& layout = index_->Group(group);
            for (std::size_t number = layout.firstPicture; number < layout.EndPicture(); ++number) {
                const auto picture = lane->Decode(*reader.Read(group), number);
                ASSERT_NE(picture, nullptr);
                EXPECT_EQ(picture->Md5(), oracle.md5[number]);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(pool_->UsedBytes(), 0U);
}

}  // namespace
}  // namespace Tavrin::Playout
