#include "Playout/FramePool.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <utility>

#include "Playout/Ffmpeg.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
}

namespace Tavrin::Playout {

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kAlignment = 64;
/// What decoders read or write beyond a plane's end, at most.
constexpr std::size_t kBeyondPlane = 16 + kAlignment;

constexpr std::size_t RoundUp(std::size_t value, std::size_t to) {
    return (value + to - 1) / to * to;
}

/// Straight from the system and back to it: what is given back really leaves the process, which a heap does not
/// promise for blocks of this size. Of a large page that two neighbours share, the system keeps the part given
/// back until it needs memory.
std::uint8_t* Map(std::size_t size) {
    void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (data == MAP_FAILED) {
        return nullptr;
    }
    // Pictures are written from end to end: in large pages, touching them first costs a seventh. A wish, not a need.
    static_cast<void>(madvise(data, size, MADV_HUGEPAGE));
    return static_cast<std::uint8_t*>(data);
}

/// How a picture's planes lie in one block.
struct Layout {
    std::array<int, 4> strides{};
    std::array<std::size_t, 4> offsets{};
    std::array<bool, 4> exists{};
    std::size_t size = 0;
};

/// Rows as long and as many as the decoder wants them; widened until every plane's rows are aligned.
bool StridesFor(AVCodecContext& context, const AVFrame& frame, int& height, std::array<int, 4>& strides) {
    std::array<int, AV_NUM_DATA_POINTERS> alignments{};
    int width = frame.width;
    height = frame.height;
    avcodec_align_dimensions2(&context, &width, &height, alignments.data());
    const auto isAligned = [&] {
        return std::equal(strides.begin(), strides.end(), alignments.begin(), [](int stride, int alignment) {
            return alignment == 0 || stride % alignment == 0;
        });
    };
    const auto format = static_cast<AVPixelFormat>(frame.format);
    do {
        if (av_image_fill_linesizes(strides.data(), format, width) < 0) {
            return false;
        }
        // The lowest bit of the width, doubled until the rows fit.
        width += width & ~(width - 1);
    } while (!isAligned());
    return true;
}

bool LayOut(AVCodecContext& context, const AVFrame& frame, Layout& layout) {
    int height = 0;
    if (!StridesFor(context, frame, height, layout.strides)) {
        return false;
    }
    std::array<std::ptrdiff_t, 4> strides{};
    std::copy(layout.strides.begin(), layout.strides.end(), strides.begin());
    std::array<std::size_t, 4> sizes{};
    if (av_image_fill_plane_sizes(sizes.data(), static_cast<AVPixelFormat>(frame.format), height,
                                  strides.data()) < 0) {
        return false;
    }
    for (std::size_t plane = 0; plane < sizes.size(); ++plane) {
        layout.offsets[plane] = layout.size;
        layout.exists[plane] = sizes[plane] > 0;
        layout.size += sizes[plane] > 0 ? RoundUp(sizes[plane] + kBeyondPlane, kAlignment) : 0;
    }
    layout.size = RoundUp(layout.size, kPage);
    return layout.size > 0;
}

}  // namespace

/// What a picture's memory needs to find back.
struct FramePool::Block {
    Block(std::shared_ptr<FramePool> owner, std::size_t nbBytes) : pool(std::move(owner)), size(nbBytes) {}

    std::shared_ptr<FramePool> pool;
    std::size_t size;
    /// Hands the block from the decoder's thread that made it to whoever lets go last: what FFmpeg does between the
    /// two is its own affair.
    std::atomic<bool> isMade{false};
};

std::shared_ptr<FramePool> FramePool::Create(std::size_t maxBytes) {
    return std::shared_ptr<FramePool>(new FramePool(maxBytes));
}

FramePool::~FramePool() {
    Trim(idleBytes_);
}

void FramePool::ServeTo(AVCodecContext& context) {
    if (context.codec == nullptr || (context.codec->capabilities & AV_CODEC_CAP_DR1) == 0) {
        return;
    }
    context.opaque = this;
    context.get_buffer2 = GetBuffer;
#if LIBAVCODEC_VERSION_MAJOR < 60
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    // Else a decoder with several threads has all memory taken by one of them.
    context.thread_safe_callbacks = 1;
#pragma GCC diagnostic pop
#endif
}

void FramePool::SetMaxBytes(std::size_t maxBytes) {
    const std::lock_guard lock(mutex_);
    maxBytes_ = maxBytes;
    if (usedBytes_ + idleBytes_ > maxBytes_) {
        Trim(usedBytes_ + idleBytes_ - maxBytes_);
    }
}

