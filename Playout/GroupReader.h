#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Playout/PacketGroup.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/StopTime.h"

namespace Tavrin::Playout {

class Demuxer;

/// Reads groups of pictures from a recording's file, each in one go.
///
/// Packets are recognised by what the index knows of them, wherever in the file reading stands. It seeks only
/// when the wanted packets do not come next, and when a seek ends up too late it tries earlier places and in
/// the end the start of the file. Packets that are part of a group read lately are not read again.
///
/// *Threads:* externally synchronised; RequestStopAt, TakeBackStop and HeldBytes are thread-safe. *Blocking:* on the file. *Ownership:* owns
/// the open file; keeps the index alive. *Errors:* the constructor and Read throw std::runtime_error in one
/// line that names the file and the reason; a failed Read may be tried again and opens the file anew.
class TAVRIN_PLAYOUT_EXPORT GroupReader final {
public:
    /// What reading has cost.
    struct Information {
        std::uint64_t nbReads = 0;      ///< Groups that the file was needed for.
        std::uint64_t nbReused = 0;     ///< Groups that were at hand as a whole.
        std::uint64_t nbSeeks = 0;      ///< Tries to go to another place, opening the file anew included.
        std::uint64_t nbPackets = 0;    ///< Packets taken from the file.
        std::uint64_t nbBytes = 0;      ///< Of those packets.
        std::uint64_t nbBytesRead = 0;  ///< Taken from the file in all, to find the packets too.
        std::uint64_t nbBytesKept = 0;  ///< Of the groups at hand.
    };

    /// Groups at hand when nobody says otherwise: the one that is decoded, its neighbours on either side,
    /// and one that a jump left.
    static constexpr std::size_t kNbGroupsKept = 4;

    /// Opens the file.
    explicit GroupReader(std::shared_ptr<const RecordingIndex> index,
                         std::size_t nbGroupsKept = kNbGroupsKept);
    ~GroupReader();
    GroupReader(const GroupReader&) = delete;
    GroupReader& operator=(const GroupReader&) = delete;

    /// The group, complete or with what the file still has of it (PacketGroup::NbMissing). Throws
    /// std::out_of_range for a group that does not exist. Null when \p isStale, asked between packets, is true:
    /// reading then goes on from there the next time.
    [[nodiscard]] std::shared_ptr<const PacketGroup> Read(std::size_t group,
                                                          const std::function<bool()>& isStale = {});

    /// The same without touching the file: null when the group is not at hand.
    [[nodiscard]] std::shared_ptr<const PacketGroup> AtHand(std::size_t group) const;

    /// From then on, until it is taken back, reads in progress and new ones fail. From any thread.
    void RequestStopAt(StopTime::Clock::time_point time) { stop_.Set(time); }
    void TakeBackStop() { stop_.Clear(); }

    [[nodiscard]] Information GetInformation() const;

    /// Bytes of the packets it has read that are still in memory, whoever holds them, each counted once. From
    /// any thread.
    [[nodiscard]] std::size_t HeldBytes() const { return heldBytes_->load(std::memory_order_relaxed); }

private:
    struct Numbered;
    struct SeekTarget;
    enum class SeekBy { Position, Presentation, Decoding };

    [[nodiscard]] std::vector<PacketGroup::SharedPacket> TakeFromGroupsAtHand(
        const PictureGroup& layout) const;
    [[nodiscard]] bool Fill(const PictureGroup& layout, std::vector<PacketGroup::SharedPacket>& packets,
                            const std::function<bool()>& isStale);
    void LinkNeighbours(const std::shared_ptr<const PacketGroup>& group) const;
    void Keep(std::shared_ptr<const PacketGroup> group);

    void Open();
    void Close();
    void GoTo(std::size_t packet);
    [[nodiscard]] bool StandsShortlyBefore(std::size_t packet) const;
    [[nodiscard]] bool TrySeek(const SeekTarget& target, std::size_t packet);
    [[nodiscard]] std::vector<SeekTarget> SeekTargets(std::size_t packet) const;
    [[nodiscard]] bool Peek();
    [[nodiscard]] std::optional<std::size_t> Identify(const AVPacket& packet) const;
    [[nodiscard]] bool Matches(const AVPacket& packet, std::size_t number) const;
    [[nodiscard]] bool HasStampsOf(const AVPacket& packet, std::size_t number) const;

    std::shared_ptr<const RecordingIndex> index_;
    std::size_t nbGroupsKept_;
    StopTime stop_;
    /// The packets' numbers, in the order of their places in the file.
    std::vector<std::size_t> byPosition_;
    std::unique_ptr<Demuxer> demuxer_;
    /// The packet that comes next, already taken from the demuxer, and its number.
    std::unique_ptr<Numbered> next_;
    /// The number of the packet that the demuxer delivers next, if reading just goes on.
    std::optional<std::size_t> expected_;
    /// The kind of stamp that this container's seeks go by; learnt from where they end up.
    SeekBy preferred_ = SeekBy::Presentation;
    std::deque<std::shared_ptr<const PacketGroup>> kept_;
    Information information_;
    /// Shared with the packets, which may outlive the reader. Only a figure to be looked at: relaxed.
    std::shared_ptr<std::atomic<std::size_t>> heldBytes_ = std::make_shared<std::atomic<std::size_t>>(0);
};

}  // namespace Tavrin::Playout
