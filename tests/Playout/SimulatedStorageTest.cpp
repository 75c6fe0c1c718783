#include "Playout/SimulatedStorage.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Tavrin::Playout {
namespace {

using Time::TimePoint;

TimePoint Ms(std::int64_t milliseconds) {
    return TimePoint().FromMilliseconds(milliseconds);
}

/// A storage, and what its reads have come to: when, and whether they succeeded.
struct Scene {
    explicit Scene(const StorageModel& model) : storage(events, model, 1) {}

    void Read(std::int64_t nbBytes) {
        storage.Read(nbBytes, random, [this](bool ok) { done.emplace_back(events.Now(), ok); });
    }
    void Run() {
        while (events.RunNext(Ms(100'000))) {
        }
    }

    EventQueue events;
    SimulatedStorage storage;
    SimulatedRandom random{1, 0};
    std::vector<std::pair<TimePoint, bool>> done;
};

StorageModel Model(const std::string& latency, std::int64_t bytesPerSecond) {
    StorageModel model;
    model.latency = SimulatedTime::Parse(latency);
    model.bytesPerSecond = bytesPerSecond;
    return model;
}

TEST(SimulatedStorage, TakesTheLatencyAndThenTheTimeOfTheBytes) {
    Scene scene(Model("8", 1'000'000));
    scene.Read(20'000);
    scene.Run();
    ASSERT_EQ(scene.done.size(), 1U);
    EXPECT_EQ(scene.done[0], std::pair(Ms(28), true));
}

TEST(SimulatedStorage, HasLatenciesPassAtTheSameTimeAndTransfersOneAfterTheOther) {
    Scene scene(Model("8", 1'000'000));
    scene.Read(10'000);
    scene.Read(10'000);
    scene.Run();
    ASSERT_EQ(scene.done.size(), 2U);
    EXPECT_EQ(scene.done[0].first, Ms(18));
    EXPECT_EQ(scene.done[1].first, Ms(28));
}

TEST(SimulatedStorage, WithoutABoundTakesTheLatencyAlone) {
    Scene scene(Model("8", 0));
    scene.Read(1'000'000'000);
    scene.Run();
    EXPECT_EQ(scene.done.at(0).first, Ms(8));
}

TEST(SimulatedStorage, SaysHowMuchOfTheTimeItTransferred) {
    Scene scene(Model("10", 1'000'000));
    scene.Read(30'000);
    scene.Run();
    EXPECT_FALSE(scene.events.RunNext(Ms(100'000)));
    EXPECT_NEAR(scene.storage.BusyPercent(), 0.03, 1e-9);
}

TEST(SimulatedStorage, FailsAfterTheLatencyWithoutATransfer) {
    StorageModel model = Model("8", 1'000);
    model.failedPercent = 100;
    Scene scene(model);
    scene.Read(1'000'000);
    scene.Run();
    EXPECT_EQ(scene.done.at(0), std::pair(Ms(8), false));
}

TEST(SimulatedStorage, FailsAsOftenAsStated) {
    StorageModel model = Model("0", 0);
    model.failedPercent = 25;
    Scene scene(model);
    constexpr int nbReads = 4000;
    for (int i = 0; i < nbReads; ++i) {
        scene.Read(1);
    }
    scene.Run();
    int nbFailed = 0;
    for (const auto& [when, ok] : scene.done) {
        nbFailed += ok ? 0 : 1;
    }
    EXPECT_NEAR(nbFailed, nbReads / 4.0, nbReads / 40.0);
}

TEST(SimulatedStorage, StandsStillDuringAStallAndGoesOnAfterIt) {
    StorageModel model = Model("0", 1'000'000);
    model.stallEvery = Ms(1000);
    model.stallFor = Ms(300);
    Scene scene(model);
    constexpr std::int64_t seconds = 20;
    scene.Read(seconds * 1'000'000);
    scene.Run();
    // About 20 stalls fall into the 20 seconds of transfer; each adds all of its length.
    const TimePoint prolonged = scene.done.at(0).first - Ms(seconds * 1000);
    EXPECT_GT(prolonged, Ms(8 * 300));
    EXPECT_LT(prolonged, Ms(35 * 300));
    EXPECT_EQ(prolonged.Milliseconds() % 300, 0);
}

TEST(SimulatedStorage, GivesTheSameTimesForTheSameSeed) {
    StorageModel model = Model("heavy:5,40", 5'000'000);
    model.failedPercent = 5;
    model.stallEvery = Ms(500);
    model.stallFor = Ms(50);
    Scene one(model);
    Scene other(model);
    for (Scene* scene : {&one, &other}) {
        for (int i = 0; i < 100; ++i) {
            scene->Read(100'000);
        }
        scene->Run();
    }
    EXPECT_EQ(one.done, other.done);
}

TEST(StorageModel, RefusesWhatCannotBeNamingTheValueAndTheRule) {
    const auto refusal = [](const StorageModel& model) -> std::string {
        try {
            model.Check();
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(refusal(Model("0", -1)), "a storage of -1 bytes a second: it must be 0 (no bound) or more");
    StorageModel model;
    model.failedPercent = 101;
    EXPECT_EQ(refusal(model), "failures of 101.000000 %: it must be from 0 to 100");
    model = StorageModel();
    model.stallEvery = Ms(10);
    EXPECT_NE(refusal(model).find("both must be at least a millisecond"), std::string::npos);
}

}  // namespace
}  // namespace Tavrin::Playout
