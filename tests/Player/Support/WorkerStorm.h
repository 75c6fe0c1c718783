#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/IPreloader.h"
#include "Player/ISampleDecoder.h"
#include "Player/PreloadThread.h"
#include "Player/Support/RecordingLogger.h"
#include "Player/Support/Waiting.h"
#include "Player/Support/WorkerDoubles.h"
#include "Player/Support/WorkerLedger.h"
#include "Player/TimedPreloadThread.h"

// The client, the storage, the decoder and the workers of a storm: everything runs while workers are stopped
// and started all the time.

namespace Tavrin::Player::Testing {

/// The number of an order's or an answer's sample at the rate of all storms, 25 samples per second.
inline std::size_t NumberOf(const Time::TimePoint& tp) {
    return static_cast<std::size_t>(tp.SampleNumber(SampleRate(25, 1)));
}

/// Nobody reads the workers' lines here, and warnings are part of the plan.
struct StormSilence {
    ScopedSilence preload_{"PreloadThread"};
    ScopedSilence timed_{"TimedPreloadThread"};
    ScopedSilence decode_{"DecodeThread"};
};

inline void JoinAll(std::vector<std::thread>& threads) {
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Answers every order once, through the registry: mostly with a sample, sometimes with none, and sometimes
/// it throws after it has answered.
class StormPreloader : public IPreloader {
public:
    StormPreloader(Ledger& ledger, ExistingCacheUpdateQueues& registry)
        : ledger_(ledger), registry_(registry) {}

    PreloadResult Preload(const PreloadOrder& order) override {
        const std::size_t number = NumberOf(order.tp_);
        Output output;
        output.tp_ = order.tp_;
        output.sample_ = number % 7 == 3 ? nullptr : ledger_.Make(order.tp_);
        const bool exists = output.sample_ != nullptr;
        if (!registry_.PushIfExists(order.queue_, output)) {
            delete output.sample_;
        }
        if (number % 11 == 5) {
            throw std::runtime_error("after the answer");
        }
        return exists ? SUCCESS_EXIST : SUCCESS_MISSING;
    }

    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues*) override {}

private:
    Ledger& ledger_;
    ExistingCacheUpdateQueues& registry_;
};

/// Yields a sample, or null, or throws.
class StormDecoder : public ISampleDecoder {
public:
    explicit StormDecoder(Ledger& ledger) : ledger_(ledger) {}

    ISample* Decode(const DecodeOrder& order) override {
        const std::size_t number = NumberOf(order.orderTp_);
        if (number % 13 == 4) {
            throw std::runtime_error("undecodable");
        }
        return number % 17 == 6 ? nullptr : ledger_.Make(order.toDecode_->GetTimePoint());
    }

private:
    Ledger& ledger_;
};

/// The workers of a storm, each serving every queue.
class StormWorkers {
public:
    StormWorkers(IPreloader& preloader, ISampleDecoder& decoder, ExistingCacheUpdateQueues& registry) {
        preload_.push_back(MakeTimed());
        for (int i = 0; i < 2; ++i) {
            preload_.push_back(std::make_unique<PreloadThread>());
            decode_.push_back(std::make_unique<DecodeThread>());
        }
        for (auto& worker : preload_) {
            worker->SetPreloader(&preloader);
        }
        for (auto& worker : decode_) {
            worker->SetDecoder(&decoder);
            worker->SetExistingUncompressedCacheUpdateQueues(&registry);
        }
    }

    void Attach(PreloadOrderQueue& preloads, DecodeOrderQueue& decodes) {
        for (auto& worker : preload_) {
            worker->SetPreloadOrderQueue(&preloads);
        }
        for (auto& worker : decode_) {
            worker->AddDecodeOrderQueue(&decodes);
        }
    }

    /// After this the queues may be destroyed.
    void Detach(PreloadOrderQueue& preloads, DecodeOrderQueue& decodes) {
        for (auto& worker : preload_) {
            worker->RemovePreloadOrderQueue(&preloads);
        }
        for (auto& worker : decode_) {
            worker->RemoveDecodeOrderQueue(&decodes);
        }
    }

    void StartAll() {
        for (auto& worker : preload_) {
            worker->Start();
        }
        for (auto& worker : decode_) {
            worker->Start();
        }
    }

    void StopAll() {
        for (auto& worker : preload_) {
            worker->Stop();
        }
        for (auto& worker : decode_) {
            worker->Stop();
        }
    }

    std::size_t NbWorkers() const { return preload_.size() + decode_.size(); }

    /// Stops and starts one of them.
    void Restart(std::size_t worker) {
        const auto restart = [](auto& thread) {
            thread.Stop();
            thread.Start();
        };
        worker < preload_.size() ? restart(*preload_[worker]) : restart(*decode_[worker - preload_.size()]);
    }

