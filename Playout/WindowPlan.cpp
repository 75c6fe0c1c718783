#include "Playout/WindowPlan.h"

#include <algorithm>
#include <cstdint>

#include "Playout/PictureSize.h"

namespace Tavrin::Playout {

using Player::SampleRate;
using Time::Ratio;
using Time::TimePoint;

namespace {

/// Compressed samples beyond the decoded ones: they are small, and reading ahead hides the storage.
constexpr std::size_t kCompressedBeyondDecoded = 25;

/// A group that is decoded backward is begun before it is due by so many times what it takes.
constexpr double kTimesEnough = 1.5;

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

/// Samples of the rate that is fetched whose packets fit, beside those of one whole group.
/// Pictures that stand alone are read alone; of a group, the packets between come along.
std::size_t NbOfPackets(const RecordingIndex& recording, std::size_t stride, std::size_t bytes) {
    std::int64_t all = 1;
    for (std::size_t group = 0; group < recording.NbGroups(); ++group) {
        all += recording.Group(group).nbBytes;
    }
    const std::size_t nbEach = recording.IntraOnly() ? 1 : stride;
    const double perSample = static_cast<double>(all) * static_cast<double>(nbEach) /
                             static_cast<double>(std::max<std::size_t>(recording.NbPictures(), 1));
    return static_cast<std::size_t>(static_cast<double>(bytes) / perSample);
}

/// Samples of a group that are left room for when it is decoded backward.
std::size_t NbOfGroup(std::size_t group, std::size_t nbFitting, std::size_t nbMeanwhile) {
    // In the rest, the group is begun so early that its first part can be decoded again in time.
    const bool fitsWhole = nbMeanwhile > 0 && group + nbMeanwhile <= nbFitting;
    return fitsWhole ? group : std::min(group, nbFitting * 2 / 5);
}

}  // namespace

std::size_t LongestGroup(const RecordingIndex& recording) {
    std::size_t longest = 1;
    for (std::size_t group = 0; group < recording.NbGroups(); ++group) {
        longest = std::max(longest, recording.Group(group).nbPictures);
    }
    return longest;
}

StreamWindow PlanWindow(const RecordingIndex& recording, const SampleRate& displayRate, const Ratio& speed,
                        const WindowRoom& room, const SessionOptions& options) {
    // Around a still play head enough is kept for steps either way, one after the other, and for the start of playing.
    const bool isStill = speed.Numerator() == 0;
    const Ratio passing = isStill ? Ratio(1, 3) : speed;
    const SampleRate rate = FetchRateOf(recording, displayRate, speed);
    const auto stride = static_cast<std::size_t>((recording.Rate() / rate).Numerator());
    const std::size_t picture = std::max<std::size_t>(DecodedPictureBytes(recording), 1);
    const std::size_t nbFitting = room.pictures / picture;
    const std::size_t nbOfPackets = NbOfPackets(recording, stride, room.packets);
    const bool isForward = speed.Positive();
    StreamWindow window;
    window.nbDecodedBehind = std::min(NbPassing(isStill ? options.ahead : options.behind, rate, passing),
                                      nbFitting / (isStill ? 3 : 4));
    const std::size_t group = (LongestGroup(recording) + stride - 1) / stride + room.beingMade / picture;
    const bool isKnown = !isStill && room.groupTime.count() > 0;
    const auto enoughTime =
        TimePoint().FromMilliseconds(static_cast<std::int64_t>(kTimesEnough * 1000 * room.groupTime.count()));
    const bool isInTime = isKnown && enoughTime <= options.ahead;
    const std::size_t nbMeanwhile =
        isInTime ? window.nbDecodedBehind + 1 + NbPassing(enoughTime, rate, speed) : 0;
    const std::size_t nbForGroup = isForward ? 0 : NbOfGroup(group, nbFitting, nbMeanwhile);
    const std::size_t nbForAhead = nbFitting - std::min(nbFitting, window.nbDecodedBehind + nbForGroup + 1);
    const std::size_t nbAround = nbFitting - std::min(nbFitting, nbForGroup + 1);
    const std::size_t nbUsual = NbPassing(options.ahead, rate, passing);
    const std::size_t nbEnough = isKnown && !isForward ? NbPassing(enoughTime, rate, speed) : 0;
    // A group is begun in time where there is room for what is shown meanwhile; too late anyhow, it had better be kept.
    const std::size_t nbWanted = nbEnough <= nbForAhead ? std::max(nbUsual, nbEnough) : nbUsual;
    const std::size_t nbAhead = std::min(nbWanted, isStill ? nbAround / 2 : nbForAhead);
    window.nbDecodedAhead =
        std::max(std::min(nbAhead, nbOfPackets), isStill ? kFewestAhead / 2 : kFewestAhead);
    window.nbCompressedAhead =
        std::clamp(nbOfPackets, window.nbDecodedAhead, window.nbDecodedAhead + kCompressedBeyondDecoded);
    window.retryAfter = options.retryAfter;
    return window;
}

}  // namespace Tavrin::Playout
