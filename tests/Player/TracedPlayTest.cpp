// With every line written, the engine still plays a room full of cameras in real time.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Logging/ILogger.h"
#include "Logging/LoggingManager.h"
#include "Player/Cache.h"
#include "Player/FakePreloader.h"
#include "Player/Player.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Waiting.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/TrackId.h"

namespace Tavrin::Player {
namespace {

using namespace qor::kp::logging;
using Clock = std::chrono::steady_clock;
using Testing::Sec;
using Time::TimePoint;

const SampleRate kRate(25, 1);
constexpr std::chrono::milliseconds kPeriod{40};
constexpr int kNbTracks = 16;
constexpr int kNbTicks = 100;
constexpr std::int64_t kWindow = 25;

/// Standard error into a file until the end of the scope: writing lines costs what it costs a program whose lines are
/// kept.
class KeptStandardError {
public:
    KeptStandardError() : file_(std::tmpfile()), before_(dup(STDERR_FILENO)) {
        std::fflush(stderr);
        if (file_ == nullptr || before_ < 0 || dup2(fileno(file_), STDERR_FILENO) < 0) {
            throw std::runtime_error("standard error cannot be redirected to a temporary file");
        }
    }
    KeptStandardError(const KeptStandardError&) = delete;
    KeptStandardError& operator=(const KeptStandardError&) = delete;
    ~KeptStandardError() {
        Restore();
        std::fclose(file_);
    }

    /// What was written; nothing more is taken from then on.
    std::string Take() {
        Restore();
        std::string text;
        std::rewind(file_);
        for (int c = 0; (c = std::fgetc(file_)) != EOF;) {
            text.push_back(static_cast<char>(c));
        }
        return text;
    }

private:
    void Restore() {
        if (before_ >= 0) {
            std::fflush(stderr);
            dup2(before_, STDERR_FILENO);
            close(before_);
            before_ = -1;
        }
    }

    std::FILE* file_;
    int before_;
};

/// Every line of the engine, from the loggers that it has out of the box.
class ScopedTrace {
public:
    ScopedTrace() { SetAll(Level_Trace); }
    ScopedTrace(const ScopedTrace&) = delete;
    ScopedTrace& operator=(const ScopedTrace&) = delete;
    ~ScopedTrace() { SetAll(Level_Warning); }

private:
    static void SetAll(Level level) {
        for (const char* name :
             {"Player", "Cache", "PreloadTimePointGenerator", "PreloadThread", "FakePreloader"}) {
            LoggingManager::GetLoggerPtr(name)->SetLevel(level);
        }
    }
};

std::size_t NbLinesWith(const std::string& text, std::string_view part) {
    std::size_t nb = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++nb;
    }
    return nb;
}

struct Camera {
    Cache cache;
    PreloadTimePointGenerator planner;
    TrackId id;
};

/// Sixteen tracks over fake storage, with two workers.
class Room {
public:
    Room() {
        for (int i = 0; i < kNbTracks; ++i) {
            cameras_.push_back(std::make_unique<Camera>());
            Camera& camera = *cameras_.back();
            camera.id = Testing::Track(i);
            camera.cache.SetTrackId(camera.id);
            camera.cache.SetStreamSampleRate(kRate);
            camera.planner.SetSampleRate(kRate);
            camera.planner.SetDisplayRate(kRate);
            camera.planner.SetNumberPreloads(kWindow);
            camera.planner.SetCache(&camera.cache);
        }
        for (PreloadThread& worker : workers_) {
            worker.SetPreloader(&preloader_);
            worker.SetPreloadOrderQueue(&orders_);
            worker.Start();
        }
        player_.GoTo(Sec(100));
    }
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;

    ~Room() {
        for (PreloadThread& worker : workers_) {
            worker.Stop();
        }
    }

    /// Shows every track's sample under the play head, lets go of what lies behind, orders what lies ahead, and moves
    /// on. The number of samples shown that were the right ones.
    int Tick() {
        int nbRight = 0;
        for (const auto& camera : cameras_) {
            nbRight += Show(*camera) ? 1 : 0;
            camera->cache.EraseBefore(player_.GetCurrentTimePoint());
            Plan(*camera);
        }
        player_.Update(TimePoint().FromMilliseconds(kPeriod.count()));
        return nbRight;
    }

private:
    /// Waits for the sample: storage may be late, which then costs the tick its time.
    bool Show(Camera& camera) {
        const TimePoint& head = player_.GetCurrentTimePoint();
        const auto bound = Clock::now() + Testing::kFailureBound;
        Order(camera, head);
        ISample* sample = nullptr;
        do {
            camera.cache.Update();
            if (camera.cache.GetSample(head, kRate, &sample, false) == Cache::Valid) {
                return sample->GetTimePoint() == head.AlignWith(kRate);
            }
            std::this_thread::yield();
        } while (Clock::now() < bound);
        return false;
    }

    void Plan(Camera& camera) {
        camera.planner.Update(&player_);
        for (TimePoint tp; camera.planner.Get(tp);) {
            Order(camera, tp);
        }
    }

    void Order(Camera& camera, const TimePoint& tp) {
        if (!camera.cache.InsertPendingEntry(tp)) {
            orders_.Push(PreloadOrder(tp, kRate, camera.cache.GetQueue(), camera.id));
        }
    }

    std::vector<std::unique_ptr<Camera>> cameras_;
    PreloadOrderQueue orders_;
    FakePreloader preloader_;
    std::array<PreloadThread, 2> workers_;
    Player player_;
};

TEST(TracedPlay, SixteenTracksPlayInRealTimeWithEveryLineWritten) {
    KeptStandardError kept;
    int nbRight = 0;
    Clock::duration longest{};
    Clock::duration played{};
    {
        const ScopedTrace trace;
        Room room;
        for (int tick = 0; tick < kNbTicks; ++tick) {
            const auto start = Clock::now();
            nbRight += room.Tick();
            const auto elapsed = Clock::now() - start;
            played += elapsed;
            longest = std::max(longest, elapsed);
        }
    }
    const std::string text = kept.Take();
    EXPECT_EQ(nbRight, kNbTracks * kNbTicks);
    EXPECT_LT(played, kNbTicks * kPeriod) << "play takes longer than what is played";
    // Each sample that was shown was fetched, answered and filed, and each of these has its line.
    constexpr std::size_t kNbShown = std::size_t{kNbTracks} * kNbTicks;
    EXPECT_GE(NbLinesWith(text, ": inserted valid sample at "), kNbShown);
    EXPECT_GE(NbLinesWith(text, ": preload tp "), kNbShown);
    EXPECT_GE(NbLinesWith(text, "Preloaded sample at "), kNbShown);
    const auto us = [](Clock::duration span) {
        return std::chrono::duration_cast<std::chrono::microseconds>(span).count();
    };
    std::cout << us(played) / kNbTicks << " us per tick of " << kNbTracks << " tracks, " << us(longest)
              << " us at most, " << NbLinesWith(text, "\n") << " lines" << std::endl;
}

}  // namespace
}  // namespace Tavrin::Player
