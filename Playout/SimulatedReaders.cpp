#include "Playout/SimulatedReaders.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <utility>

#include "Player/CacheUpdateQueue.h"
#include "Player/Output.h"
#include "Playout/CompressedSample.h"
#include "Playout/Ffmpeg.h"
#include "Playout/GroupReader.h"

namespace Tavrin::Playout {

namespace {

/// Zeros for all the packets of a recording to share.
std::shared_ptr<AVBufferRef> MakeContent(const RecordingIndex& index) {
    std::int32_t longest = 0;
    for (std::size_t packet = 0; packet < index.NbPackets(); ++packet) {
        longest = std::max(longest, index.Packet(packet).size);
    }
    const auto size = static_cast<std::size_t>(longest) + AV_INPUT_BUFFER_PADDING_SIZE;
    std::shared_ptr<AVBufferRef> content(av_buffer_allocz(size),
                                         [](AVBufferRef* buffer) { av_buffer_unref(&buffer); });
    if (content == nullptr) {
        throw std::bad_alloc();
    }
    return content;
}

PacketGroup::SharedPacket MakePacket(std::int32_t size, AVBufferRef& content) {
    auto packet = Ffmpeg::NewPacket();
    packet->buf = av_buffer_ref(&content);
    if (packet->buf == nullptr) {
        throw std::bad_alloc();
    }
    packet->data = packet->buf->data;
    packet->size = size;
    return PacketGroup::SharedPacket(packet.release(), Ffmpeg::Deleter());
}

}  // namespace

struct SimulatedReaders::Track {
    std::shared_ptr<const RecordingIndex> index;
    SimulatedRandom random;
    ReadCounters counts;
    std::uint64_t nbBytesRead = 0;
    std::shared_ptr<AVBufferRef> content;                  ///< Of every packet, as long as the longest.
    std::list<std::shared_ptr<const PacketGroup>> atHand;  ///< The one used last is the first.

    [[nodiscard]] std::optional<std::size_t> GroupOf(const Player::PreloadOrder& order) const {
        const auto picture = index->PictureAtTime(order.tp_);
        return picture ? std::optional(index->Picture(*picture).group) : std::nullopt;
    }

    /// Makes it the one used last.
    std::shared_ptr<const PacketGroup> Find(std::size_t group) {
        const auto found = std::find_if(atHand.begin(), atHand.end(),
                                        [&](const auto& kept) { return kept->Number() == group; });
        if (found == atHand.end()) {
            return nullptr;
        }
        atHand.splice(atHand.begin(), atHand, found);
        return *found;
    }

