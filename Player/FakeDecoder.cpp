#include "Player/FakeDecoder.h"

#include "Player/FakeSample.h"

namespace Tavrin::Player {

ISample* FakeDecoder::Decode(const DecodeOrder& order) {
    Time::TimePoint tp;
    Time::TimePoint duration;
    order.GenerateTimePointAndDuration(tp, duration);
    ISample* const sample = new FakeSample(tp, duration);
    if (order.toDecode_ != nullptr) {
        order.toDecode_->Unprotect(1);
    }
    return sample;
}

}  // namespace Tavrin::Player
