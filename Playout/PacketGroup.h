#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

struct AVPacket;

namespace Tavrin::Playout {

/// The compressed packets of one group's decode run, as read from the file.
///
/// *Threads:* immutable, save for the group that comes next, which may be told and asked for from any thread.
/// *Blocking:* never beyond a short lock. *Ownership:* shared by all the samples of the group; keeps the
/// index alive. The bytes of packets that two runs have in common are held once.
class TAVRIN_PLAYOUT_EXPORT PacketGroup final {
public:
    /// A packet, shared between groups whose runs overlap; null where the file did not deliver it.
    using SharedPacket = std::shared_ptr<const AVPacket>;

    /// \p packets holds one entry for each packet of the group's run, in decoding order.
    PacketGroup(std::shared_ptr<const RecordingIndex> index, std::size_t group,
                std::vector<SharedPacket> packets);
    ~PacketGroup();
    PacketGroup(const PacketGroup&) = delete;
    PacketGroup& operator=(const PacketGroup&) = delete;

    [[nodiscard]] std::size_t Number() const { return group_; }
    [[nodiscard]] const std::shared_ptr<const RecordingIndex>& Index() const { return index_; }
    [[nodiscard]] const PictureGroup& Layout() const { return index_->Group(group_); }

    /// By the packet's number in the recording; null when it is missing or not of this run.
    [[nodiscard]] SharedPacket Packet(std::size_t packet) const;
    /// Its bytes; empty when it is missing or not of this run.
    [[nodiscard]] std::span<const std::uint8_t> Bytes(std::size_t packet) const;

    [[nodiscard]] std::size_t NbMissing() const { return nbMissing_; }  ///< Packets not delivered.
    [[nodiscard]] std::size_t ByteSize() const { return byteSize_; }    ///< Of all packets together.

    /// The recording's next group, while somebody holds it; null otherwise. Whoever reads tells.
    [[nodiscard]] std::shared_ptr<const PacketGroup> Next() const;
    void SetNext(const std::shared_ptr<const PacketGroup>& next) const;

private:
    std::shared_ptr<const RecordingIndex> index_;
    std::size_t group_;
    std::vector<SharedPacket> packets_;
    std::size_t nbMissing_ = 0;
    std::size_t byteSize_ = 0;
    mutable std::mutex nextMutex_;
    mutable std::weak_ptr<const PacketGroup> next_;
};

}  // namespace Tavrin::Playout
