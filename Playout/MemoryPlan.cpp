#include "Playout/MemoryPlan.h"

#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <string>

#include "Playout/PictureSize.h"
#include "Playout/ReferencePictures.h"
#include "Playout/WindowPlan.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

namespace {

/// Groups whose packets a track holds at once: the one that is decoded, its neighbours, and one that a jump left.
constexpr std::size_t kNbGroupsAtHand = 4;

/// Where groups are short, or each picture is one, so many pictures: the window and what is read beyond it.
constexpr std::size_t kNbPicturesAtHand = 64;

/// Pictures of the group that is shown that are still held when the one before it is begun, so that it is ready in
/// time.
constexpr std::size_t kNbAroundGroup = 24;

/// Wall time that the usual memory holds around the play head at speed 1, ahead and behind, as SessionOptions has it.
constexpr std::int64_t kUsualMilliseconds = 1700;

/// Two groups of 50 pictures of 2160 lines, which is what it takes to play them backward in time on two cores.
constexpr std::size_t kMostUsualBytes = std::size_t{1280} << 20U;
constexpr std::size_t kMebibyte = std::size_t{1} << 20U;

std::size_t SumOf(const std::vector<TrackNeeds>& needs, std::size_t TrackNeeds::*part) {
    return std::accumulate(needs.begin(), needs.end(), std::size_t{0},
                           [part](std::size_t sum, const TrackNeeds& need) { return sum + need.*part; });
}

std::size_t PacketBytes(const RecordingIndex& recording) {
    std::int64_t longest = 0;
    std::int64_t all = 0;
    for (std::size_t group = 0; group < recording.NbGroups(); ++group) {
        longest = std::max(longest, recording.Group(group).nbBytes);
        all += recording.Group(group).nbBytes;
    }
    const std::size_t nbInGroup = std::max<std::size_t>(recording.NbPictures() / recording.NbGroups(), 1);
    const std::size_t nbAtHand = std::max(kNbGroupsAtHand, (kNbPicturesAtHand + nbInGroup - 1) / nbInGroup);
    return static_cast<std::size_t>(std::min(all, static_cast<std::int64_t>(nbAtHand) * longest));
}

std::string InMebibytes(std::size_t bytes) {
    return std::to_string((bytes + kMebibyte - 1) / kMebibyte) + " MiB";
}

}  // namespace

LanePlan PlanLanes(const RecordingIndex& recording, std::size_t nbTracks, std::size_t nbCores) {
    LanePlan plan;
    const std::size_t nbCoresEach = std::max<std::size_t>(nbCores / std::max<std::size_t>(nbTracks, 1), 1);
    if (recording.IntraOnly()) {
        plan.nbLanes = std::max(nbCoresEach, plan.nbLanes);
    } else {
        plan.nbThreads = static_cast<int>(nbCoresEach);
    }
    return plan;
}

TrackNeeds NeedsOf(const RecordingIndex& recording, const LanePlan& lanes) {
    TrackNeeds needs;
    needs.picture = DecodedPictureBytes(recording);
    needs.packets = PacketBytes(recording);
    const std::size_t references =
        recording.IntraOnly()
            ? 1
            : NbOfReferences(recording.CodecParameters(), static_cast<std::size_t>(recording.ReorderDepth()));
    const auto threads = static_cast<std::size_t>(std::max(lanes.nbThreads, 1));
    const std::size_t nbWorking = lanes.nbLanes * (references + threads);
    needs.working = nbWorking * needs.picture;
    needs.least = needs.packets + needs.working + (kFewestAhead + 2) * needs.picture;
    const std::size_t group = LongestGroup(recording) * needs.picture;
    needs.beingMade = BytesBeingMade(recording, lanes.nbLanes, lanes.nbThreads);
    const std::size_t forReverse =
        needs.packets + needs.working + needs.beingMade + group + kNbAroundGroup * needs.picture;
    const auto nbPassing =
        Time::TimePoint().FromMilliseconds(kUsualMilliseconds).SampleNumber(recording.Rate()) + 3;
    const std::size_t forWindow =
        needs.packets + needs.working + needs.beingMade + static_cast<std::size_t>(nbPassing) * needs.picture;
    needs.usual = std::max(std::min(std::max({2 * group, forReverse, forWindow}), kMostUsualBytes),
                           needs.least + 2 * kFewestAhead * needs.picture);
    return needs;
}

std::vector<std::size_t> ShareMemory(std::size_t total, const std::vector<TrackNeeds>& needs,
                                     const std::vector<std::size_t>& weights) {
    const std::size_t least = SumOf(needs, &TrackNeeds::least);
    if (total < least) {
        throw std::invalid_argument("a memory budget of " + InMebibytes(total) + " is too small to play " +
                                    std::to_string(needs.size()) +
                                    (needs.size() == 1 ? " track" : " tracks") + ": it takes at least " +
                                    InMebibytes(least));
    }
    if (std::find(weights.begin(), weights.end(), 0U) != weights.end()) {
        throw std::invalid_argument("a track of weight 0 has no share of the memory: weights begin at 1");
    }
    const auto sum = static_cast<double>(std::accumulate(weights.begin(), weights.end(), std::size_t{0}));
    std::vector<std::size_t> shares;
    for (std::size_t track = 0; track < needs.size(); ++track) {
        const double part = static_cast<double>(weights.at(track)) / sum;
        shares.push_back(needs[track].least +
                         static_cast<std::size_t>(static_cast<double>(total - least) * part));
    }
    return shares;
}

std::size_t DefaultMemory(const std::vector<TrackNeeds>& needs) {
    const auto machine = static_cast<std::size_t>(std::max(sysconf(_SC_PHYS_PAGES), 0L)) *
                         static_cast<std::size_t>(std::max(sysconf(_SC_PAGESIZE), 0L));
    return std::max(std::min(SumOf(needs, &TrackNeeds::usual), machine / 2),
                    SumOf(needs, &TrackNeeds::least));
}

}  // namespace Tavrin::Playout
