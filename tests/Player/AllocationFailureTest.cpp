// Memory may run out at any moment. Every operation of a tick is tried with its first, its second, its third ... request
// for memory failing, until it succeeds with none failing: nothing is lost, nothing is held twice, and what failed can
// be done again.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Player/Cache.h"
#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/Player.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/AllocationCount.h"
#include "Player/Support/Moments.h"
#include "Player/Support/ScriptedStream.h"
#include "Player/Support/UncountedSample.h"

namespace Tavrin::Player {
namespace {

using Testing::Ms;
using Testing::StartOf;
using Time::TimePoint;

const SampleRate kRate(25, 1);

/// More than a queue holds in one piece of memory, so that some pushes have to ask for another.
constexpr std::int64_t kNbOrders = 200;

/// A sample whose memory is not counted, and which is.
class LiveSample final : public ISample {
public:
    LiveSample(const TimePoint& tp, std::int64_t& nbLive) : sample_(tp), nbLive_(nbLive) { ++nbLive_; }
    ~LiveSample() override { --nbLive_; }
    LiveSample(const LiveSample&) = delete;
    LiveSample& operator=(const LiveSample&) = delete;

    static void* operator new(std::size_t size) { return Testing::UncountedSample::operator new(size); }
    static void operator delete(void* memory) { Testing::UncountedSample::operator delete(memory); }

