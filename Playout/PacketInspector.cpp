#include "Playout/PacketInspector.h"

#include <cstdint>
#include <span>

namespace Tavrin::Playout {

namespace {

/// A VP8 frame begins with a tag whose fifth bit says whether it is shown.
bool IsHiddenVp8(const AVPacket& packet) {
    constexpr std::uint8_t kShown = 0x10;
    return packet.size > 0 && (packet.data[0] & kShown) == 0;
}

/// The first byte after the next start code at or after \p from; the end when there is none.
std::size_t AfterStartCode(std::span<const std::uint8_t> bytes, std::size_t from) {
    for (std::size_t at = from; at + 3 < bytes.size(); ++at) {
        if (bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1) {
            return at + 3;
        }
    }
    return bytes.size();
}

std::size_t FirstUnit(std::span<const std::uint8_t> bytes, std::size_t lengthSize) {
    return lengthSize == 0 ? AfterStartCode(bytes, 0) : lengthSize;
}

/// The one after the unit that begins at \p at.
std::size_t NextUnit(std::span<const std::uint8_t> bytes, std::size_t lengthSize, std::size_t at) {
    if (lengthSize == 0) {
        return AfterStartCode(bytes, at);
    }
    std::size_t length = 0;
    for (std::size_t i = at - lengthSize; i < at; ++i) {
        length = length << 8U | bytes[i];
    }
    // A damaged length leads to the end, or at least onward.
    return length > bytes.size() - at ? bytes.size() : at + length + lengthSize;
}

/// Bytes of the lengths before the units of an MP4 file's H.264; 0 when they begin with start codes.
std::size_t H264LengthSize(const AVCodecParameters& parameters) {
    constexpr int kLeast = 7;
    const bool hasLengths = parameters.codec_id == AV_CODEC_ID_H264 && parameters.extradata_size >= kLeast &&
                            parameters.extradata[0] == 1;
    return hasLengths ? (parameters.extradata[4] & 3U) + 1 : 0;
}

bool IsField(AVPictureStructure structure) {
    return structure == AV_PICTURE_STRUCTURE_TOP_FIELD || structure == AV_PICTURE_STRUCTURE_BOTTOM_FIELD;
}

/// Whether no picture is predicted from the one that the first slice of an access unit belongs to. H.264 says so
/// in the first byte of every unit; \p lengthSize is that of the units' lengths, 0 where they begin with a
/// start code instead.
bool IsDisposableH264(std::span<const std::uint8_t> bytes, std::size_t lengthSize) {
    constexpr unsigned kTypeMask = 0x1F;
    constexpr unsigned kRefMask = 0x60;
    constexpr unsigned kSlice = 1;
    constexpr unsigned kKeySlice = 5;
    for (std::size_t at = FirstUnit(bytes, lengthSize); at < bytes.size();
         at = NextUnit(bytes, lengthSize, at)) {
        const unsigned type = bytes[at] & kTypeMask;
        if (type >= kSlice && type <= kKeySlice) {
            return (bytes[at] & kRefMask) == 0;
        }
    }
    return false;
}

/// In MPEG-2 no picture is predicted from one that is predicted in both directions; the header of a picture tells.
bool IsDisposableMpeg2(std::span<const std::uint8_t> bytes) {
    constexpr std::uint8_t kPictureHeader = 0;
    constexpr unsigned kBidirectional = 3;
    for (std::size_t at = AfterStartCode(bytes, 0); at + 2 < bytes.size(); at = AfterStartCode(bytes, at)) {
        if (bytes[at] == kPictureHeader) {
            return (bytes[at + 2] >> 3U & 7U) == kBidirectional;
        }
    }
    return false;
}

bool IsDisposable(AVCodecID codec, std::span<const std::uint8_t> bytes, std::size_t lengthSize) {
    switch (codec) {
        case AV_CODEC_ID_H264:
            return IsDisposableH264(bytes, lengthSize);
        case AV_CODEC_ID_MPEG2VIDEO:
            return IsDisposableMpeg2(bytes);
        default:
            return false;
    }
}

bool IsPredicted(int type) {
    return type == AV_PICTURE_TYPE_P || type == AV_PICTURE_TYPE_B;
}

}  // namespace

PacketInspector::PacketInspector(const AVCodecParameters& parameters)
    : codec_(parameters.codec_id),
      numbersPictures_(codec_ == AV_CODEC_ID_H264 || codec_ == AV_CODEC_ID_HEVC),
      context_(Ffmpeg::NewCodecContext(nullptr, parameters)),
      parser_(av_parser_init(parameters.codec_id)),
      lengthSize_(H264LengthSize(parameters)) {
    if (parser_ != nullptr) {
        parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    }
}

bool PacketInspector::MustParse(bool key) const {
    return parser_ != nullptr && (key || first_ || numbersPictures_);
}

void PacketInspector::Inspect(const AVPacket& packet, CodedPacket& coded) {
    coded.entry = coded.key;
    if (packet.size > 0) {
        coded.disposable =
            IsDisposable(codec_, {packet.data, static_cast<std::size_t>(packet.size)}, lengthSize_);
    }
    if (codec_ == AV_CODEC_ID_VP8) {
        coded.hidden = coded.hidden || IsHiddenVp8(packet);
    }
    if (!MustParse(coded.key)) {
        return;
    }
    Parse(packet);
    // Only H.264 puts the two fields of a picture into packets of their own.
    coded.secondField = codec_ == AV_CODEC_ID_H264 && CompletesField();
    coded.entry = coded.key && !coded.secondField && !IsPredicted(parser_->pict_type);
    beginsInMidGroup_ = beginsInMidGroup_ || (first_ && IsPredicted(parser_->pict_type));
    first_ = false;
    if (numbersPictures_) {
        Number(coded.key);
    }
}

void PacketInspector::Parse(const AVPacket& packet) {
    parser_->pict_type = AV_PICTURE_TYPE_NONE;
    parser_->picture_structure = AV_PICTURE_STRUCTURE_UNKNOWN;
    std::uint8_t* output = nullptr;
    int outputSize = 0;
    av_parser_parse2(parser_.get(), context_.get(), &output, &outputSize, packet.data, packet.size,
                     packet.pts, packet.dts, packet.pos);
}

bool PacketInspector::CompletesField() {
    const auto structure = parser_->picture_structure;
    const bool completes = IsField(structure) && IsField(openField_) && structure != openField_;
    openField_ = completes || !IsField(structure) ? AV_PICTURE_STRUCTURE_UNKNOWN : structure;
    return completes;
}

/// Numbering begins anew at some key frames, those that refer to nothing before them in either order. They
/// have the number 0, or one below when the bottom field comes first.
void PacketInspector::Number(bool key) {
    if (key && parser_->output_picture_number <= 0 && !orders_.empty()) {
        ++order_.sequence;
    }
    order_.number = parser_->output_picture_number;
    orders_.push_back(order_);
}

}  // namespace Tavrin::Playout