    /// One storm per worker: it is stopped and started until `over`, and left running.
    void AddStorms(std::vector<std::thread>& threads, const std::atomic<bool>& over) {
        for (auto& worker : preload_) {
            threads.emplace_back([&worker, &over] { Storm(*worker, over); });
        }
        for (auto& worker : decode_) {
            threads.emplace_back([&worker, &over] { Storm(*worker, over); });
        }
    }

private:
    static std::unique_ptr<IPreloadThread> MakeTimed() {
        auto worker = std::make_unique<TimedPreloadThread>();
        worker->SetSendingUnitPeriod(50);
        for (std::size_t slot = 0; slot < 50; ++slot) {
            for (std::int64_t track = 0; track < 8; ++track) {
                worker->RegisterOrder(Track(track), slot);
            }
        }
        return worker;
    }

    template <typename Worker>
    static void Storm(Worker& worker, const std::atomic<bool>& over) {
        while (!over) {
            worker.Stop();
            worker.Start();
            worker.GetInformation();
            LetOthersRun(std::chrono::milliseconds(2));
        }
    }

    std::vector<std::unique_ptr<IPreloadThread>> preload_;
    std::vector<std::unique_ptr<DecodeThread>> decode_;
};

/// One track's client: asks for samples in order, a few at a time, has each decoded, and counts the answers.
class StormClient {
public:
    StormClient(std::int64_t track, std::size_t nbSamples)
        : track_(track), preloads_(nbSamples, 0), decodes_(nbSamples, 0) {}

    void Register(ExistingCacheUpdateQueues& registry, StormWorkers& workers) {
        registry.InsertExistingQueue(&compressed_);
        registry.InsertExistingQueue(&decoded_);
        workers.Attach(preloadOrders_, decodeOrders_);
    }

    /// Until every sample is answered; false when that takes implausibly long.
    bool Run() {
        const auto bound = std::chrono::steady_clock::now() + kFailureBound;
        while (nbAnswered_ < preloads_.size()) {
            PushOrders();
            TakeCompressed();
            TakeDecoded();
            if (std::chrono::steady_clock::now() > bound) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    bool EverythingWasAnsweredOnce() const {
        const auto once = [](int nb) { return nb == 1; };
        return std::all_of(preloads_.begin(), preloads_.end(), once) &&
               std::all_of(decodes_.begin(), decodes_.end(), once) && nbWrong_ == 0;
    }

private:
    // A window of one now and then: then nobody pushes anything else that could wake a forgotten worker.
    std::size_t Window() const { return nbPushed_ % 64 < 32 ? 1 : 16; }

    void PushOrders() {
        while (nbPushed_ < preloads_.size() && nbPushed_ - nbAnswered_ < Window()) {
            preloadOrders_.Push(OrderAt(static_cast<std::int64_t>(nbPushed_), &compressed_, track_));
            ++nbPushed_;
        }
    }

    void TakeCompressed() {
        Output output;
        while (compressed_.Pop(output)) {
            const std::size_t number = NumberOf(output.tp_);
            ++preloads_[number];
            if (output.sample_ == nullptr) {
                ++decodes_[number];  // nothing to decode
                ++nbAnswered_;
                continue;
            }
            nbWrong_ += output.sample_->GetTimePoint() == output.tp_ ? 0 : 1;
            PushDecode(output);
        }
    }

    void PushDecode(const Output& output) {
        DecodeOrder order;
        order.toDecode_ = output.sample_;
        order.toDecode_->Protect(1);
        order.orderTp_ = output.tp_;
        order.queue_ = &decoded_;
        waiting_.push_back(output);
        decodeOrders_.Push(order);
    }

    void TakeDecoded() {
        Output output;
        while (decoded_.Pop(output)) {
            ++decodes_[NumberOf(output.tp_)];
            ++nbAnswered_;
            delete output.sample_;
            DeleteCompressed(output.tp_);
        }
    }

    // The answer is delivered after the release, so nobody may hold the compressed sample any more.
    void DeleteCompressed(const Time::TimePoint& tp) {
        const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                        [&](const Output& output) { return output.tp_ == tp; });
        if (found == waiting_.end()) {
            ++nbWrong_;
            return;
        }
        nbWrong_ += found->sample_->GetProtectionCounter() == 0 ? 0 : 1;
        delete found->sample_;
        waiting_.erase(found);
    }

    const std::int64_t track_;
    CacheUpdateQueue compressed_;
    CacheUpdateQueue decoded_;
    PreloadOrderQueue preloadOrders_;
    DecodeOrderQueue decodeOrders_;
    std::vector<int> preloads_;
    std::vector<int> decodes_;
    std::vector<Output> waiting_;
    std::size_t nbPushed_ = 0;
    std::size_t nbAnswered_ = 0;
    int nbWrong_ = 0;
};

}  // namespace Tavrin::Player::Testing
