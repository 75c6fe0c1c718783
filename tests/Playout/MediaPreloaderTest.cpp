#include "Playout/MediaPreloader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/Output.h"
#include "Player/Support/Waiting.h"
#include "Playout/CompressedSample.h"
#include "Playout/GroupReach.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Player::CacheUpdateQueue;
using Player::ExistingCacheUpdateQueues;
using Player::IPreloader;
using Player::ISample;
using Player::Output;
using Player::PreloadOrder;
using Player::StorageId;
using Player::TrackId;
using Player::Testing::Gate;
using Time::TimePoint;

const TrackId kFirst(StorageId("local", 0), 1);
const TrackId kSecond(StorageId("local", 0), 2);

TimePoint Ms(std::int64_t milliseconds) {
    return TimePoint().FromMilliseconds(milliseconds);
}

struct Answer {
    IPreloader::PreloadResult result = IPreloader::ERROR;
    TimePoint tp;
    std::unique_ptr<ISample> sample;

    const CompressedSample& Compressed() const { return dynamic_cast<const CompressedSample&>(*sample); }
};

class MediaPreloaderTest : public testing::Test {
protected:
    MediaPreloaderTest() { preloader_.AddTrack(kFirst, index_); }

    /// The answer to an order, which must be the only one.
    Answer Ask(const TimePoint& tp, const TrackId& track = kFirst) {
        Answer answer;
        answer.result = preloader_.Preload(PreloadOrder(tp, index_->Rate(), &queue_, track));
        Output output;
        EXPECT_TRUE(queue_.Pop(output));
        answer.tp = output.tp_;
        answer.sample.reset(output.sample_);
        EXPECT_FALSE(queue_.Pop(output)) << "a second answer";
        return answer;
    }

    std::shared_ptr<const RecordingIndex> index_ = RecordingIndex::Build(Clips::OpenGroups());
    CacheUpdateQueue queue_;
    MediaPreloader preloader_;
};

// ---- Answers ----------------------------------------------------------------------------------------------

TEST_F(MediaPreloaderTest, DeliversTheCompressedPictureOnDisplay) {
    for (std::int64_t sample = 0; sample < index_->NbSamples(); ++sample) {
        const auto answer = Ask(index_->SampleStart(sample));
        ASSERT_EQ(answer.result, IPreloader::SUCCESS_EXIST);
        ASSERT_NE(answer.sample, nullptr);
        EXPECT_EQ(answer.Compressed().PictureNumber(), index_->PictureAt(sample));
        EXPECT_EQ(answer.Compressed().Track(), kFirst);
        EXPECT_EQ(answer.Compressed().Group()->Number(),
                  index_->Picture(static_cast<std::size_t>(sample)).group);
    }
}

TEST_F(MediaPreloaderTest, TheOutputHasTheOrdersTimePointAndTheSampleThatOfTheGrid) {
    const auto answer = Ask(Ms(130));
    EXPECT_EQ(answer.tp, Ms(130));
    EXPECT_EQ(answer.sample->GetTimePoint(), Ms(120));
    EXPECT_EQ(answer.sample->GetDuration(), Ms(40));
    EXPECT_EQ(answer.Compressed().PictureNumber(), 3u);
}

TEST_F(MediaPreloaderTest, APictureThatStaysIsDeliveredForEachOfItsSamples) {
    const auto variable = RecordingIndex::Build(Clips::VariableRate());
    preloader_.AddTrack(kSecond, variable);
    const auto first = Ask(Ms(80), kSecond);
    const auto second = Ask(Ms(120), kSecond);
    EXPECT_EQ(first.Compressed().PictureNumber(), 1u);
    EXPECT_EQ(second.Compressed().PictureNumber(), 1u);
    EXPECT_EQ(first.sample->GetTimePoint(), Ms(80));
    EXPECT_EQ(second.sample->GetTimePoint(), Ms(120));
}

TEST_F(MediaPreloaderTest, OutsideTheRecordingSamplesAreMissing) {
    for (const auto& tp : {Ms(-1), index_->End(), TimePoint::GetHighestTimePoint()}) {
        const auto answer = Ask(tp);
        EXPECT_EQ(answer.result, IPreloader::SUCCESS_MISSING);
        EXPECT_EQ(answer.sample, nullptr);
        EXPECT_EQ(answer.tp, tp);
    }
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbReads, 0u);
}