    void Keep(std::shared_ptr<const PacketGroup> group) {
        atHand.push_front(std::move(group));
        if (atHand.size() > GroupReader::kNbGroupsKept) {
            atHand.pop_back();
        }
    }
};

struct SimulatedReaders::Worker {
    /// Never started: it only says which order comes next.
    Player::PreloadThread orders;
    bool isReading = false;
    Time::TimePoint since;
};

SimulatedReaders::SimulatedReaders(EventQueue& events, SimulatedStorage& storage,
                                   Player::ExistingCacheUpdateQueues& registry, std::size_t nbWorkers,
                                   Answered answered)
    : events_(events),
      storage_(storage),
      registry_(registry),
      answered_(std::move(answered)),
      usage_(events.Now()) {
    for (std::size_t i = 0; i < std::max<std::size_t>(nbWorkers, 1); ++i) {
        workers_.push_back(std::make_unique<Worker>());
    }
}

SimulatedReaders::~SimulatedReaders() = default;

void SimulatedReaders::AddTrack(std::shared_ptr<const RecordingIndex> index, Player::PreloadOrderQueue& queue,
                                const SimulatedRandom& random) {
    workers_[tracks_.size() % workers_.size()]->orders.SetPreloadOrderQueue(&queue);
    auto content = MakeContent(*index);
    tracks_.push_back(
        std::make_unique<Track>(Track{std::move(index), random, {}, 0, std::move(content), {}}));
}

void SimulatedReaders::LookForOrders() {
    for (const auto& worker : workers_) {
        Serve(*worker);
    }
}

/// Until the worker has to read, or there is no order.
void SimulatedReaders::Serve(Worker& worker) {
    Player::PreloadOrder order;
    while (!worker.isReading && worker.orders.Dequeue(order)) {
        if (!AnswerAtOnce(order)) {
            BeginRead(worker, order);
        }
    }
}

bool SimulatedReaders::AnswerAtOnce(const Player::PreloadOrder& order) {
    Track& track = *tracks_.at(static_cast<std::size_t>(order.id_.Id()));
    const auto group = track.GroupOf(order);
    auto atHand = group ? track.Find(*group) : nullptr;
    if (group && atHand == nullptr) {
        return false;
    }
    track.counts.nbReused += group ? 1 : 0;
    Answer(order, std::move(atHand));
    return true;
}

void SimulatedReaders::BeginRead(Worker& worker, const Player::PreloadOrder& order) {
    Track& track = *tracks_[static_cast<std::size_t>(order.id_.Id())];
    worker.isReading = true;
    worker.since = events_.Now();
    ++track.counts.nbReads;
    usage_.SetUsers(usage_.Users() + 1, events_.Now());
    storage_.Read(track.index->Group(*track.GroupOf(order)).nbBytes, track.random,
                  [this, &worker, order](bool succeeded) { EndRead(worker, order, succeeded); });
}

void SimulatedReaders::EndRead(Worker& worker, const Player::PreloadOrder& order, bool succeeded) {
    Track& track = *tracks_[static_cast<std::size_t>(order.id_.Id())];
    std::shared_ptr<const PacketGroup> group;
    if (succeeded) {
        group = MakeGroup(track, *track.GroupOf(order));
        track.Keep(group);
        track.nbBytesRead += group->ByteSize();
    } else {
        ++track.counts.nbFailed;
    }
    track.counts.latency.Add(std::chrono::nanoseconds((events_.Now() - worker.since).Nanoseconds()));
    worker.isReading = false;
    usage_.SetUsers(usage_.Users() - 1, events_.Now());
    Answer(order, std::move(group));
    Serve(worker);
}

/// With nothing when there is no group.
void SimulatedReaders::Answer(const Player::PreloadOrder& order, std::shared_ptr<const PacketGroup> group) {
    const auto number = static_cast<std::size_t>(order.id_.Id());
    std::unique_ptr<Player::ISample> sample;
    if (group != nullptr) {
        const RecordingIndex& index = *tracks_[number]->index;
        const auto position = order.tp_.SampleNumber(index.Rate());
        const auto start = index.SampleStart(position);
        sample = std::make_unique<CompressedSample>(order.id_, std::move(group), *index.PictureAt(position),
                                                    start, index.SampleStart(position + 1) - start);
    }
    Player::Output output;
    output.sample_ = sample.get();
    output.tp_ = order.tp_;
    if (registry_.PushIfExists(order.queue_, output)) {
        // Whoever empties the queue owns it from here on.
        static_cast<void>(sample.release());
    }
    answered_(number);
}

std::shared_ptr<const PacketGroup> SimulatedReaders::MakeGroup(const Track& track, std::size_t number) {
    const PictureGroup& layout = track.index->Group(number);
    std::vector<PacketGroup::SharedPacket> packets;
    packets.reserve(layout.nbPackets);
    for (std::size_t packet = layout.firstPacket; packet < layout.EndPacket(); ++packet) {
        packets.push_back(MakePacket(track.index->Packet(packet).size, *track.content));
    }
    return std::make_shared<PacketGroup>(track.index, number, std::move(packets));
}

void SimulatedReaders::Fill(TrackCounters& counters, std::size_t track) const {
    const Track& from = *tracks_.at(track);
    counters.reads = from.counts;
    counters.bytes.read = from.nbBytesRead;
    for (const auto& group : from.atHand) {
        counters.bytes.compressed += group->ByteSize();
    }
}

void SimulatedReaders::RestartMeasuring() {
    usage_.Restart(events_.Now());
}

double SimulatedReaders::BusyPercent() {
    return usage_.Percent(workers_.size(), events_.Now());
}

}  // namespace Tavrin::Playout
