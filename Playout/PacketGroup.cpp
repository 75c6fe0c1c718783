#include "Playout/PacketGroup.h"

#include <stdexcept>
#include <utility>

#include "Playout/Ffmpeg.h"

namespace Tavrin::Playout {

PacketGroup::PacketGroup(std::shared_ptr<const RecordingIndex> index, std::size_t group,
                         std::vector<SharedPacket> packets)
    : index_(std::move(index)), group_(group), packets_(std::move(packets)) {
    if (packets_.size() != Layout().nbPackets) {
        throw std::invalid_argument("group " + std::to_string(group) + " has " +
                                    std::to_string(Layout().nbPackets) + " packets, not " +
                                    std::to_string(packets_.size()));
    }
    for (const auto& packet : packets_) {
        if (packet == nullptr) {
            ++nbMissing_;
        } else {
            byteSize_ += static_cast<std::size_t>(packet->size);
        }
    }
}

PacketGroup::~PacketGroup() = default;

PacketGroup::SharedPacket PacketGroup::Packet(std::size_t packet) const {
    const auto first = Layout().firstPacket;
    return packet >= first && packet - first < packets_.size() ? packets_[packet - first] : nullptr;
}

std::shared_ptr<const PacketGroup> PacketGroup::Next() const {
    const std::scoped_lock lock(nextMutex_);
    return next_.lock();
}

void PacketGroup::SetNext(const std::shared_ptr<const PacketGroup>& next) const {
    const std::scoped_lock lock(nextMutex_);
    next_ = next;
}

std::span<const std::uint8_t> PacketGroup::Bytes(std::size_t packet) const {
    const auto found = Packet(packet);
    if (found == nullptr) {
        return {};
    }
    return {found->data, static_cast<std::size_t>(found->size)};
}

}  // namespace Tavrin::Playout