TEST_F(MediaPreloaderTest, AnUnknownTrackIsAnError) {
    const auto answer = Ask(Ms(0), kSecond);
    EXPECT_EQ(answer.result, IPreloader::ERROR);
    EXPECT_EQ(answer.sample, nullptr);
}

TEST_F(MediaPreloaderTest, AnOrderWithoutQueueIsAnErrorAndReadsNothing) {
    EXPECT_EQ(preloader_.Preload(PreloadOrder(Ms(0), index_->Rate(), nullptr, kFirst)), IPreloader::ERROR);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbReads, 0u);
}

TEST_F(MediaPreloaderTest, PacketsThatAreNotInTheFileAnyMoreAreMissing) {
    const auto file = Clips::Scratch("shortened.ts");
    const auto whole = Clips::ReadFile(Clips::Transport());
    Clips::WriteFile(file, whole);
    const auto longer = RecordingIndex::Build(file);
    const auto& cut = longer->Packet(longer->Group(2).firstPacket + 4);
    Clips::WriteFile(file, whole.substr(0, static_cast<std::size_t>(cut.position)));
    preloader_.AddTrack(kSecond, longer);
    const auto there =
        Ask(longer->SampleStart(static_cast<std::int64_t>(longer->Group(2).firstPicture)), kSecond);
    EXPECT_EQ(there.result, IPreloader::SUCCESS_EXIST);
    const auto gone = Ask(longer->SampleStart(longer->NbSamples() - 1), kSecond);
    EXPECT_EQ(gone.result, IPreloader::SUCCESS_MISSING);
    EXPECT_EQ(gone.sample, nullptr);
    EXPECT_GT(preloader_.GetInformation(kSecond).nbMissingPackets, 0u);
}

// ---- One read for a group ---------------------------------------------------------------------------------

TEST_F(MediaPreloaderTest, OneReadServesAllTheSamplesOfAGroup) {
    const auto& group = index_->Group(1);
    std::shared_ptr<const PacketGroup> shared;
    for (auto picture = group.firstPicture; picture < group.EndPicture(); ++picture) {
        const auto answer = Ask(index_->SampleStart(static_cast<std::int64_t>(picture)));
        ASSERT_NE(answer.sample, nullptr);
        if (shared != nullptr) {
            EXPECT_EQ(answer.Compressed().Group(), shared);
        }
        shared = answer.Compressed().Group();
    }
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbReads, 1u);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbReused, group.nbPictures - 1);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbBytesKept, shared->ByteSize());
}

TEST_F(MediaPreloaderTest, ASampleOutlivesThePreloader) {
    auto other = std::make_unique<MediaPreloader>();
    other->AddTrack(kFirst, index_);
    other->Preload(PreloadOrder(Ms(200), index_->Rate(), &queue_, kFirst));
    other.reset();
    Output output;
    ASSERT_TRUE(queue_.Pop(output));
    const std::unique_ptr<ISample> sample(output.sample_);
    std::uint64_t size = 0;
    EXPECT_NE(sample->GetData("packet", size), nullptr);
    EXPECT_GT(size, 0u);
}

// ---- Failing and waiting reads ----------------------------------------------------------------------------

TEST_F(MediaPreloaderTest, AFailedReadIsAnErrorWithItsTextAndTheNextTryMaySucceed) {
    int nbToFail = 2;
    preloader_.SetReadHook([&](const TrackId&, std::size_t) {
        if (nbToFail-- > 0) {
            throw std::runtime_error("the disk is unplugged");
        }
    });
    for (int i = 0; i < 2; ++i) {
        const auto answer = Ask(Ms(0));
        EXPECT_EQ(answer.result, IPreloader::ERROR);
        EXPECT_EQ(answer.sample, nullptr);
    }
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbFailedReads, 2u);
    EXPECT_EQ(preloader_.GetInformation(kFirst).lastError, "the disk is unplugged");
    EXPECT_EQ(Ask(Ms(0)).result, IPreloader::SUCCESS_EXIST);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbFailedReads, 2u);
}

