#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "Logging/ILogger.h"
#include "Player/DecodeOrder.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/ISampleDecoder.h"
#include "Player/PlayerExport.h"
#include "Player/RoundRobinQueues.h"
#include "Player/WorkerThread.h"
#include "Tools/LoopRecordingVector.h"
#include "Tools/Semaphore.h"

namespace Tavrin::Player {

/// A decode worker: takes decode orders from the queues attached to it, one queue after the other, has the
/// client's decoder run them and delivers the results.
///
/// All `DecodeThread`s share one semaphore, to which every push into any `DecodeOrderQueue` adds one unit;
/// what `PreloadThread` says of its own holds here too.
///
/// With a registry (`SetExistingUncompressedCacheUpdateQueues`), nothing is decoded for a queue that is no
/// longer registered, and a queue's removal waits for the decodes aimed at it. Without one, the worker pushes
/// directly: for set-ups in which the queues outlive the workers.
///
/// *Threads:* thread-safe; `SetDecoder` and `SetExistingUncompressedCacheUpdateQueues` take effect for the
/// orders taken after them, and what they replace may still be in use until `Stop` has returned.
/// *Blocking:* `Stop`, `Start` and the destructor wait for the order in progress.
/// *Ownership:* keeps plain pointers to queues, decoder and registry. A compressed sample's protection is
/// released once when its order has been decoded, whether that succeeded or not; not when the order was
/// dropped (no queue, no decoder, queue not registered).
/// *Errors:* a `std::runtime_error` of the decoder becomes a null sample; any other exception ends the
/// process.
class TAVRIN_PLAYER_EXPORT DecodeThread {
public:
    /// Statistics, in milliseconds truncated toward zero.
    class TAVRIN_PLAYER_EXPORT Information {
    public:
        Information() = default;
        Information(const Information&) = default;
        Information& operator=(const Information&) = default;
        virtual ~Information() = default;

        std::uint32_t averageDecodeTimeMilliseconds_ = 0;  ///< Of the decodes of the last second.
    };

    /// Not started, without queues, decoder and registry.
    DecodeThread();
    DecodeThread(const DecodeThread&) = delete;
    DecodeThread& operator=(const DecodeThread&) = delete;
    virtual ~DecodeThread();

    /// Attaches a queue; one that is attached already stays where it is.
    void AddDecodeOrderQueue(DecodeOrderQueue* queue);

    /// Detaches a queue, and restarts the turn of the others at the first; ignores one that is not attached.
    void RemoveDecodeOrderQueue(DecodeOrderQueue* queue);

    /// The registry to deliver through; null to deliver directly.
    void SetExistingUncompressedCacheUpdateQueues(ExistingCacheUpdateQueues* queues);

    void SetDecoder(ISampleDecoder* decoder);

    /// Starts the worker's thread, after stopping it if it runs; always true. Throws `std::system_error` when the
    /// machine has no thread to give: the worker is then stopped, its orders wait, and it can be started later.
    bool Start();

    /// Ends the worker's thread after the order in progress, and waits for it. Harmless when not started.
    void Stop();

    /// Takes the next order, one queue after the other; false when every queue is empty.
    bool Dequeue(DecodeOrder& order);

    /// Runs one order through the registry; without one, as `ProcessOrderWithoutExistingQueues`. The time
    /// recorded spans the decode, the wait for the registry and the delivery.
    void ProcessOrder(const DecodeOrder& order);

    /// Runs one order and pushes the result directly. The time recorded spans the decode only.
    void ProcessOrderWithoutExistingQueues(const DecodeOrder& order);

    Information GetInformation();

    /// Adds one unit to the semaphore that all `DecodeThread`s share, which wakes one idle worker at most.
    /// Callable at any time, also from static initialisers and destructors.
    static void OneSampleReadyForDecoding();

private:
    static Tools::Semaphore& ToDecode();

    void DequeueAndDecodeThread();
    ISampleDecoder* DecoderFor(const DecodeOrder& order);
    ISample* DecodeTimed(ISampleDecoder& decoder, const DecodeOrder& order);
    void RecordTime(std::chrono::steady_clock::time_point start);
    void LogOutcome(const DecodeOrder& order, bool decoded, std::chrono::steady_clock::time_point start);

    RoundRobinQueues<DecodeOrderQueue> decodeOrderQueues_;
    std::atomic<ExistingCacheUpdateQueues*> existingQueues_ = nullptr;
    std::atomic<ISampleDecoder*> decoder_ = nullptr;
    WorkerThread decodingThread_;
    Tools::LoopRecordingVector decodingTimesMs_;
    qor::kp::logging::ILogger* logger_;
};

}  // namespace Tavrin::Player
