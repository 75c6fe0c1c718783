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

}  // namespace

PacketInspector::PacketInspector(const AVCodecParameters& parameters)
    : codec_(parameters.codec_id),
      context_(Ffmpeg::NewCodecContext(nullptr, parameters)),
      parser_(av_parser_init(parameters.codec_id)) {
    if (parser_ != nullptr) {
        parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    }
}

void PacketInspector::Inspect(const AVPacket& packet, CodedPacket& coded) {
    coded.entry = coded.key;
    if (codec_ == AV_CODEC_ID_VP8) {
        coded.hidden = coded.hidden || IsHiddenVp8(packet);
    }
    // Fields come in packets of their own in H.264 only; elsewhere the key frames alone are of interest.
    const bool mayBeField = codec_ == AV_CODEC_ID_H264;
    if (parser_ == nullptr || (!coded.key && !mayBeField)) {
        return;
    }
    Parse(packet);
    const auto type = parser_->pict_type;
    coded.secondField = mayBeField && CompletesField();
    coded.entry = coded.key && !coded.secondField && type != AV_PICTURE_TYPE_P && type != AV_PICTURE_TYPE_B;
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

}  // namespace Tavrin::Playout