    TimePoint GetTimePoint() const override { return sample_.GetTimePoint(); }
    TimePoint GetDuration() const override { return {}; }
    std::set<std::string> GetPropertyKeys() const override { return {}; }
    std::set<std::string> GetDataKeys() const override { return {}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t&) const override { return nullptr; }
    const std::uint8_t* GetData(const std::string&, std::uint64_t&) const override { return nullptr; }

private:
    Testing::UncountedSample sample_;
    std::int64_t& nbLive_;
};

/// Does `operation` once for each of its requests for memory, with that one failing, or that one and all after it, and once
/// with none failing. Each time on a scene of its own; `check` is told whether it threw. Returns how many requests there were.
template <typename Scene, typename Operation, typename Check>
std::size_t WithAllocationsFailing(bool allAfter, Operation operation, Check check) {
    constexpr std::size_t kMost = 10'000;
    for (std::size_t number = 1; number < kMost; ++number) {
        SCOPED_TRACE("request " + std::to_string(number) + (allAfter ? " and all after it" : ""));
        Scene scene;
        bool failed = false;
        allAfter ? Testing::FailAllocationsFrom(number) : Testing::FailAllocation(number);
        try {
            operation(scene);
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        const bool none = Testing::TakeBackFailure();
        // Who can do without the memory may go on without a word.
        EXPECT_FALSE(failed && none) << "it fails although every request was met";
        check(scene, failed);
        if (none || ::testing::Test::HasFailure()) {
            return number - 1;
        }
    }
    ADD_FAILURE() << "it never succeeds";
    return kMost;
}

template <typename Scene, typename Operation, typename Check>
std::size_t WithEachAllocationFailing(Operation operation, Check check) {
    const std::size_t nb = WithAllocationsFailing<Scene>(false, operation, check);
    WithAllocationsFailing<Scene>(true, operation, check);
    return nb;
}

class AllocationFailure : public ::testing::Test {
protected:
    void SetUp() override {
        if (!Testing::AllocationsAreCounted()) {
            GTEST_SKIP() << "this build has an operator new of its own";
        }
    }
};

PreloadOrder PreloadOrderAt(std::int64_t number) {
    return PreloadOrder(StartOf(number, kRate), kRate, nullptr, TrackId(StorageId("10.0.0.2", 5000), 1));
}

TEST_F(AllocationFailure, APreloadOrderIsInTheQueueOrWithTheCaller) {
    struct Scene {
        PreloadOrderQueue queue;
        std::int64_t nbPushed = 0;
    };
    const std::size_t nb = WithEachAllocationFailing<Scene>(
        [](Scene& scene) {
            for (; scene.nbPushed < kNbOrders; ++scene.nbPushed) {
                scene.queue.Push(PreloadOrderAt(scene.nbPushed));
            }
        },
        [](Scene& scene, bool failed) {
            EXPECT_EQ(scene.nbPushed < kNbOrders, failed);
            PreloadOrder order;
            for (std::int64_t number = 0; number < scene.nbPushed; ++number) {
                ASSERT_TRUE(scene.queue.Pop(order));
                EXPECT_EQ(order.tp_, StartOf(number, kRate));
            }
            EXPECT_FALSE(scene.queue.Pop(order));
        });
    EXPECT_GT(nb, 1U);
}

TEST_F(AllocationFailure, ADecodeOrderIsInTheQueueOrWithTheCaller) {
    struct Scene {
        DecodeOrderQueue queue;
        std::int64_t nbPushed = 0;
    };
    const std::size_t nb = WithEachAllocationFailing<Scene>(
        [](Scene& scene) {
            for (; scene.nbPushed < kNbOrders; ++scene.nbPushed) {
                DecodeOrder order;
                order.orderTp_ = StartOf(scene.nbPushed, kRate);
                scene.queue.Push(order);
            }
        },
        [](Scene& scene, bool failed) {
            EXPECT_EQ(scene.nbPushed < kNbOrders, failed);
            DecodeOrder order;
            for (std::int64_t number = 0; number < scene.nbPushed; ++number) {
                ASSERT_TRUE(scene.queue.Pop(order));
                EXPECT_EQ(order.orderTp_, StartOf(number, kRate));
            }
            EXPECT_FALSE(scene.queue.Pop(order));
        });
    EXPECT_GT(nb, 1U);
}

/// A cache with its queue and its registry, and how many samples are alive.
struct CacheScene {
    CacheScene() {
        cache.SetStreamSampleRate(kRate);
        registry.InsertExistingQueue(cache.GetQueue());
    }

    void Ask(std::int64_t number) { cache.InsertPendingEntry(StartOf(number, kRate)); }

    /// As a worker does it: what the registry does not take stays here, and goes.
    void Answer(std::int64_t number) {
        auto sample = std::make_unique<LiveSample>(StartOf(number, kRate), nbLive);
        Output output;
        output.tp_ = StartOf(number, kRate);
        output.sample_ = sample.get();
        if (registry.PushIfExists(cache.GetQueue(), output)) {
            static_cast<void>(sample.release());
        }
    }

    /// The runs that the cache keeps are those of its entries.
    void ExpectRunsOfEntries() {
        std::set<std::int64_t> numbers;
        for (const SampleRuns::Run& run : cache.FindRuns(kRate).Runs()) {
            for (std::int64_t number = run.first_; number <= run.last_; ++number) {
                numbers.insert(number);
            }
        }
        EXPECT_EQ(numbers, cache.FindMultiples(kRate));
    }

    std::int64_t nbLive = 0;
    ExistingCacheUpdateQueues registry;
    Cache cache;
};

TEST_F(AllocationFailure, AnAnswerIsInTheQueueOrWithTheWorker) {
    struct Scene : CacheScene {
        std::int64_t nbAnswered = 0;
    };
    const std::size_t nb = WithEachAllocationFailing<Scene>(
        [](Scene& scene) {
            for (; scene.nbAnswered < kNbOrders; ++scene.nbAnswered) {
                scene.Answer(scene.nbAnswered);
            }
        },
        [](Scene& scene, bool) {
            EXPECT_EQ(scene.nbLive, scene.nbAnswered);
            Output output;
            for (std::int64_t number = 0; number < scene.nbAnswered; ++number) {
                ASSERT_TRUE(scene.cache.GetQueue()->Pop(output));
                EXPECT_EQ(output.tp_, StartOf(number, kRate));
                delete output.sample_;
            }
            EXPECT_FALSE(scene.cache.GetQueue()->Pop(output));
        });
    EXPECT_GT(nb, 1U);
}

TEST_F(AllocationFailure, AQueueIsRegisteredWhollyOrNotAtAll) {
    struct Scene {
        ExistingCacheUpdateQueues registry;
        std::vector<CacheUpdateQueue> queues{static_cast<std::size_t>(kNbOrders)};
        std::size_t nbRegistered = 0;
    };
    const std::size_t nb = WithEachAllocationFailing<Scene>(
        [](Scene& scene) {
            for (; scene.nbRegistered < scene.queues.size(); ++scene.nbRegistered) {
                scene.registry.InsertExistingQueue(&scene.queues[scene.nbRegistered]);
            }
        },
        [](Scene& scene, bool failed) {
            for (std::size_t i = 0; i < scene.queues.size(); ++i) {
                EXPECT_EQ(scene.registry.Exists(&scene.queues[i]), i < scene.nbRegistered);
                EXPECT_EQ(scene.registry.PushIfExists(&scene.queues[i], Output()), i < scene.nbRegistered);
            }
            if (failed) {
                scene.registry.InsertExistingQueue(&scene.queues[scene.nbRegistered]);
                EXPECT_TRUE(scene.registry.Exists(&scene.queues[scene.nbRegistered]));
                scene.registry.RemoveExistingQueue(&scene.queues[scene.nbRegistered]);
                EXPECT_FALSE(scene.registry.Exists(&scene.queues[scene.nbRegistered]));
            }
        });
    EXPECT_GT(nb, 1U);
}

/// Numbers that fill blocks, leave holes, and come from both ends and in between.
std::int64_t Scattered(std::int64_t i) {
    return 1000 + (i * 37) % (2 * kNbOrders);
}

std::set<std::int64_t> FirstScattered(std::int64_t nb) {
    std::set<std::int64_t> numbers;
    for (std::int64_t i = 0; i < nb; ++i) {
        numbers.insert(Scattered(i));
    }
    return numbers;
}

TEST_F(AllocationFailure, AnEntryIsPendingOrAbsent) {
    struct Scene : CacheScene {
        Scene() { cache.FindRuns(kRate); }
        std::int64_t nbAsked = 0;
    };
    const std::size_t nb = WithEachAllocationFailing<Scene>(
        [](Scene& scene) {
            for (; scene.nbAsked < kNbOrders; ++scene.nbAsked) {
                scene.Ask(Scattered(scene.nbAsked));
            }
        },
        [](Scene& scene, bool) {
            EXPECT_EQ(scene.cache.FindMultiples(kRate), FirstScattered(scene.nbAsked));
            EXPECT_EQ(scene.cache.GetInformation().nbPendingSamples_, scene.nbAsked);
            scene.ExpectRunsOfEntries();
            for (; scene.nbAsked < kNbOrders; ++scene.nbAsked) {
                scene.Ask(Scattered(scene.nbAsked));
            }
            EXPECT_EQ(scene.cache.FindMultiples(kRate), FirstScattered(kNbOrders));
            scene.ExpectRunsOfEntries();
        });
    EXPECT_GT(nb, 1U);
}

struct AnsweredScene : CacheScene {
    AnsweredScene() {
        for (std::int64_t i = 0; i < kNbOrders; ++i) {
            Ask(Scattered(i));
        }
        for (std::int64_t i = 0; i < kNbOrders; ++i) {
            Answer(Scattered(i));
        }
    }
};

TEST_F(AllocationFailure, AnAnswerIsFiledOrStaysInTheQueue) {
    WithEachAllocationFailing<AnsweredScene>([](AnsweredScene& scene) { scene.cache.Update(); },
                                             [](AnsweredScene& scene, bool) {
                                                 EXPECT_EQ(scene.nbLive, kNbOrders);
                                                 scene.cache.Update();
                                                 EXPECT_EQ(scene.cache.GetInformation().nbValidSamples_,
                                                           kNbOrders);
                                                 EXPECT_EQ(scene.nbLive, kNbOrders);
                                                 scene.ExpectRunsOfEntries();
                                                 scene.cache.Clear();
                                                 EXPECT_EQ(scene.nbLive, 0);
                                             });
}

TEST_F(AllocationFailure, AnEntryIsEvictedWhollyOrNotAtAll) {
    struct Scene : AnsweredScene {
        Scene() {
            cache.Update();
            cache.FindRuns(kRate);
            // The one in use stays, in the midst of what goes.
            ISample* sample = nullptr;
            cache.GetSample(StartOf(Scattered(7), kRate), kRate, &sample, false);
        }
        void Evict() {
            cache.EraseAfter(StartOf(1300, kRate), Cache::Valid);
            cache.EraseBefore(StartOf(1200, kRate));
            cache.EraseAfter(StartOf(1210, kRate), Cache::Not_Found);
        }
    };
    WithEachAllocationFailing<Scene>(
        [](Scene& scene) { scene.Evict(); },
        [](Scene& scene, bool) {
            EXPECT_EQ(scene.cache.GetInformation().nbValidSamples_, scene.nbLive);
            scene.ExpectRunsOfEntries();
            scene.Evict();
            EXPECT_EQ(scene.cache.GetInformation().nbValidSamples_, scene.nbLive);
            EXPECT_LE(scene.nbLive, 12);
            EXPECT_GE(scene.nbLive, 2);
            scene.ExpectRunsOfEntries();
        });
}

TEST_F(AllocationFailure, AnEvictionThatLeavesManyHolesKeepsTheRunsOrCountsThemAnew) {
    struct Scene : CacheScene {
        Scene() {
            for (std::int64_t number = 0; number < kNbOrders; ++number) {
                Ask(number);
                // Every third one has no answer yet and stays.
                if (number % 3 != 0) {
                    Answer(number);
                }
            }
            cache.Update();
            cache.FindRuns(kRate);
        }
    };
    const std::size_t nb = WithEachAllocationFailing<Scene>(
        [](Scene& scene) { scene.cache.EraseBefore(StartOf(kNbOrders, kRate)); },
        [](Scene& scene, bool failed) {
            EXPECT_FALSE(failed);
            EXPECT_EQ(scene.nbLive, 0);
            EXPECT_EQ(scene.cache.GetInformation().nbPendingSamples_, (kNbOrders + 2) / 3);
            scene.ExpectRunsOfEntries();
        });
    EXPECT_GE(nb, 1U);
}

/// All that a planner proposes, from where it stands.
std::vector<TimePoint> ProposalsOf(PreloadTimePointGenerator& planner) {
    std::vector<TimePoint> proposals;
    for (TimePoint tp; planner.Get(tp);) {
        proposals.push_back(tp);
    }
    return proposals;
}

TEST_F(AllocationFailure, APlannerThatCouldNotBeUpdatedPlansTheSameTheNextTime) {
    struct Scene : CacheScene {
        Scene() {
            for (std::int64_t i = 0; i < kNbOrders; ++i) {
                Ask(Scattered(i));
            }
            SetUp(planner);
            player.GoTo(StartOf(1100, kRate));
            player.SetSpeed(Time::Ratio(-2, 1));
        }
        void SetUp(PreloadTimePointGenerator& generator) {
            generator.SetSampleRate(kRate);
            generator.SetDisplayRate(kRate);
            generator.SetNumberPreloads(100);
            generator.SetCache(&cache);
        }
        Player player;
        PreloadTimePointGenerator planner;
    };
    const std::size_t nb = WithEachAllocationFailing<Scene>(
        [](Scene& scene) { scene.planner.Update(&scene.player); },
        [](Scene& scene, bool) {
            TimePoint tp;
            // Whatever it has kept of the update, it can be asked.
            static_cast<void>(scene.planner.Get(tp));
            scene.planner.Update(&scene.player);
            PreloadTimePointGenerator fresh;
            scene.SetUp(fresh);
            fresh.Update(&scene.player);
            const std::vector<TimePoint> proposals = ProposalsOf(scene.planner);
            EXPECT_FALSE(proposals.empty());
            EXPECT_EQ(proposals, ProposalsOf(fresh));
        });
    EXPECT_GE(nb, 1U);
}

/// A client's tick as a whole. It can be begun again where it was broken off: the move is made once, and a sample that is
/// asked for but not ordered yet is remembered.
struct TickScene : CacheScene {
    TickScene() {
        planner.SetSampleRate(kRate);
        planner.SetDisplayRate(kRate);
        planner.SetNumberPreloads(kNbOrders);
        planner.SetCache(&cache);
        player.AttachStream(&stream);
        Tick();
        Answer(3);
        Answer(4);
        // A steady tick asks for no memory at all.
        player.GoTo(Ms(40'000));
    }
    ~TickScene() { player.DetachAllStreams(); }

    void Tick() {
        cache.Update();
        if (!hasMoved) {
            player.Update(Ms(40));
            hasMoved = true;
        }
        planner.Update(&player);
        while (unordered || Ask()) {
            orders.Push(PreloadOrder(*unordered, kRate, cache.GetQueue(), TrackId()));
            unordered.reset();
        }
        cache.EraseBefore(player.GetCurrentTimePoint());
        hasMoved = false;
    }

    /// Whether there is one more sample to be ordered.
    bool Ask() {
        TimePoint tp;
        while (!unordered && planner.Get(tp)) {
            if (!cache.InsertPendingEntry(tp)) {
                unordered = tp;
            }
        }
        return unordered.has_value();
    }

    std::multiset<std::int64_t> Ordered() {
        std::multiset<std::int64_t> numbers;
        for (PreloadOrder order; orders.Pop(order);) {
            numbers.insert(order.tp_.SampleNumber(kRate));
        }
        return numbers;
    }

    Testing::ScriptedStream stream;
    Player player;
    PreloadTimePointGenerator planner;
    PreloadOrderQueue orders;
    bool hasMoved = false;
    std::optional<TimePoint> unordered;
};

TEST_F(AllocationFailure, ATickThatIsBrokenOffAndBegunAgainOrdersEachSampleOnceAndMovesOnce) {
    TickScene undisturbed;
    undisturbed.Tick();
    const std::multiset<std::int64_t> expected = undisturbed.Ordered();
    EXPECT_GT(static_cast<std::int64_t>(expected.size()), kNbOrders);
    const std::size_t nb = WithEachAllocationFailing<TickScene>(
        [](TickScene& scene) { scene.Tick(); },
        [&](TickScene& scene, bool failed) {
            if (failed) {
                scene.Tick();
            }
            EXPECT_EQ(scene.player.GetCurrentTimePoint(), Ms(40'040));
            EXPECT_EQ(scene.Ordered(), expected);
            EXPECT_EQ(scene.cache.FindMultiples(kRate), undisturbed.cache.FindMultiples(kRate));
            EXPECT_EQ(scene.cache.GetInformation().nbValidSamples_,
                      undisturbed.cache.GetInformation().nbValidSamples_);
            EXPECT_EQ(scene.nbLive, undisturbed.nbLive);
            scene.ExpectRunsOfEntries();
        });
    EXPECT_GT(nb, 1U);
}

TEST_F(AllocationFailure, AStreamIsAttachedOrNot) {
    struct Scene {
        ~Scene() { player.DetachAllStreams(); }
        std::vector<Testing::ScriptedStream> streams{20};
        Player player;
        std::size_t nbAttached = 0;
    };
    const std::size_t nb = WithEachAllocationFailing<Scene>(
        [](Scene& scene) {
            for (; scene.nbAttached < scene.streams.size(); ++scene.nbAttached) {
                scene.player.AttachStream(&scene.streams[scene.nbAttached]);
            }
        },
        [](Scene& scene, bool) {
            scene.player.Update(Ms(40));
            EXPECT_EQ(scene.player.GetCurrentTimePoint(), Ms(40));
            for (std::size_t i = 0; i < scene.streams.size(); ++i) {
                EXPECT_EQ(scene.streams[i].NbReadyCalls(), i < scene.nbAttached ? 1 : 0);
            }
        });
    EXPECT_EQ(nb, 20U);
}

}  // namespace
}  // namespace Tavrin::Player
