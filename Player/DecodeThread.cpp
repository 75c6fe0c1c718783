#include "Player/DecodeThread.h"

#include <chrono>
#include <stdexcept>

#include "Logging/LoggingManager.h"
#include "Player/DecodeDelivery.h"
#include "Player/LogMessage.h"
#include "Player/NeverDestroyed.h"
#include "Player/OrderLoop.h"

namespace Tavrin::Player {

using namespace qor::kp::logging;

namespace {

constexpr const char* kFile = "Player/DecodeThread";
constexpr std::size_t kNbRecordedTimes = 25;
constexpr int kStatisticsMilliseconds = 1000;

using Moment = std::chrono::steady_clock::time_point;

std::int64_t MillisecondsSince(Moment start, Moment end = std::chrono::steady_clock::now()) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(end - start).count();
}

}  // namespace

DecodeThread::DecodeThread()
    : decodingThread_(ToDecode()), logger_(LoggingManager::GetLoggerPtr("DecodeThread")) {
    decodingTimesMs_.Resize(kNbRecordedTimes);
}

DecodeThread::~DecodeThread() {
    Stop();
}

Tools::Semaphore& DecodeThread::ToDecode() {
    static NeverDestroyed<Tools::Semaphore> toDecode;
    return toDecode.Get();
}

void DecodeThread::OneSampleReadyForDecoding() {
    ToDecode().Signal();
}

void DecodeThread::AddDecodeOrderQueue(DecodeOrderQueue* queue) {
    decodeOrderQueues_.Attach(queue);
    // The queue may hold orders whose units other workers have taken in vain: look at it once.
    ToDecode().Recall();
}

void DecodeThread::RemoveDecodeOrderQueue(DecodeOrderQueue* queue) {
    decodeOrderQueues_.Remove(queue);
}

void DecodeThread::SetExistingUncompressedCacheUpdateQueues(ExistingCacheUpdateQueues* queues) {
    existingQueues_.store(queues);
}

void DecodeThread::SetDecoder(ISampleDecoder* decoder) {
    decoder_.store(decoder);
}

bool DecodeThread::Start() {
    decodingThread_.Start([this] { DequeueAndDecodeThread(); });
    return true;
}

void DecodeThread::Stop() {
    decodingThread_.Stop();
}

bool DecodeThread::Dequeue(DecodeOrder& order) {
    return decodeOrderQueues_.Pop(order);
}

void DecodeThread::DequeueAndDecodeThread() {
    DecodeOrder order;
    RunOrders(
        ToDecode(), [this] { return decodingThread_.MustStop(); },
        [this, &order] {
            if (!Dequeue(order)) {
                return false;
            }
            if (existingQueues_.load() != nullptr) {
                ProcessOrder(order);
            } else {
                ProcessOrderWithoutExistingQueues(order);
            }
            return true;
        });
}

/// The decoder for `order`, read once so that it cannot change under way; null when the order must be
/// dropped.
ISampleDecoder* DecodeThread::DecoderFor(const DecodeOrder& order) {
    ISampleDecoder* const decoder = order.queue_ != nullptr ? decoder_.load() : nullptr;
    if (decoder == nullptr) {
        TAVRIN_LOG(logger_, Level_Error, kFile, "Decode order queue or decoder_ is NULL");
    }
    return decoder;
}

void DecodeThread::ProcessOrder(const DecodeOrder& order) {
    ExistingCacheUpdateQueues* const existingQueues = existingQueues_.load();
    if (existingQueues == nullptr) {
        ProcessOrderWithoutExistingQueues(order);
        return;
    }
    ISampleDecoder* const decoder = DecoderFor(order);
    if (decoder == nullptr) {
        return;
    }
    const auto start = std::chrono::steady_clock::now();
    const bool delivered = existingQueues->DecodeIfExists(order.queue_, decoder, order);
    // A null sample was delivered too when the decoder failed, so that counts as decoded here.
    LogOutcome(order, delivered, start);
    RecordTime(start);
}

void DecodeThread::ProcessOrderWithoutExistingQueues(const DecodeOrder& order) {
    ISampleDecoder* const decoder = DecoderFor(order);
    if (decoder == nullptr) {
        return;
    }
    ISample* decoded = nullptr;
    try {
        decoded = DecodeTimed(*decoder, order);
    } catch (const std::runtime_error& e) {
        TAVRIN_LOG(logger_, Level_Warning, kFile, "Could not decode order at ", order.orderTp_, ": ",
                   e.what());
    }
    DeliverDecoded(order, decoded);
}

ISample* DecodeThread::DecodeTimed(ISampleDecoder& decoder, const DecodeOrder& order) {
    const auto start = std::chrono::steady_clock::now();
    ISample* const decoded = decoder.Decode(order);
    RecordTime(start);
    LogOutcome(order, decoded != nullptr, start);
    return decoded;
}

void DecodeThread::RecordTime(Moment start) {
    const Moment end = std::chrono::steady_clock::now();
    decodingTimesMs_.Push(MillisecondsSince(start, end), end);
}

void DecodeThread::LogOutcome(const DecodeOrder& order, bool decoded, Moment start) {
    const void* const self = this;
    if (decoded) {
        TAVRIN_LOG(logger_, Level_Trace, kFile, "Thread ", self, ": ", "decoded sample at ", order.orderTp_,
                   ": in ", MillisecondsSince(start), " ms");
    } else {
        TAVRIN_LOG(logger_, Level_Warning, kFile, "Thread ", self, ": ", "could NOT decode sample at ",
                   order.orderTp_);
    }
}

DecodeThread::Information DecodeThread::GetInformation() {
    Information information;
    information.averageDecodeTimeMilliseconds_ =
        static_cast<std::uint32_t>(decodingTimesMs_.AverageSince(kStatisticsMilliseconds));
    return information;
}

}  // namespace Tavrin::Player