TEST_F(MediaPreloaderTest, TheReadHookIsAskedBeforeEachReadOfTheFileOnly) {
    std::vector<std::size_t> groups;
    preloader_.SetReadHook([&](const TrackId& track, std::size_t group) {
        EXPECT_EQ(track, kFirst);
        groups.push_back(group);
    });
    const auto second = index_->SampleStart(static_cast<std::int64_t>(index_->Group(1).firstPicture));
    for (const auto& tp : {Ms(0), Ms(40), second, Ms(80), second}) {
        Ask(tp);
    }
    EXPECT_EQ(groups, (std::vector<std::size_t>{0, 1}));
}

TEST_F(MediaPreloaderTest, AReadThatWaitsHoldsUpItsOwnTrackOnly) {
    preloader_.AddTrack(kSecond, index_);
    Gate entered;
    Gate leave;
    preloader_.SetReadHook([&](const TrackId& track, std::size_t) {
        if (track == kFirst) {
            entered.Open();
            EXPECT_TRUE(leave.Wait());
        }
    });
    CacheUpdateQueue held;
    std::thread worker([&] {
        EXPECT_EQ(preloader_.Preload(PreloadOrder(Ms(0), index_->Rate(), &held, kFirst)),
                  IPreloader::SUCCESS_EXIST);
    });
    ASSERT_TRUE(entered.Wait());
    EXPECT_EQ(Ask(Ms(0), kSecond).result, IPreloader::SUCCESS_EXIST);
    Output output;
    EXPECT_FALSE(held.Pop(output));
    leave.Open();
    worker.join();
    ASSERT_TRUE(held.Pop(output));
    delete output.sample_;
}

// ---- Giving up --------------------------------------------------------------------------------------------

/// What is done to a read in progress.
enum class While { NothingIsDone, AnotherGroupIsWanted, ItsGroupIsWanted, TheTrackIsGivenUp };

class MediaPreloaderInARead : public MediaPreloaderTest {
protected:
    static constexpr std::size_t kGroup = 1;

    /// The answer to an order whose read is held while that is done; then it goes on as it may.
    Answer AskWhile(While what, bool fails = false) {
        Gate entered;
        Gate leave;
        preloader_.SetReadHook([&](const TrackId&, std::size_t group) {
            EXPECT_EQ(group, kGroup);
            entered.Open();
            EXPECT_TRUE(leave.Wait());
            if (fails) {
                throw std::runtime_error("the disk is unplugged");
            }
        });
        Answer answer;
        std::thread worker([&] { answer = Ask(StartOfGroup()); });
        EXPECT_TRUE(entered.Wait());
        Do(what);
        leave.Open();
        worker.join();
        preloader_.SetReadHook({});
        return answer;
    }

    [[nodiscard]] TimePoint StartOfGroup() const {
        return index_->SampleStart(index_->Picture(index_->Group(kGroup).firstPicture).sample);
    }

    void ExpectAbandoned(const Answer& answer) {
        EXPECT_EQ(answer.result, IPreloader::ERROR);
        EXPECT_EQ(answer.sample, nullptr);
        const auto information = preloader_.GetInformation(kFirst);
        EXPECT_EQ(information.nbAbandonedReads, 1u);
        EXPECT_EQ(information.nbFailedReads, 0u) << "nothing is wrong with the file";
        EXPECT_EQ(information.lastError, "");
    }

private:
    void Do(While what) {
        if (what == While::TheTrackIsGivenUp) {
            preloader_.GiveUp(kFirst);
        } else if (what != While::NothingIsDone) {
            preloader_.Abandon(kFirst, what == While::ItsGroupIsWanted ? kGroup : kGroup + 1);
        }
    }
};

TEST_F(MediaPreloaderInARead, GoesOnWhereNothingIsDone) {
    EXPECT_EQ(AskWhile(While::NothingIsDone).result, IPreloader::SUCCESS_EXIST);
}

TEST_F(MediaPreloaderInARead, IsGivenUpWhenAnotherGroupIsWanted) {
    ExpectAbandoned(AskWhile(While::AnotherGroupIsWanted));
}

TEST_F(MediaPreloaderInARead, GoesOnWhenItsOwnGroupIsWanted) {
    const Answer answer = AskWhile(While::ItsGroupIsWanted);
    EXPECT_EQ(answer.result, IPreloader::SUCCESS_EXIST);
    EXPECT_NE(answer.sample, nullptr);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbAbandonedReads, 0u);
}

