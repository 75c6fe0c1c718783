#include "Playout/WindowPlan.h"

#include <algorithm>
#include <cstdint>

#include "Playout/PictureSize.h"

namespace Tavrin::Playout {

using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

namespace {

/// Fewer pictures than this ahead of the play head cannot hide the time that one decode takes.
constexpr std::size_t kFewestAhead = 4;

/// Compressed samples beyond the decoded ones: they are small, and reading ahead hides the storage.
constexpr std::size_t kCompressedBeyondDecoded = 25;

constexpr std::size_t kMostDefaultBytes = std::size_t{768} << 20U;

/// The samples that pass the play head in a length of wall time, rounded up.
std::size_t NbPassing(const TimePoint& wallTime, const SampleRate& fetchRate, const Ratio& speed) {
    const TimePoint passed = (wallTime * speed).Abs();
    const auto nb = passed.SampleNumber(fetchRate);
    return static_cast<std::size_t>(std::max<std::int64_t>(nb, 0)) + 1;
}

SampleRate FetchRateOf(const RecordingIndex& recording, const SampleRate& displayRate, const Ratio& speed) {
    const SampleRate needed = SampleRate::TimeSamplingRate(recording.Rate(), speed, displayRate);
    return needed.Positive() ? SampleRate::StreamPreloadRate(recording.Rate(), needed) : recording.Rate();
}

std::size_t LongestGroup(const RecordingIndex& recording) {
    std::size_t longest = 1;
    for (std::size_t group = 0; group < recording.NbGroups(); ++group) {
        longest = std::max(longest, recording.Group(group).nbPictures);
    }
    return longest;
}

}  // namespace

std::size_t DefaultTrackBytes(const RecordingIndex& recording) {
    const std::size_t longest = LongestGroup(recording);
    constexpr std::size_t fewest = 4 * kFewestAhead;
    const std::size_t picture = DecodedPictureBytes(recording);
    return std::max(std::min(2 * longest * picture, kMostDefaultBytes), fewest * picture);
}

StreamWindow PlanWindow(const RecordingIndex& recording, const SampleRate& displayRate, const Ratio& speed,
                        std::size_t bytes, const SessionOptions& options) {
    const bool isStill = speed.Numerator() == 0;
    const Ratio passing = isStill ? Ratio(1, 1) : speed;
    const SampleRate rate = FetchRateOf(recording, displayRate, speed);
    const std::size_t nbFitting = bytes / std::max<std::size_t>(DecodedPictureBytes(recording), 1);
    const bool isForward = speed.Positive();
    StreamWindow window;
    window.nbDecodedBehind = std::min(NbPassing(options.behind, rate, passing), nbFitting / 4);
    const std::size_t nbForGroup = isForward ? 0 : std::min(LongestGroup(recording), nbFitting / 2);
    const std::size_t nbForAhead = nbFitting - std::min(nbFitting, window.nbDecodedBehind + nbForGroup + 1);
    window.nbDecodedAhead =
        std::max(std::min(NbPassing(options.ahead, rate, passing), nbForAhead), kFewestAhead);
    window.nbCompressedAhead = window.nbDecodedAhead + kCompressedBeyondDecoded;
    window.retryAfter = options.retryAfter;
    return window;
}

}  // namespace Tavrin::Playout
