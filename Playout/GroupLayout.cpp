#include "Playout/GroupLayout.h"

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace Tavrin::Playout {

namespace {

using Packets = std::vector<CodedPacket>;

/// More than any codec allows: 16 frames in H.264 and HEVC.
constexpr std::ptrdiff_t kMaxReorderDepth = 16;

bool Shows(const CodedPacket& packet) {
    return !packet.hidden && !packet.secondField;
}

std::vector<std::size_t> InPresentationOrder(const Packets& packets) {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (Shows(packets[i])) {
            order.push_back(i);
        }
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return packets[left].pts < packets[right].pts;
    });
    return order;
}

/// The packets that begin a group's run.
std::vector<std::size_t> Entries(const Packets& packets) {
    std::vector<std::size_t> entries{0};
    auto latest = CodedPacket::kNone;  // the picture before in decoding order that is shown last
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (i > 0 && packets[i].entry && packets[i].pts > latest) {
            entries.push_back(i);
        }
        if (Shows(packets[i])) {
            latest = std::max(latest, packets[i].pts);
        }
    }
    return entries;
}

/// Where the run that decodes these pictures ends, with the second field of the last one.
std::size_t RunEnd(const Packets& packets, const GroupLayout& layout, std::size_t begin, std::size_t end) {
    std::size_t last = 0;
    for (std::size_t picture = begin; picture < end; ++picture) {
        last = std::max(last, layout.packetOfPicture[picture]);
    }
    do {
        ++last;
    } while (last < packets.size() && packets[last].secondField);
    return last;
}

void AddGroup(const Packets& packets, GroupLayout& layout, std::size_t entry, std::size_t begin,
              std::size_t end) {
    PictureGroup group;
    group.firstPicture = begin;
    group.nbPictures = end - begin;
    group.firstPacket = entry;
    group.nbPackets = RunEnd(packets, layout, begin, end) - entry;
    const auto first = packets.begin() + static_cast<std::ptrdiff_t>(group.firstPacket);
    group.nbBytes =
        std::accumulate(first, first + static_cast<std::ptrdiff_t>(group.nbPackets), std::int64_t{0},
                        [](std::int64_t sum, const CodedPacket& packet) { return sum + packet.size; });
    layout.groupOfPicture.insert(layout.groupOfPicture.end(), group.nbPictures, layout.groups.size());
    layout.groups.push_back(group);
}

void SplitIntoGroups(const Packets& packets, GroupLayout& layout) {
    const auto entries = Entries(packets);
    const auto& order = layout.packetOfPicture;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        auto end = order.size();
        if (i + 1 < entries.size()) {
            const auto border = packets[entries[i + 1]].pts;
            const auto found =
                std::partition_point(order.begin() + static_cast<std::ptrdiff_t>(begin), order.end(),
                                     [&](std::size_t packet) { return packets[packet].pts < border; });
            end = static_cast<std::size_t>(found - order.begin());
        }
        if (end > begin) {
            AddGroup(packets, layout, entries[i], begin, end);
        }
        begin = end;
    }
}

/// How many pictures at most precede another in decoding order and follow it on display. A sorted window of
/// the latest stamps is enough, because the depth is bounded.
int ReorderDepth(const Packets& packets) {
    std::vector<std::int64_t> window;
    std::ptrdiff_t depth = 0;
    for (const auto& packet : packets) {
        if (packet.secondField) {
            continue;
        }
        const auto place = std::upper_bound(window.begin(), window.end(), packet.pts);
        depth = std::max(depth, window.end() - place);
        window.insert(place, packet.pts);
        if (window.size() > 2 * kMaxReorderDepth) {
            window.erase(window.begin());
        }
    }
    return static_cast<int>(std::min(depth, kMaxReorderDepth));
}

}  // namespace

GroupLayout LayOutGroups(const std::vector<CodedPacket>& packets) {
    GroupLayout layout;
    if (packets.empty()) {
        return layout;
    }
    layout.packetOfPicture = InPresentationOrder(packets);
    layout.pictureOfPacket.resize(packets.size());
    for (std::size_t picture = 0; picture < layout.packetOfPicture.size(); ++picture) {
        layout.pictureOfPacket[layout.packetOfPicture[picture]] = picture;
    }
    SplitIntoGroups(packets, layout);
    layout.reorderDepth = ReorderDepth(packets);
    return layout;
}

}  // namespace Tavrin::Playout
