#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include "Player/FakeDecoder.h"
#include "Player/FakePreloader.h"
#include "Player/FakeSample.h"
#include "Player/Support/WorkerStream.h"
#include "contracts/IPreloaderContract.h"
#include "contracts/ISampleContract.h"
#include "contracts/ISampleDecoderContract.h"
#include "contracts/StreamContract.h"

// The library's own doubles, and the stream of the end-to-end test, under the contracts that every client's
// classes are held to. An adaptor states where a double differs on purpose.

namespace Tavrin::Player::Contracts {
namespace {

using Testing::Ms;
using Testing::SimulatedServer;
using Testing::SimulatedStream;
using Testing::SimulatedTrack;
using Testing::StartOf;
using Testing::Track;

// ---- Samples ----------------------------------------------------------------------------------------------

struct FakeSampleAdaptor : SampleAdaptor {
    static constexpr bool kSetsSizes = false;

    std::unique_ptr<ISample> Make() { return std::make_unique<FakeSample>(Ms(40), Ms(20)); }
};

/// The smallest sample that leaves the protection to `ISample`.
class PlainSample : public ISample {
public:
    Time::TimePoint GetTimePoint() const override { return Ms(40); }
    Time::TimePoint GetDuration() const override { return Ms(20); }
    std::set<std::string> GetPropertyKeys() const override { return {"codec"}; }
    std::set<std::string> GetDataKeys() const override { return {"packet"}; }
    const std::uint8_t* GetProperty(const std::string&, std::uint64_t& size) const override {
        size = 2;
        return bytes_;
    }
    const std::uint8_t* GetData(const std::string&, std::uint64_t& size) const override {
        size = sizeof(bytes_);
        return bytes_;
    }

private:
    const std::uint8_t bytes_[4] = {1, 2, 3, 4};
};

struct PlainSampleAdaptor : SampleAdaptor {
    std::unique_ptr<ISample> Make() { return std::make_unique<PlainSample>(); }
};

INSTANTIATE_TYPED_TEST_SUITE_P(FakeSample, ISampleContract, testing::Types<FakeSampleAdaptor>, );
INSTANTIATE_TYPED_TEST_SUITE_P(PlainSample, ISampleContract, testing::Types<PlainSampleAdaptor>, );

// ---- Preloaders -------------------------------------------------------------------------------------------

struct FakePreloaderAdaptor : PreloaderAdaptor {
    static constexpr bool kUsesRegistry = false;

    IPreloader& Preloader() { return preloader_; }

    PreloadOrder Existing(std::size_t i) {
        const SampleRate rate(25, 1);
        return PreloadOrder(StartOf(static_cast<std::int64_t>(i), rate), rate, nullptr, Track(1));
    }

    std::optional<PreloadOrder> Failing() {
        preloader_.ReturnValidSample(false);
        return Existing(0);
    }

    FakePreloader preloader_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(FakePreloader, IPreloaderContract, testing::Types<FakePreloaderAdaptor>, );

/// A preloader with what the fake leaves out: it delivers through the registry, and its storage ends.
class RegistryPreloader : public IPreloader {
public:
    PreloadResult Preload(const PreloadOrder& order) override {
        Output output;
        output.tp_ = order.tp_;
        const std::int64_t number = order.tp_.SampleNumber(order.s_);
        if (number < kEnd) {
            output.sample_ = new FakeSample(order.tp_.AlignWith(order.s_), Ms(40));
        }
        Deliver(*order.queue_, output);
        return number < kEnd ? SUCCESS_EXIST : SUCCESS_MISSING;
    }

    void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* queues) override { queues_ = queues; }

    static constexpr std::int64_t kEnd = 100;

private:
    void Deliver(CacheUpdateQueue& queue, const Output& output) {
        if (queues_ == nullptr) {
            queue.Push(output);
        } else if (!queues_->PushIfExists(&queue, output)) {
            delete output.sample_;
        }
    }

    ExistingCacheUpdateQueues* queues_ = nullptr;
};

struct RegistryPreloaderAdaptor : PreloaderAdaptor {
    IPreloader& Preloader() { return preloader_; }

    PreloadOrder Existing(std::size_t i) {
        const SampleRate rate(25, 1);
        return PreloadOrder(StartOf(static_cast<std::int64_t>(i), rate), rate, nullptr, Track(1));
    }

    std::optional<PreloadOrder> Missing() { return Existing(RegistryPreloader::kEnd); }

    RegistryPreloader preloader_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(RegistryPreloader, IPreloaderContract,
                               testing::Types<RegistryPreloaderAdaptor>, );

// ---- Decoders ---------------------------------------------------------------------------------------------

struct FakeDecoderAdaptor : DecoderAdaptor {
    static constexpr std::int64_t kNbReleases = 1;

    ISampleDecoder& Decoder() { return decoder_; }

    std::unique_ptr<ISample> Compressed(std::size_t i) {
        return std::make_unique<FakeSample>(StartOf(static_cast<std::int64_t>(i), SampleRate(25, 1)), Ms(40));
    }

    std::optional<SampleRate> FieldRate() { return SampleRate(50, 1); }

    FakeDecoder decoder_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(FakeDecoder, ISampleDecoderContract, testing::Types<FakeDecoderAdaptor>, );

/// A decoder with what the fake leaves out: it leaves the release to the worker, and it can fail.
class PickyDecoder : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder& order) override {
        Time::TimePoint tp;
        Time::TimePoint duration;
        order.GenerateTimePointAndDuration(tp, duration);
        if (duration == Time::TimePoint()) {
            throw std::runtime_error("empty sample");
        }
        return new FakeSample(tp, duration);
    }
};

struct PickyDecoderAdaptor : DecoderAdaptor {
    ISampleDecoder& Decoder() { return decoder_; }

    std::unique_ptr<ISample> Compressed(std::size_t i) {
        return std::make_unique<FakeSample>(StartOf(static_cast<std::int64_t>(i), SampleRate(25, 1)), Ms(40));
    }

    std::unique_ptr<ISample> Undecodable() { return std::make_unique<FakeSample>(Ms(0), Ms(0)); }

    PickyDecoder decoder_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(PickyDecoder, ISampleDecoderContract, testing::Types<PickyDecoderAdaptor>, );

// ---- Streams ----------------------------------------------------------------------------------------------

struct SimulatedStreamAdaptor : StreamAdaptor {
    SimulatedStreamAdaptor() { server_.Start(); }
    ~SimulatedStreamAdaptor() { server_.Stop(); }

    Stream& Get() { return *stream_; }

    Time::TimePoint Sample(std::size_t i) {
        return StartOf(static_cast<std::int64_t>(i), SampleRate(30000, 1001));
    }

    void Drive() {
        stream_->Intake();
        stream_->Plan();
    }

    SimulatedServer server_;
    std::unique_ptr<SimulatedStream> stream_ =
        server_.AddStream(SimulatedTrack{.rate_ = SampleRate(30000, 1001), .display_ = SampleRate(30, 1)});
};

INSTANTIATE_TYPED_TEST_SUITE_P(SimulatedStream, StreamContract, testing::Types<SimulatedStreamAdaptor>, );

}  // namespace
}  // namespace Tavrin::Player::Contracts
