#pragma once

#include <cstdint>

#include "Player/PlayerExport.h"
#include "Player/PreloadOrder.h"

namespace Tavrin::Player {

class IPreloader;
class PreloadOrderQueue;

/// A worker that takes preload orders from the queues attached to it and hands them to the client's
/// preloader.
///
/// *Threads:* thread-safe but for `SetPreloader` and `RemovePreloader`, see there.
/// *Ownership:* keeps plain pointers to the queues and the preloader; a queue is removed, and the worker
/// stopped, before what it uses is destroyed.
class TAVRIN_PLAYER_EXPORT IPreloadThread {
public:
    /// Statistics, in milliseconds truncated toward zero.
    class TAVRIN_PLAYER_EXPORT Information {
    public:
        Information() = default;
        Information(const Information&) = default;
        Information& operator=(const Information&) = default;
        virtual ~Information() = default;

        std::uint32_t averagePreloadTimeMilliseconds_ = 0;  ///< Of the preloads of the last second.
        std::uint32_t maxPreloadTimeMilliseconds_ = 0;      ///< Not measured: always 0.
    };

    IPreloadThread() = default;
    IPreloadThread(const IPreloadThread&) = delete;
    IPreloadThread& operator=(const IPreloadThread&) = delete;
    virtual ~IPreloadThread() = default;

    /// Attaches a queue; one that is attached already stays where it is.
    virtual void SetPreloadOrderQueue(PreloadOrderQueue* queue) = 0;

    /// Detaches a queue, and restarts the turn of the others at the first; ignores one that is not attached.
    virtual void RemovePreloadOrderQueue(PreloadOrderQueue* queue) = 0;

    /// Starts the worker's thread, after stopping it if it runs; always true. Throws `std::system_error` when the
    /// machine has no thread to give: the worker is then stopped, its orders wait, and it can be started later.
    virtual bool Start() = 0;

    /// Ends the worker's thread after the order in progress, and waits for it. Harmless when not started.
    virtual void Stop() = 0;

    /// Takes the next order, one queue after the other; false when every queue is empty.
    virtual bool Dequeue(PreloadOrder& order) = 0;

    /// Replaces the preloader; the result, always 1, is a handle for `RemovePreloader`. Safe only while no
    /// order is in progress: the worker may be using the one that is replaced.
    virtual std::int64_t SetPreloader(IPreloader* preloader) = 0;

    /// Removes the preloader, whatever the handle; the same condition holds.
    virtual void RemovePreloader(std::int64_t handle) = 0;

    virtual Information GetInformation() = 0;
};

}  // namespace Tavrin::Player
