#include "Playout/Decoder.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

namespace Tavrin::Playout {

namespace {

/// A decoder that goes on failing without taking a packet will not come to an end by itself.
constexpr int kMaxErrorsInARow = 64;

Ffmpeg::CodecPointer Open(const RecordingIndex& index, int nbThreads, Decoder::Begins begins,
                          FramePool* pool) {
    Ffmpeg::RouteMessages();
    const auto& parameters = index.CodecParameters();
    const auto* codec = avcodec_find_decoder(parameters.codec_id);
    if (codec == nullptr) {
        throw std::runtime_error("\"" + index.File() + "\": there is no decoder for " +
                                 avcodec_get_name(parameters.codec_id));
    }
    auto context = Ffmpeg::NewCodecContext(codec, parameters);
    context->thread_count = std::max(nbThreads, 1);
    if (pool != nullptr) {
        pool->ServeTo(*context);
    }
    if (parameters.codec_id == AV_CODEC_ID_H264) {
        // Many H.264 streams do not say how far they reorder. A decoder that has to find out drops pictures
        // on the way, differently from each place where it begins; the packets' stamps tell it beforehand.
        context->has_b_frames = std::max(context->has_b_frames, index.ReorderDepth());
        if (begins == Decoder::Begins::AtKeyFrames) {
            // After the key frame of an open group it takes pictures for incomplete until that one has come
            // out, and drops them if the stream ends before: the last pictures of a short group. What is
            // really incomplete, the pictures shown before the key frame, is left out by who begins there.
            context->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
        }
    }
    const int result = avcodec_open2(context.get(), codec, nullptr);
    if (result < 0) {
        throw std::runtime_error("\"" + index.File() + "\": the decoder for " + codec->name +
                                 " cannot be opened: " + Ffmpeg::ErrorText(result));
    }
    return context;
}

}  // namespace

Decoder::Decoder(const RecordingIndex& index, int nbThreads, Begins begins, std::shared_ptr<FramePool> pool)
    : index_(index),
      pool_(std::move(pool)),
      context_(Open(index, nbThreads, begins, pool_.get())),
      packet_(Ffmpeg::NewPacket()),
      frame_(Ffmpeg::NewFrame()) {
}

void Decoder::CountError(int code) {
    if (code == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    ++nbErrorsInARow_;
    if (!wanted_) {
        return;
    }
    ++nbErrors_;
    lastError_ = Ffmpeg::ErrorText(code);
    // A decoder with several threads tells of an error while later packets are sent.
    const auto delay = static_cast<std::size_t>(context_->thread_count - 1);
    for (auto packet = sent_ - std::min(sent_, delay); packet <= sent_; ++packet) {
        MarkDamage(packet);
    }
}

void Decoder::MarkDamage(std::size_t packet) {
    const auto group = index_.GroupAtPacket(packet);
    if (!group) {
        return;
    }
    // Nothing of a group is predicted from the pictures that come after its key frame but are shown before
    // it.
    const auto picture = index_.PictureOfPacket(packet);
    const bool leading = picture && *picture < index_.Group(*group).firstPicture;
    if (!leading) {
        MarkDamage(*group, packet);
    }
    if (*group > 0 && packet < index_.Group(*group - 1).EndPacket()) {
        MarkDamage(*group - 1, packet);
    }
}

void Decoder::MarkDamage(std::size_t group, std::size_t packet) {
    const auto [place, added] = damage_.emplace(group, packet);
    if (!added) {
        place->second = std::min(place->second, packet);
    }
}

bool Decoder::IsDamaged(std::size_t picture) const {
    const auto& indexed = index_.Picture(picture);
    const auto found = damage_.find(indexed.group);
    return found != damage_.end() && found->second <= indexed.packet;
}

void Decoder::Send(const AVPacket& packet, std::size_t number, bool wanted) {
    sent_ = number;
    wanted_ = wanted;
    if (av_packet_ref(packet_.get(), &packet) < 0) {
        throw std::bad_alloc();
    }
    // The number travels through the decoder as time stamp: it comes back with the picture, exactly.
    packet_->pts = static_cast<std::int64_t>(number);
    packet_->dts = AV_NOPTS_VALUE;
    packet_->duration = 0;
    // What is shown is for the index to say.
    packet_->flags &= ~AV_PKT_FLAG_DISCARD;
    if ((packet_->flags & AV_PKT_FLAG_CORRUPT) != 0) {
        MarkDamage(number);
    }
    ++nbPacketsDecoded_;
    const int result = avcodec_send_packet(context_.get(), packet_.get());
    av_packet_unref(packet_.get());
    if (result < 0) {
        CountError(result);
    }
}

void Decoder::SendEnd() {
    avcodec_send_packet(context_.get(), nullptr);
}

/// Takes the number of the picture that came out.
bool Decoder::IsShown() {
    if (frame_->pts < 0 || static_cast<std::size_t>(frame_->pts) >= index_.NbPackets()) {
        return false;
    }
    const auto packet = static_cast<std::size_t>(frame_->pts);
    if ((frame_->flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame_->decode_error_flags != 0) {
        MarkDamage(packet);
    }
    const auto picture = index_.PictureOfPacket(packet);
    pictureNumber_ = picture.value_or(0);
    return picture.has_value();
}

Decoder::Event Decoder::Receive() {
    while (nbErrorsInARow_ < kMaxErrorsInARow) {
        const int result = avcodec_receive_frame(context_.get(), frame_.get());
        if (result == AVERROR(EAGAIN)) {
            return Event::WantsPacket;
        }
        if (result == AVERROR_EOF) {
            return Event::End;
        }
        if (result < 0) {
            CountError(result);
            continue;
        }
        nbErrorsInARow_ = 0;
        if (IsShown()) {
            return Event::Picture;
        }
    }
    return Event::End;
}

std::shared_ptr<const Picture> Decoder::TakePicture() const {
    if (pool_ != nullptr) {
        pool_->Receive();
    }
    return std::make_shared<const Picture>(pictureNumber_, *frame_, IsDamaged(pictureNumber_));
}

void Decoder::Flush() {
    avcodec_flush_buffers(context_.get());
    damage_.clear();
    nbErrorsInARow_ = 0;
}

}  // namespace Tavrin::Playout
