#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Player/SampleRate.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// A recording that is in no file.
struct TAVRIN_PLAYOUT_EXPORT RecordingModel {
    Player::SampleRate rate{25, 1};
    std::size_t nbPictures = 1;
    std::size_t groupLength = 50;  ///< Pictures from one key frame to the next; 1: every one is a key frame.
    std::size_t firstGroupLength = 0;  ///< Of the first group alone, at most groupLength; 0: as the others.
    std::int64_t bitsPerSecond = 16'000'000;
    int reorderDepth = 2;  ///< Pictures that the decoder takes in before it puts out the first.
    int width = 1920;
    int height = 1080;
    std::string pixelFormat = "yuv420p";

    /// Throws std::invalid_argument, naming the value and the rule.
    void Check() const;
};

/// The index that such a recording would have, with all that planning needs, down to the bytes of a decoded
/// picture. There is nothing to read or to decode: its groups' packets have their sizes and no content.
/// Throws as RecordingModel::Check.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::shared_ptr<const RecordingIndex> MakeSimulatedRecording(
    const RecordingModel& model);

}  // namespace Tavrin::Playout
