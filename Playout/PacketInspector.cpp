#include "Playout/PacketInspector.h"

namespace Tavrin::Playout {

namespace {

/// A VP8 frame begins with a tag whose fifth bit says whether it is shown.
bool IsHiddenVp8(const AVPacket& packet) {
    constexpr std::uint8_t kShown = 0x10;
    return packet.size > 0 && (packet.data[0] & kShown) == 0;
}

bool IsField(AVPictureStructure structure) {
    return structure == AV_PICTURE_STRUCTURE_TOP_FIELD || structure == AV_PICTURE_STRUCTURE_BOTTOM_FIELD;
}

bool IsPredicted(int type) {
    return type == AV_PICTURE_TYPE_P || type == AV_PICTURE_TYPE_B;
}

}  // namespace

PacketInspector::PacketInspector(const AVCodecParameters& parameters)
    : codec_(parameters.codec_id),
      numbersPictures_(codec_ == AV_CODEC_ID_H264 || codec_ == AV_CODEC_ID_HEVC),
      context_(Ffmpeg::NewCodecContext(nullptr, parameters)),
      parser_(av_parser_init(parameters.codec_id)) {
    if (parser_ != nullptr) {
        parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    }
}

bool PacketInspector::MustParse(bool key) const {
    return parser_ != nullptr && (key || first_ || numbersPictures_);
}

void PacketInspector::Inspect(const AVPacket& packet, CodedPacket& coded) {
    coded.entry = coded.key;
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
