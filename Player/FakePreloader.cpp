#include "Player/FakePreloader.h"

#include <memory>

#include "Logging/LoggingManager.h"
#include "Player/FakeSample.h"
#include "Player/LogMessage.h"

namespace Tavrin::Player {

using namespace qor::kp::logging;
using Time::TimePoint;

namespace {

constexpr const char* kFile = "Player/FakePreloader";

/// The time from `start` to the start of the following sample.
TimePoint LengthOfSampleAt(const TimePoint& start, const SampleRate& rate) {
    const std::int64_t number = start.SampleNumber(rate);
    const auto next = static_cast<std::uint64_t>(number) + 1;
    return TimePoint::StartOfSample(static_cast<std::int64_t>(next), rate) - start;
}

}  // namespace

FakePreloader::FakePreloader() : rate_(25, 1), logger_(LoggingManager::GetLoggerPtr("FakePreloader")) {
}

IPreloader::PreloadResult FakePreloader::Preload(const PreloadOrder& order) {
    if (order.queue_ == nullptr) {
        TAVRIN_LOG(logger_, Level_Warning, kFile, "Queue not set for order at ", order.tp_);
        return ERROR;
    }
    Output output;
    output.tp_ = order.tp_;
    if (!returnValidSamples_ || !rate_.Positive()) {
        order.queue_->Push(output);
        return ERROR;
    }
    const TimePoint start = order.tp_.AlignWith(rate_);
    auto sample = std::make_unique<FakeSample>(start, LengthOfSampleAt(start, rate_));
    output.sample_ = sample.get();
    TAVRIN_LOG(logger_, Level_Trace, kFile, "Preloaded sample at ", start);
    order.queue_->Push(output);
    sample.release();  // NOLINT(bugprone-unused-return-value): the queue owns it now
    return SUCCESS_EXIST;
}

void FakePreloader::SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* /*queues*/) {
}

void FakePreloader::SetSampleRate(SampleRate rate) {
    rate_ = rate;
}

void FakePreloader::ReturnValidSample(bool valid) {
    returnValidSamples_ = valid;
}

}  // namespace Tavrin::Player
