#include "Playout/ReferencePictures.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "Playout/ParameterSets.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace Tavrin::Playout {

namespace {

constexpr std::size_t kUsual = 4;
constexpr std::int64_t kMost = 16;

/// Up to a level, as FFmpeg numbers them, the size that belongs to it.
using Level = std::pair<int, std::int64_t>;

/// Ten times the level; macroblocks in all pictures that are kept (MaxDpbMbs).
constexpr std::array<Level, 14> kH264Levels{{{10, 396},
                                             {11, 900},
                                             {20, 2376},
                                             {21, 4752},
                                             {30, 8100},
                                             {31, 18000},
                                             {32, 20480},
                                             {41, 32768},
                                             {42, 34816},
                                             {50, 110400},
                                             {52, 184320},
                                             {60, 696320},
                                             {61, 696320},
                                             {62, 696320}}};

/// Thirty times the level; samples of one picture (MaxLumaPs).
constexpr std::array<Level, 8> kHevcLevels{{{30, 36864},
                                            {60, 122880},
                                            {63, 245760},
                                            {90, 552960},
                                            {93, 983040},
                                            {123, 2228224},
                                            {156, 8912896},
                                            {186, 35651584}}};

template <std::size_t N>
std::int64_t SizeAt(const std::array<Level, N>& levels, int level) {
    const auto found = std::find_if(levels.begin(), levels.end(),
                                    [level](const Level& candidate) { return level <= candidate.first; });
    return level <= 0 || found == levels.end() ? 0 : found->second;
}

std::size_t OfH264(const AVCodecParameters& parameters, std::size_t reorderDepth) {
    if (const auto nb = ReferencesOfH264(parameters)) {
        return *nb + reorderDepth;
    }
    constexpr std::int64_t kMacroblock = 16;
    const std::int64_t size = SizeAt(kH264Levels, parameters.level);
    const std::int64_t width = (parameters.width + kMacroblock - 1) / kMacroblock;
    const std::int64_t height = (parameters.height + kMacroblock - 1) / kMacroblock;
    return size == 0 || width * height <= 0
               ? kUsual + reorderDepth
               : static_cast<std::size_t>(std::clamp<std::int64_t>(size / (width * height), 1, kMost));
}

std::size_t OfHevc(const AVCodecParameters& parameters, std::size_t reorderDepth) {
    if (const auto nb = PicturesOfHevc(parameters)) {
        return *nb;
    }
    constexpr std::size_t kAtTheLargest = 6;
    const std::int64_t most = SizeAt(kHevcLevels, parameters.level);
    const std::int64_t size = static_cast<std::int64_t>(parameters.width) * parameters.height;
    if (most == 0 || size <= 0) {
        return kUsual + reorderDepth;
    }
    if (size <= most / 4) {
        return kMost;
    }
    if (size <= most / 2) {
        return 2 * kAtTheLargest;
    }
    return size <= most * 3 / 4 ? 4 * kAtTheLargest / 3 : kAtTheLargest;
}

}  // namespace

std::size_t NbOfReferences(const AVCodecParameters& parameters, std::size_t reorderDepth) {
    switch (parameters.codec_id) {
        case AV_CODEC_ID_H264:
            return OfH264(parameters, reorderDepth);
        case AV_CODEC_ID_HEVC:
            return OfHevc(parameters, reorderDepth);
        case AV_CODEC_ID_MPEG1VIDEO:
        case AV_CODEC_ID_MPEG2VIDEO:
        case AV_CODEC_ID_MPEG4:
            return 2 + reorderDepth;
        case AV_CODEC_ID_VP8:
            return 3 + reorderDepth;
        case AV_CODEC_ID_VP9:
        case AV_CODEC_ID_AV1:
            return 8 + reorderDepth;
        default:
            return kUsual + reorderDepth;
    }
}

}  // namespace Tavrin::Playout