TEST_F(MediaPreloaderInARead, IsGivenUpWithItsTrack) {
    ExpectAbandoned(AskWhile(While::TheTrackIsGivenUp));
}

TEST_F(MediaPreloaderInARead, AnErrorOfAReadThatNobodyWantsAnyMoreIsNone) {
    ExpectAbandoned(AskWhile(While::AnotherGroupIsWanted, true));
}

TEST_F(MediaPreloaderInARead, WhatIsAskedForAfterwardsIsRead) {
    for (const While what : {While::AnotherGroupIsWanted, While::TheTrackIsGivenUp}) {
        EXPECT_EQ(AskWhile(what).sample, nullptr);
        const Answer answer = Ask(StartOfGroup());
        EXPECT_EQ(answer.result, IPreloader::SUCCESS_EXIST);
        ASSERT_NE(answer.sample, nullptr);
        EXPECT_EQ(answer.Compressed().Group()->NbMissing(), 0u);
        // A track of its own for the next round: this one now has the group at hand.
        preloader_.AddTrack(kFirst, index_);
    }
}

TEST_F(MediaPreloaderTest, AnOrderThatWaitedForAReadThatWasGivenUpIsNotBegunAnyMore) {
    Gate entered;
    Gate leave;
    std::atomic<int> nbReads = 0;
    preloader_.SetReadHook([&](const TrackId&, std::size_t) {
        ++nbReads;
        entered.Open();
        EXPECT_TRUE(leave.Wait());
    });
    std::vector<std::thread> workers;
    std::vector<CacheUpdateQueue> queues(2);
    Player::Testing::Counter answers;
    for (auto& queue : queues) {
        workers.emplace_back([&] {
            EXPECT_EQ(preloader_.Preload(PreloadOrder(Ms(0), index_->Rate(), &queue, kFirst)),
                      IPreloader::ERROR);
            answers.Add();
        });
    }
    ASSERT_TRUE(entered.Wait());
    // That the other one has come as far as waiting is not to be seen from outside.
    Player::Testing::LetOthersRun();
    preloader_.Abandon(kFirst, 3);
    leave.Open();
    EXPECT_TRUE(answers.WaitFor(2));
    for (auto& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(nbReads, 1);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbAbandonedReads, 2u);
}

TEST_F(MediaPreloaderTest, WhatIsAtHandIsDeliveredWhateverIsGivenUp) {
    EXPECT_EQ(Ask(Ms(0)).result, IPreloader::SUCCESS_EXIST);
    preloader_.Abandon(kFirst, 3);
    preloader_.GiveUp(kFirst);
    EXPECT_EQ(Ask(Ms(40)).result, IPreloader::SUCCESS_EXIST);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbReads, 1u);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbAbandonedReads, 0u);
}

// ---- Reach ------------------------------------------------------------------------------------------------

TEST_F(MediaPreloaderTest, BeyondTheReachTheNearestPictureWithinItStandsIn) {
    const GroupReach reach{3, 2};
    preloader_.SetReach(kFirst, reach);
    std::size_t nbStandIns = 0;
    for (std::int64_t sample = 0; sample < index_->NbSamples(); ++sample) {
        const auto asked = index_->PictureAt(sample).value();
        const auto answer = Ask(index_->SampleStart(sample));
        ASSERT_EQ(answer.result, IPreloader::SUCCESS_EXIST);
        const std::size_t delivered = answer.Compressed().PictureNumber();
        EXPECT_EQ(delivered, PictureWithin(*index_, reach, asked));
        EXPECT_NE(answer.Compressed().Group()->Packet(index_->Picture(delivered).packet), nullptr);
        EXPECT_EQ(answer.sample->GetTimePoint(), index_->SampleStart(sample)) << "the time is that asked for";
        nbStandIns += delivered == asked ? 0 : 1;
    }
    EXPECT_GT(nbStandIns, index_->NbPictures() / 2);
    // Of five groups every second.
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbReads, 3u);
}

