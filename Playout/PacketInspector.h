#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "Playout/Ffmpeg.h"
#include "Playout/RecordingIndex.h"
#include "Playout/StampCompletion.h"

namespace Tavrin::Playout {

/// Looks into the headers of coded packets for what containers do not tell, without decoding: whether a
/// packet marked as a key frame is intra coded (streams with gradual refresh, and files without a table of
/// key frames, mark others too), whether a packet is the second field of a picture, whether it is never
/// shown, and in which order the codec shows its pictures.
///
/// *Threads:* externally synchronised. *Errors:* none; where a header cannot be read the container is
/// believed.
class PacketInspector {
public:
    explicit PacketInspector(const AVCodecParameters& parameters);

    /// The packets must come in decoding order. Fills in `entry`, `hidden` and `secondField`.
    void Inspect(const AVPacket& packet, CodedPacket& coded);

    /// Of the packets inspected so far, one for each; empty for codecs that do not number their pictures.
    [[nodiscard]] const std::vector<CodedOrder>& Orders() const { return orders_; }

    /// The first packet is predicted from pictures that the file does not have.
    [[nodiscard]] bool BeginsInMidGroup() const { return beginsInMidGroup_; }

private:
    [[nodiscard]] bool MustParse(bool key) const;
    void Parse(const AVPacket& packet);
    [[nodiscard]] bool CompletesField();
    void Number(bool key);

    AVCodecID codec_;
    bool numbersPictures_;
    Ffmpeg::CodecPointer context_;
    Ffmpeg::ParserPointer parser_;
    std::size_t lengthSize_;
    bool first_ = true;
    bool beginsInMidGroup_ = false;
    /// The parity of a field that waits for its other half.
    AVPictureStructure openField_ = AV_PICTURE_STRUCTURE_UNKNOWN;
    CodedOrder order_;
    std::vector<CodedOrder> orders_;
};

}  // namespace Tavrin::Playout
