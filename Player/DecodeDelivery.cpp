#include "Player/DecodeDelivery.h"

#include <memory>

namespace Tavrin::Player {

void DeliverDecoded(const DecodeOrder& order, ISample* decoded) {
    std::unique_ptr<ISample> sample(decoded);
    Output output;
    output.sample_ = decoded;
    Time::TimePoint duration;
    // Before the release: from then on the compressed sample may be evicted at any moment.
    order.GenerateTimePointAndDuration(output.tp_, duration);
    if (order.toDecode_ != nullptr) {
        order.toDecode_->Unprotect(1);
    }
    order.queue_->Push(output);
    sample.release();  // NOLINT(bugprone-unused-return-value): the queue owns it now
}

}  // namespace Tavrin::Player