TEST_F(MediaPreloaderTest, WithTheWholeReachAgainEveryPictureIsDelivered) {
    preloader_.SetReach(kFirst, {1, 5});
    EXPECT_EQ(Ask(Ms(40 * 30)).Compressed().PictureNumber(), 0u);
    preloader_.SetReach(kFirst, {});
    EXPECT_EQ(Ask(Ms(40 * 30)).Compressed().PictureNumber(), 30u);
}

TEST_F(MediaPreloaderTest, ReachAndGivingUpAreIgnoredForAnUnknownTrack) {
    preloader_.SetReach(kSecond, {1, 5});
    preloader_.Abandon(kSecond, 1);
    preloader_.GiveUp(kSecond);
    EXPECT_EQ(Ask(Ms(40 * 30)).Compressed().PictureNumber(), 30u);
}

// ---- Delivery ---------------------------------------------------------------------------------------------

TEST_F(MediaPreloaderTest, TheDeliveryHookComesAfterTheOutput) {
    std::vector<IPreloader::PreloadResult> results;
    preloader_.SetDeliveryHook([&](const PreloadOrder& order, IPreloader::PreloadResult result) {
        Output output;
        EXPECT_TRUE(order.queue_->Pop(output)) << "the output is there when the hook is called";
        delete output.sample_;
        results.push_back(result);
    });
    for (const auto& tp : {Ms(0), index_->End()}) {
        preloader_.Preload(PreloadOrder(tp, index_->Rate(), &queue_, kFirst));
    }
    EXPECT_EQ(results, (std::vector{IPreloader::SUCCESS_EXIST, IPreloader::SUCCESS_MISSING}));
}

TEST_F(MediaPreloaderTest, TheDeliveryHookComesForAQueueThatIsGoneToo) {
    ExistingCacheUpdateQueues registry;
    preloader_.SetExistingCacheUpdateQueues(&registry);
    int nbCalls = 0;
    preloader_.SetDeliveryHook([&](const PreloadOrder&, IPreloader::PreloadResult) { ++nbCalls; });
    preloader_.Preload(PreloadOrder(Ms(0), index_->Rate(), &queue_, kFirst));
    EXPECT_EQ(nbCalls, 1);
    Output output;
    EXPECT_FALSE(queue_.Pop(output));
}

// ---- Tracks -----------------------------------------------------------------------------------------------

TEST_F(MediaPreloaderTest, ATrackCanBeReplacedAndRemoved) {
    preloader_.AddTrack(kFirst, RecordingIndex::Build(Clips::Short()));
    EXPECT_EQ(Ask(Ms(2000)).result, IPreloader::SUCCESS_MISSING) << "the new recording is shorter";
    preloader_.RemoveTrack(kFirst);
    EXPECT_EQ(Ask(Ms(0)).result, IPreloader::ERROR);
    preloader_.RemoveTrack(kFirst);
    EXPECT_EQ(preloader_.GetInformation(kFirst).nbReads, 0u);
}

TEST_F(MediaPreloaderTest, ATrackWhoseFileIsGoneIsRefused) {
    const auto file = Clips::Scratch("gone.mp4");
    Clips::WriteFile(file, Clips::ReadFile(Clips::Short()));
    const auto gone = RecordingIndex::Build(file);
    std::remove(file.c_str());
    EXPECT_THROW(preloader_.AddTrack(kSecond, gone), std::runtime_error);
    EXPECT_EQ(Ask(Ms(0), kSecond).result, IPreloader::ERROR);
}

TEST_F(MediaPreloaderTest, TracksComeAndGoWhileOrdersAreServed) {
    std::atomic<bool> over = false;
    std::thread changer([&] {
        while (!over) {
            preloader_.AddTrack(kSecond, index_);
            preloader_.RemoveTrack(kSecond);
        }
    });
    std::size_t nbExisting = 0;
    for (int i = 0; i < 200 || nbExisting == 0; ++i) {
        const auto answer = Ask(Ms(std::int64_t{40} * (i % 60)), kSecond);
        EXPECT_EQ(answer.sample != nullptr, answer.result == IPreloader::SUCCESS_EXIST);
        nbExisting += answer.sample != nullptr ? 1 : 0;
        EXPECT_EQ(Ask(Ms(std::int64_t{40} * (i % 60))).result, IPreloader::SUCCESS_EXIST);
    }
    over = true;
    changer.join();
}

}  // namespace
}  // namespace Tavrin::Playout
