#pragma once

#include <cstddef>
#include <optional>

struct AVCodecParameters;

namespace Tavrin::Playout {

/// `max_num_ref_frames` of the first sequence parameter set of an H.264 stream (ITU-T H.264, 7.3.2.1.1): the pictures
/// that it keeps to predict others from. Nothing where its header, in either of its two forms, holds no such set, or
/// one that does not end where it should.
[[nodiscard]] std::optional<std::size_t> ReferencesOfH264(const AVCodecParameters& parameters);

/// `sps_max_dec_pic_buffering_minus1` plus one of that of an HEVC stream, of its highest sub-layer (ITU-T H.265,
/// 7.3.2.2.1): the pictures that it keeps to predict others from, or to put out later, and the one that is decoded.
[[nodiscard]] std::optional<std::size_t> PicturesOfHevc(const AVCodecParameters& parameters);

}  // namespace Tavrin::Playout