/// Unmaps at least so much of what is idle, or all. The lock is held, or nobody else knows the pool any more.
void FramePool::Trim(std::size_t nbBytes) {
    std::size_t nbTrimmed = 0;
    while (!idle_.empty() && nbTrimmed < nbBytes) {
        munmap(idle_.back().data, idle_.back().size);
        nbTrimmed += idle_.back().size;
        idle_.pop_back();
    }
    idleBytes_ -= nbTrimmed;
}

std::uint8_t* FramePool::Take(std::size_t size) {
    const std::lock_guard lock(mutex_);
    const auto fitting =
        std::find_if(idle_.begin(), idle_.end(), [size](const Idle& idle) { return idle.size == size; });
    std::uint8_t* data = nullptr;
    if (fitting != idle_.end()) {
        data = fitting->data;
        *fitting = idle_.back();
        idle_.pop_back();
        idleBytes_ -= size;
    } else {
        // Blocks of other sizes are left over from before the pictures' size changed.
        if (usedBytes_ + idleBytes_ + size > maxBytes_) {
            Trim(usedBytes_ + idleBytes_ + size - maxBytes_);
        }
        data = Map(size);
    }
    if (data != nullptr) {
        usedBytes_ += size;
        maxUsedBytesEver_ = std::max(maxUsedBytesEver_, usedBytes_);
    }
    return data;
}

void FramePool::GiveBack(std::uint8_t* data, std::size_t size) {
    const std::lock_guard lock(mutex_);
    usedBytes_ -= size;
    if (usedBytes_ + idleBytes_ + size > maxBytes_) {
        munmap(data, size);
        return;
    }
    try {
        idle_.push_back({data, size});
        idleBytes_ += size;
    } catch (const std::bad_alloc&) {
        munmap(data, size);
    }
}

void FramePool::Release(void* opaque, std::uint8_t* data) {
    const std::unique_ptr<Block> block(static_cast<Block*>(opaque));
    // Pairs with the store in Fill.
    static_cast<void>(block->isMade.load(std::memory_order_acquire));
    block->pool->GiveBack(data, block->size);
}

std::size_t FramePool::BytesFor(AVCodecContext& context) {
    const auto frame = Ffmpeg::NewFrame();
    frame->format = context.pix_fmt;
    frame->width = std::max(context.width, context.coded_width);
    frame->height = std::max(context.height, context.coded_height);
    Layout layout;
    const bool isKnown = context.pix_fmt != AV_PIX_FMT_NONE && frame->width > 0 && frame->height > 0;
    return isKnown && LayOut(context, *frame, layout) ? layout.size : 0;
}

int FramePool::Fill(AVFrame& frame, AVCodecContext& context) {
    Layout layout;
    if (!LayOut(context, frame, layout)) {
        return AVERROR(EINVAL);
    }
    auto block = std::make_unique<Block>(shared_from_this(), layout.size);
    if (makeRoom_ && Overflows(layout.size)) {
        makeRoom_(layout.size);
    }
    std::uint8_t* data = Take(layout.size);
    if (data == nullptr) {
        return AVERROR(ENOMEM);
    }
    block->isMade.store(true, std::memory_order_release);
    frame.buf[0] = av_buffer_create(data, layout.size, Release, block.get(), 0);
    if (frame.buf[0] == nullptr) {
        GiveBack(data, layout.size);
        return AVERROR(ENOMEM);
    }
    static_cast<void>(block.release());
    for (std::size_t plane = 0; plane < layout.strides.size(); ++plane) {
        frame.linesize[plane] = layout.strides[plane];
        frame.data[plane] = layout.exists[plane] ? data + layout.offsets[plane] : nullptr;
    }
    frame.extended_data = frame.data;
    return 0;
}

int FramePool::GetBuffer(AVCodecContext* context, AVFrame* frame, int flags) {
    if (context->codec_type != AVMEDIA_TYPE_VIDEO || context->hw_frames_ctx != nullptr) {
        return avcodec_default_get_buffer2(context, frame, flags);
    }
    try {
        return static_cast<FramePool*>(context->opaque)->Fill(*frame, *context);
    } catch (const std::bad_alloc&) {
        return AVERROR(ENOMEM);
    }
}

bool FramePool::Overflows(std::size_t nbBytes) const {
    const std::lock_guard lock(mutex_);
    return usedBytes_ + nbBytes > maxBytes_;
}

std::size_t FramePool::UsedBytes() const {
    const std::lock_guard lock(mutex_);
    return usedBytes_;
}

std::size_t FramePool::IdleBytes() const {
    const std::lock_guard lock(mutex_);
    return idleBytes_;
}

std::size_t FramePool::MaxUsedBytesEver() const {
    const std::lock_guard lock(mutex_);
    return maxUsedBytesEver_;
}

}  // namespace Tavrin::Playout
