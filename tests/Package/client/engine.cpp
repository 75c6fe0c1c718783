// A program outside of the tree, with a decoder, a sample and a logger of its own: plays half a second
// backward at double speed, fetching and decoding on the engine's workers. Exits 0 when all is as it must be.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "Logging/LoggingManager.h"
#include "Player/Cache.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/FakePreloader.h"
#include "Player/FakeSample.h"
#include "Player/Player.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Tools/LoopRecordingVector.h"
#include "picture.h"

using namespace Tavrin::Player;
using Tavrin::Time::Ratio;
using Tavrin::Time::TimePoint;
namespace logging = qor::kp::logging;

namespace {

void Require(bool holds, const std::string& what) {
    if (!holds) {
        std::cerr << "not so: " << what << '\n';
        std::exit(EXIT_FAILURE);
    }
}

// Remembers the last text.
class Memory : public logging::ILogger {
public:
    void Log(logging::Level, const std::string& text, const char*, int) override { last_ = text; }
    void SetLevel(logging::Level level) override { level_ = level; }
    logging::Level GetLevel() const override { return level_; }

    std::string last_;

private:
    logging::Level level_ = logging::Level_Error;
};

// Proves that it was handed the engine's own fake samples, by their type.
class Decoder : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder& order) override {
        if (dynamic_cast<FakeSample*>(order.toDecode_) == nullptr) {
            throw std::runtime_error("not a fake sample");
        }
        TimePoint tp;
        TimePoint duration;
        order.GenerateTimePointAndDuration(tp, duration);
        return new Picture(tp, duration);
    }
};

// One track: what is fetched, what is decoded, and the workers that do it.
class Track {
public:
    Track() {
        for (Cache* cache : {&compressed_, &decoded_}) {
            cache->SetStreamSampleRate(rate_);
            live_.InsertExistingQueue(cache->GetQueue());
        }
        planner_.SetSampleRate(rate_);
        planner_.SetDisplayRate(rate_);
        planner_.SetCache(&compressed_);
        preloadWorker_.SetPreloader(&storage_);
        preloadWorker_.SetPreloadOrderQueue(&preloads_);
        decodeWorker_.SetDecoder(&decoder_);
        decodeWorker_.SetExistingUncompressedCacheUpdateQueues(&live_);
        decodeWorker_.AddDecodeOrderQueue(&decodes_);
        preloadWorker_.Start();
        decodeWorker_.Start();
    }

    ~Track() {
        preloadWorker_.Stop();
        decodeWorker_.Stop();
        live_.RemoveExistingQueue(decoded_.GetQueue());
        live_.RemoveExistingQueue(compressed_.GetQueue());
    }

    // The picture at the play head, asked for until it is there.
    ISample* PictureAt(const Player& player) {
        const TimePoint now = player.GetCurrentTimePoint().AlignWith(rate_);
        ISample* picture = nullptr;
        while (decoded_.GetSample(now, rate_, &picture, false) != Cache::Valid) {
            Plan(player, now);
            Decode(now);
            std::this_thread::yield();
            compressed_.Update();
            decoded_.Update();
        }
        return picture;
    }

    Cache& Compressed() { return compressed_; }

private:
    void Plan(const Player& player, const TimePoint& now) {
        Request(now);
        planner_.Update(&player);
        TimePoint next;
        while (planner_.Get(next)) {
            Request(next);
        }
    }

    void Request(const TimePoint& tp) {
        if (!compressed_.InsertPendingEntry(tp)) {
            preloads_.Push(PreloadOrder(tp, rate_, compressed_.GetQueue(), TrackId()));
        }
    }

    void Decode(const TimePoint& now) {
        ISample* sample = nullptr;
        if (compressed_.GetSample(now, rate_, &sample, false) != Cache::Valid ||
            decoded_.InsertPendingEntry(now)) {
            return;
        }
        sample->Protect(1);
        DecodeOrder order;
        order.toDecode_ = sample;
        order.orderTp_ = now;
        order.queue_ = decoded_.GetQueue();
        decodes_.Push(order);
    }

    const SampleRate rate_{25, 1};
    ExistingCacheUpdateQueues live_;
    Cache compressed_;
    Cache decoded_;
    PreloadTimePointGenerator planner_;
    PreloadOrderQueue preloads_;
    DecodeOrderQueue decodes_;
    FakePreloader storage_;
    Decoder decoder_;
    PreloadThread preloadWorker_;
    DecodeThread decodeWorker_;
};

void PlayBackwardAtDoubleSpeed() {
    Track track;
    Player player;
    player.GoTo(TimePoint().FromMilliseconds(960));
    player.SetSpeed(Ratio(-2, 1));
    for (std::int64_t expected = 960; expected > 0; expected -= 80) {
        const ISample* picture = track.PictureAt(player);
        Require(picture->GetTimePoint() == TimePoint().FromMilliseconds(expected),
                "the next picture is shown");
        player.Update(picture->GetDuration());
    }
}

// An exception of the library is caught as what it is, and the client's own logger has been told.
void RefuseAMisalignedTimePoint(const Memory& log) {
    Track track;
    std::string refusal;
    try {
        track.Compressed().InsertPendingEntry(TimePoint().FromMilliseconds(41));
    } catch (const std::runtime_error& error) {
        refusal = error.what();
    }
    Require(refusal.find("must be aligned") != std::string::npos, "a misaligned time point is refused");
    Require(log.last_ == refusal, "the client's logger holds the refusal");
}

}  // namespace

int main() {
    const auto log = std::make_shared<Memory>();
    logging::LoggingManager::SetLogger("Cache", log);

    PlayBackwardAtDoubleSpeed();
    RefuseAMisalignedTimePoint(*log);

    Tavrin::Tools::LoopRecordingVector ring;
    Require(ring.AverageSince(1000) == 0.0, "an empty ring has the average 0");
    return EXIT_SUCCESS;
}
