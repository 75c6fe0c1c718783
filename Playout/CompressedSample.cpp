#include "Playout/CompressedSample.h"

#include <map>
#include <stdexcept>
#include <utility>

namespace Tavrin::Playout {

namespace {

constexpr const char* kPacketKey = "packet";

std::map<std::string, std::string> Describe(const Player::TrackId& track, const PacketGroup& group,
                                            std::size_t picture) {
    const auto& index = *group.Index();
    const auto& indexed = index.Picture(picture);
    if (indexed.group != group.Number()) {
        throw std::invalid_argument("picture " + std::to_string(picture) + " is not of group " +
                                    std::to_string(group.Number()));
    }
    const auto& description = index.Description();
    return {{"track", track.ToString()},
            {"codec", description.codec},
            {"picture", std::to_string(picture)},
            {"group", std::to_string(indexed.group)},
            {"key", indexed.key ? "1" : "0"},
            {"width", std::to_string(description.width)},
            {"height", std::to_string(description.height)},
            {"size", std::to_string(group.Bytes(indexed.packet).size())}};
}

}  // namespace

CompressedSample::CompressedSample(const Player::TrackId& track, std::shared_ptr<const PacketGroup> group,
                                   std::size_t picture, const Time::TimePoint& tp,
                                   const Time::TimePoint& duration)
    : MediaSample(tp, duration, Describe(track, *group, picture)),
      track_(track),
      group_(std::move(group)),
      picture_(picture) {
}

std::set<std::string> CompressedSample::GetDataKeys() const {
    return {kPacketKey};
}

const std::uint8_t* CompressedSample::GetData(const std::string& key, std::uint64_t& size) const {
    if (key != kPacketKey) {
        size = 0;
        return nullptr;
    }
    const auto bytes = group_->Bytes(group_->Index()->Picture(picture_).packet);
    size = bytes.size();
    return bytes.data();
}

}  // namespace Tavrin::Playout
