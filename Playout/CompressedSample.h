#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "Player/TrackId.h"
#include "Playout/MediaSample.h"
#include "Playout/PacketGroup.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// The compressed form of the picture on display at one sample of a track: the group that decodes it, shared
/// with the other samples of the group, and the picture's number.
///
/// Properties, all text: "track", "codec", "picture" (number in presentation order), "group", "key" ("1" or
/// "0"), "width", "height", "size" (bytes of the packet). Data: "packet", the packet's bytes.
///
/// *Threads:* immutable but for the protection counter, which is thread-safe. *Ownership:* keeps the group
/// alive; the packet's bytes live as long as the sample.
class TAVRIN_PLAYOUT_EXPORT CompressedSample final : public MediaSample {
public:
    /// \p picture must be one of the group's. \p tp and \p duration are those of the sample on the grid.
    CompressedSample(const Player::TrackId& track, std::shared_ptr<const PacketGroup> group,
                     std::size_t picture, const Time::TimePoint& tp, const Time::TimePoint& duration);

    [[nodiscard]] const Player::TrackId& Track() const { return track_; }
    [[nodiscard]] const std::shared_ptr<const PacketGroup>& Group() const { return group_; }
    [[nodiscard]] std::size_t PictureNumber() const { return picture_; }

    [[nodiscard]] std::set<std::string> GetDataKeys() const override;
    /// An unknown key gives null and size 0.
    [[nodiscard]] const std::uint8_t* GetData(const std::string& key, std::uint64_t& size) const override;

private:
    Player::TrackId track_;
    std::shared_ptr<const PacketGroup> group_;
    std::size_t picture_;
};

}  // namespace Tavrin::Playout
