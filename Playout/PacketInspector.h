#pragma once

#include "Playout/Ffmpeg.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// Looks into the headers of coded packets for what containers do not tell, without decoding: whether a
/// packet marked as a key frame is intra coded (streams with gradual refresh, and files without a table of
/// key frames, mark others too), whether a packet is the second field of a picture, whether it is never
/// shown.
///
/// *Threads:* externally synchronised. *Errors:* none; where a header cannot be read the container is
/// believed.
class PacketInspector {
public:
    explicit PacketInspector(const AVCodecParameters& parameters);

    /// The packets must come in decoding order. Fills in `entry`, `hidden` and `secondField`.
    void Inspect(const AVPacket& packet, CodedPacket& coded);

private:
    void Parse(const AVPacket& packet);
    [[nodiscard]] bool CompletesField();

    AVCodecID codec_;
    Ffmpeg::CodecPointer context_;
    Ffmpeg::ParserPointer parser_;
    /// The parity of a field that waits for its other half.
    AVPictureStructure openField_ = AV_PICTURE_STRUCTURE_UNKNOWN;
};

}  // namespace Tavrin::Playout
