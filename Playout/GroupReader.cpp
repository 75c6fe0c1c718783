#include "Playout/GroupReader.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "Playout/Demuxer.h"

namespace Tavrin::Playout {

namespace {

/// Reading on over this many bytes of unwanted packets costs no more than a seek: it is what the input
/// buffers.
constexpr std::int64_t kMaxPassedOver = 32'768;

/// Earlier groups tried, when a seek ends up after the wanted packet, before the start of the file.
constexpr std::size_t kMaxEarlierGroups = 3;

bool Same(std::int64_t stamp, std::int64_t known) {
    return stamp != AV_NOPTS_VALUE && known != CodedPacket::kNone && stamp == known;
}

/// Counted in `held` until the last owner lets go of it.
PacketGroup::SharedPacket Share(Ffmpeg::PacketPointer packet,
                                const std::shared_ptr<std::atomic<std::size_t>>& held) {
    const auto bytes = static_cast<std::size_t>(packet->size);
    held->fetch_add(bytes, std::memory_order_relaxed);
    return {packet.release(), [held, bytes](AVPacket* last) {
                held->fetch_sub(bytes, std::memory_order_relaxed);
                Ffmpeg::Deleter()(last);
            }};
}

}  // namespace

/// A packet from the demuxer with its number in the recording.
struct GroupReader::Numbered {
    Ffmpeg::PacketPointer packet;
    std::size_t number;
};

GroupReader::GroupReader(std::shared_ptr<const RecordingIndex> index, std::size_t nbGroupsKept)
    : index_(std::move(index)), nbGroupsKept_(std::max<std::size_t>(nbGroupsKept, 1)) {
    byPosition_.resize(index_->NbPackets());
    std::iota(byPosition_.begin(), byPosition_.end(), std::size_t{0});
    std::stable_sort(byPosition_.begin(), byPosition_.end(), [&](std::size_t left, std::size_t right) {
        return index_->Packet(left).position < index_->Packet(right).position;
    });
    Open();
}

GroupReader::~GroupReader() = default;

GroupReader::Information GroupReader::GetInformation() const {
    Information information = information_;
    information.nbBytesRead += demuxer_ != nullptr ? demuxer_->BytesRead() : 0;
    return information;
}

std::shared_ptr<const PacketGroup> GroupReader::AtHand(std::size_t group) const {
    const auto found = std::find_if(kept_.begin(), kept_.end(),
                                    [&](const auto& candidate) { return candidate->Number() == group; });
    return found == kept_.end() ? nullptr : *found;
}

std::shared_ptr<const PacketGroup> GroupReader::Read(std::size_t group,
                                                     const std::function<bool()>& isStale) {
    const auto& layout = index_->Group(group);
    if (auto atHand = AtHand(group)) {
        ++information_.nbReused;
        Keep(atHand);
        return atHand;
    }
    ++information_.nbReads;
    auto packets = TakeFromGroupsAtHand(layout);
    try {
        if (!Fill(layout, packets, isStale)) {
            return nullptr;
        }
    } catch (...) {
        Close();
        throw;
    }
    auto read = std::make_shared<const PacketGroup>(index_, group, std::move(packets));
    LinkNeighbours(read);
    Keep(read);
    return read;
}

std::vector<PacketGroup::SharedPacket> GroupReader::TakeFromGroupsAtHand(const PictureGroup& layout) const {
    std::vector<PacketGroup::SharedPacket> packets(layout.nbPackets);
    for (const auto& group : kept_) {
        const auto& other = group->Layout();
        const auto begin = std::max(layout.firstPacket, other.firstPacket);
        const auto end = std::min(layout.EndPacket(), other.EndPacket());
        for (auto number = begin; number < end; ++number) {
            if (auto packet = group->Packet(number)) {
                packets[number - layout.firstPacket] = std::move(packet);
            }
        }
    }
    return packets;
}

/// Whether it was not given up.
bool GroupReader::Fill(const PictureGroup& layout, std::vector<PacketGroup::SharedPacket>& packets,
                       const std::function<bool()>& isStale) {
    const auto nextGap = [&](std::size_t from) {
        while (from < packets.size() && packets[from] != nullptr) {
            ++from;
        }
        return from;
    };
    auto gap = nextGap(0);
    if (gap == packets.size()) {
        return true;
    }
    GoTo(layout.firstPacket + gap);
    while (gap < packets.size() && Peek() && next_->number < layout.EndPacket()) {
        if (isStale && isStale()) {
            return false;
        }
        const auto number = next_->number;
        auto packet = std::move(next_->packet);
        next_.reset();
        if (number < layout.firstPacket) {
            continue;
        }
        auto& slot = packets[number - layout.firstPacket];
        if (slot == nullptr) {
            slot = Share(std::move(packet), heldBytes_);
        }
        gap = nextGap(gap);
    }
    return true;
}

void GroupReader::LinkNeighbours(const std::shared_ptr<const PacketGroup>& group) const {
    for (const auto& kept : kept_) {
        if (kept->Number() + 1 == group->Number()) {
            kept->SetNext(group);
        } else if (kept->Number() == group->Number() + 1) {
            group->SetNext(kept);
        }
    }
}

void GroupReader::Keep(std::shared_ptr<const PacketGroup> group) {
    const auto same = std::find(kept_.begin(), kept_.end(), group);
    if (same != kept_.end()) {
        kept_.erase(same);
    }
    kept_.push_front(std::move(group));
    if (kept_.size() > nbGroupsKept_) {
        kept_.pop_back();
    }
    information_.nbBytesKept = 0;
    for (const auto& kept : kept_) {
        information_.nbBytesKept += kept->ByteSize();
    }
}

void GroupReader::Close() {
    information_.nbBytesRead += demuxer_ != nullptr ? demuxer_->BytesRead() : 0;
    demuxer_.reset();
}

void GroupReader::Open() {
    next_.reset();
    Close();
    demuxer_ = std::make_unique<Demuxer>(index_->File(), index_->Stream(), Demuxer::Probe::Nothing, &stop_);
    expected_ = 0;
}

/// Takes the next packet that the index knows from the demuxer, unless one is waiting already.
bool GroupReader::Peek() {
    while (next_ == nullptr) {
        auto packet = Ffmpeg::NewPacket();
        if (!demuxer_->Next(*packet)) {
            expected_.reset();
            return false;
        }
        ++information_.nbPackets;
        information_.nbBytes += static_cast<std::uint64_t>(packet->size);
        if (const auto number = Identify(*packet)) {
            next_ = std::make_unique<Numbered>(Numbered{std::move(packet), *number});
            expected_ = *number + 1;
        }
    }
    return true;
}

/// Size and position tell most packets apart. A position may come more than once (edit lists repeat parts,
/// and some containers give none), which the stamps decide; but they alone are not enough, because those that
/// the demuxer makes up may differ after a seek.
bool GroupReader::Matches(const AVPacket& packet, std::size_t number) const {
    const auto& known = index_->Packet(number);
    return packet.size == known.size && packet.pos == known.position &&
           (packet.pos >= 0 || HasStampsOf(packet, number));
}

bool GroupReader::HasStampsOf(const AVPacket& packet, std::size_t number) const {
    const auto& known = index_->Packet(number);
    return Same(packet.dts, known.dts) || Same(packet.pts, known.pts);
}

std::optional<std::size_t> GroupReader::Identify(const AVPacket& packet) const {
    if (expected_ && *expected_ < index_->NbPackets() && Matches(packet, *expected_)) {
        return expected_;
    }
    const auto begin = std::partition_point(byPosition_.begin(), byPosition_.end(), [&](std::size_t number) {
        return index_->Packet(number).position < packet.pos;
    });
    std::optional<std::size_t> found;
    for (auto i = begin; i != byPosition_.end() && index_->Packet(*i).position == packet.pos; ++i) {
        if (Matches(packet, *i) && (!found || HasStampsOf(packet, *i))) {
            found = *i;
        }
    }
    return found;
}

/// Where a seek may be asked to go to for a packet, and how.
struct GroupReader::SeekTarget {
    SeekBy by;
    std::int64_t value;
    std::size_t entry;  ///< The packet that begins there.
};

std::vector<GroupReader::SeekTarget> GroupReader::SeekTargets(std::size_t packet) const {
    const auto at = index_->GroupAtPacket(packet);
    std::size_t group = at ? *at + 1 : 0;
    std::vector<SeekTarget> targets;
    const auto add = [&](std::size_t entry, SeekBy by, std::int64_t value, std::int64_t none) {
        if (value != none) {
            targets.push_back({by, value, entry});
        }
    };
    for (std::size_t i = 0; i <= kMaxEarlierGroups && group > 0; ++i) {
        const auto entry = index_->Group(--group).firstPacket;
        const auto& known = index_->Packet(entry);
        // A bare stream of pictures has no time stamps but those that the index made.
        if (demuxer_->SeeksByPosition() || known.dts == CodedPacket::kNone) {
            add(entry, SeekBy::Position, known.position, -1);
        }
        add(entry, SeekBy::Presentation, known.pts, CodedPacket::kNone);
        add(entry, SeekBy::Decoding, known.dts, CodedPacket::kNone);
        const auto times = targets.end() - std::min<std::ptrdiff_t>(2, std::ssize(targets));
        std::stable_partition(times, targets.end(),
                              [&](const SeekTarget& target) { return target.by == preferred_; });
    }
    return targets;
}

bool GroupReader::StandsShortlyBefore(std::size_t packet) const {
    const auto stands = next_ != nullptr ? std::optional(next_->number) : expected_;
    if (!stands || *stands > packet) {
        return false;
    }
    std::int64_t nbBytes = 0;
    for (auto between = *stands; between < packet && nbBytes <= kMaxPassedOver; ++between) {
        nbBytes += index_->Packet(between).size;
    }
    return nbBytes <= kMaxPassedOver;
}

void GroupReader::GoTo(std::size_t packet) {
    if (demuxer_ == nullptr) {
        Open();
    }
    if (StandsShortlyBefore(packet)) {
        return;
    }
    for (const auto& target : SeekTargets(packet)) {
        if (TrySeek(target, packet)) {
            return;
        }
    }
    ++information_.nbSeeks;
    Open();
}

/// Some containers find a key frame by its presentation stamp, others by its decoding stamp; asked for by the
/// other one they land too late, or a group too early, and are asked the other way from then on.
bool GroupReader::TrySeek(const SeekTarget& target, std::size_t packet) {
    ++information_.nbSeeks;
    next_.reset();
    expected_.reset();
    const bool found = target.by == SeekBy::Position ? demuxer_->SeekToPosition(target.value)
                                                     : demuxer_->SeekBackwardTo(target.value);
    const bool landed = found && Peek() && next_->number <= packet;
    if (target.by == preferred_ && !(landed && next_->number == target.entry)) {
        preferred_ = preferred_ == SeekBy::Decoding ? SeekBy::Presentation : SeekBy::Decoding;
    }
    return landed;
}

}  // namespace Tavrin::Playout
