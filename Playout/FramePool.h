#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Playout/PlayoutExport.h"

struct AVCodecContext;
struct AVFrame;

namespace Tavrin::Playout {

/// The memory of the pictures of one recording: what its decoders write into, whether a picture is held by
/// them, by a store, by a cache or by whoever was handed it.
///
/// All decoders of a recording share one pool, so a picture that is let go is written over by whichever of
/// them needs the next, and every byte is counted once. A decoder is never refused; what is in use and idle
/// together goes beyond the bound only when that much is in use.
///
/// *Threads:* thread-safe. *Blocking:* never beyond the short internal lock. *Ownership:* shared; every
/// picture keeps the pool alive. *Errors:* a decoder that gets no memory reports that itself.
class TAVRIN_PLAYOUT_EXPORT FramePool final : public std::enable_shared_from_this<FramePool> {
public:
    [[nodiscard]] static std::shared_ptr<FramePool> Create(std::size_t maxBytes);
    ~FramePool();
    FramePool(const FramePool&) = delete;
    FramePool& operator=(const FramePool&) = delete;

    /// Lets a decoder that is not open yet take its memory here, as far as its kind can do that. The caller
    /// keeps the pool for as long as the decoder is open.
    void ServeTo(AVCodecContext& context);

    /// What a picture of the size and format of the context takes here, in bytes; 0 when it does not say them.
    [[nodiscard]] static std::size_t BytesFor(AVCodecContext& context);

    /// To be called by whoever takes a picture out of a decoder that the pool serves: that the decoder's threads
    /// have taken the memory comes before what is done with the picture from then on.
    void Receive() const { const std::lock_guard lock(mutex_); }

    /// Idle memory beyond it goes back to the system.
    void SetMaxBytes(std::size_t maxBytes);

    /// Called, with no lock held, on a decoder's thread that is about to take memory beyond the bound: whoever holds
    /// pictures that can be done without lets go of some. To be set before the first decoder is served.
    using MakeRoom = std::function<void(std::size_t nbBytes)>;
    void SetMakeRoom(MakeRoom makeRoom) { makeRoom_ = std::move(makeRoom); }

    /// Whether so much more in use goes beyond the bound.
    [[nodiscard]] bool Overflows(std::size_t nbBytes) const;

    [[nodiscard]] std::size_t UsedBytes() const;
    [[nodiscard]] std::size_t IdleBytes() const;
    /// The most that was ever in use at once.
    [[nodiscard]] std::size_t MaxUsedBytesEver() const;

private:
    struct Block;
    struct Idle {
        std::uint8_t* data;
        std::size_t size;
    };

    explicit FramePool(std::size_t maxBytes) : maxBytes_(maxBytes) {}

    static int GetBuffer(AVCodecContext* context, AVFrame* frame, int flags);
    static void Release(void* opaque, std::uint8_t* data);

    [[nodiscard]] std::uint8_t* Take(std::size_t size);
    void GiveBack(std::uint8_t* data, std::size_t size);
    void Trim(std::size_t nbBytes);
    int Fill(AVFrame& frame, AVCodecContext& context);

    MakeRoom makeRoom_;
    mutable std::mutex mutex_;
    std::size_t maxBytes_;
    std::size_t usedBytes_ = 0;
    std::size_t idleBytes_ = 0;
    std::size_t maxUsedBytesEver_ = 0;
    std::vector<Idle> idle_;
};

}  // namespace Tavrin::Playout
