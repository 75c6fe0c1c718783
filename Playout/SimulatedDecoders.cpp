#include "Playout/SimulatedDecoders.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "Player/DecodeThread.h"
#include "Player/ISampleDecoder.h"
#include "Playout/CompressedSample.h"
#include "Playout/CrewPlan.h"
#include "Playout/DecodedSample.h"
#include "Playout/Ffmpeg.h"
#include "Playout/Picture.h"
#include "Playout/SampleTally.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace Tavrin::Playout {

using Time::TimePoint;

namespace {

/// One picture's memory for all of a track's pictures to share: nobody looks at them.
Ffmpeg::FramePointer MakeFrame(const RecordingIndex& index) {
    const RecordingDescription& description = index.Description();
    auto frame = Ffmpeg::NewFrame();
    frame->format = av_get_pix_fmt(description.pixelFormat.c_str());
    frame->width = description.width;
    frame->height = description.height;
    if (frame->format == AV_PIX_FMT_NONE) {
        throw std::invalid_argument("\"" + index.File() + "\": a recording whose pixel format is unknown " +
                                    "cannot be simulated, as the bytes of its pictures are unknown too");
    }
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    return frame;
}

/// Hands out what has been decoded, as the end of an order that went through the registry.
class HandOut final : public Player::ISampleDecoder {
public:
    HandOut(const std::shared_ptr<const Picture>& picture, const std::shared_ptr<SampleTally>& tally)
        : picture_(picture), tally_(tally) {}

    Player::ISample* Decode(const Player::DecodeOrder& order) override {
        TimePoint tp;
        TimePoint duration;
        order.GenerateTimePointAndDuration(tp, duration);
        return new DecodedSample(picture_, tp, duration, PictureField::Frame, tally_);
    }

private:
    const std::shared_ptr<const Picture>& picture_;
    const std::shared_ptr<SampleTally>& tally_;
};

}  // namespace

struct SimulatedDecoders::Lane {
    std::optional<std::size_t> chosenFor;  ///< The group of the latest order that was sent here.
    std::uint64_t lastVisit = 0;
    bool isUsed = false;
    std::deque<Worker*> waiting;
    // Where the decoder stands.
    std::optional<std::size_t> group;
    std::size_t nbTakenIn = 0;      ///< Packets of the pass.
    std::size_t nbPutOut = 0;       ///< Pictures of the pass.
    std::set<std::size_t> leftOut;  ///< Pictures of the pass that nobody wanted.

    [[nodiscard]] bool HasVisitors() const { return isUsed || !waiting.empty(); }
};

struct SimulatedDecoders::Track {
    Track(std::size_t trackNumber, std::shared_ptr<const RecordingIndex> recording,
          const TrackOptions& trackOptions, const SimulatedRandom& trackRandom)
        : number(trackNumber),
          index(std::move(recording)),
          options(trackOptions),
          random(trackRandom),
          store(trackOptions.storeBytes),
          lanes(std::max<std::size_t>(trackOptions.nbLanes, 1)),
          frame(MakeFrame(*index)) {
        options.nbThreads = std::max<std::size_t>(options.nbThreads, 1);
    }

    std::size_t number;
    std::shared_ptr<const RecordingIndex> index;
    TrackOptions options;
    SimulatedRandom random;
    PictureStore store;
    std::vector<Lane> lanes;
    std::uint64_t nbVisits = 0;
    Ffmpeg::FramePointer frame;
    std::shared_ptr<SampleTally> tally = std::make_shared<SampleTally>();
    DecodeCounters counts;

    /// As MediaDecoder does it.
    Lane& Choose(std::size_t group) {
        const auto rank = [&](const Lane& lane) {
            return std::tuple(lane.chosenFor != group, lane.HasVisitors(), lane.lastVisit);
        };
        Lane& lane = *std::min_element(lanes.begin(), lanes.end(), [&](const Lane& left, const Lane& right) {
            return rank(left) < rank(right);
        });
        lane.chosenFor = group;
        lane.lastVisit = ++nbVisits;
        return lane;
    }

    /// Packets taken in before the first picture comes out.
    [[nodiscard]] std::size_t Delay() const {
        return static_cast<std::size_t>(index->ReorderDepth()) + options.nbThreads - 1;
    }
};

struct SimulatedDecoders::Worker {
    std::size_t crew = 0;
    /// Never started: it only says which order comes next.
    Player::DecodeThread orders;
    std::optional<Player::DecodeOrder> order;  ///< Being carried out.
    TimePoint since;
    Track* track = nullptr;
    Lane* lane = nullptr;
    std::size_t group = 0;
    std::size_t wanted = 0;
    std::shared_ptr<const Picture> found;
};

SimulatedDecoders::SimulatedDecoders(EventQueue& events, const DecoderModel& model, std::size_t nbTracks,
                                     Player::ExistingCacheUpdateQueues& registry, Answered answered)
    : events_(events),
      model_(model),
      registry_(registry),
      answered_(std::move(answered)),
      cores_(events.Now()),
      busyWorkers_(events.Now()),
      waitingWorkers_(events.Now()) {
    model_.nbCores = std::max<std::size_t>(model_.nbCores, 1);
    for (std::size_t i = 0; i < std::max<std::size_t>(model_.nbWorkers, 1); ++i) {
        workers_.push_back(std::make_unique<Worker>());
    }
    mayHaveOrders_.resize(NbDecodeCrews(workers_.size(), nbTracks, model_.nbCores), false);
    for (std::size_t i = 0; i < workers_.size(); ++i) {
        workers_[i]->crew = i % mayHaveOrders_.size();
    }
}

SimulatedDecoders::~SimulatedDecoders() = default;

void SimulatedDecoders::AddTrack(std::shared_ptr<const RecordingIndex> index, Player::DecodeOrderQueue& queue,
                                 const TrackOptions& options, const SimulatedRandom& random) {
    tracks_.push_back(std::make_unique<Track>(tracks_.size(), std::move(index), options, random));
    const std::size_t nbCrews = mayHaveOrders_.size();
    for (std::size_t worker = (tracks_.size() - 1) % nbCrews; worker < workers_.size(); worker += nbCrews) {
        workers_[worker]->orders.AddDecodeOrderQueue(&queue);
    }
}

void SimulatedDecoders::SetPlace(std::size_t track, const PlayPlace& place) {
    tracks_.at(track)->store.SetPlace(place);
}

void SimulatedDecoders::Fill(TrackCounters& counters, std::size_t track) const {
    const Track& from = *tracks_.at(track);
    const SampleTally::Information samples = from.tally->GetInformation();
    counters.decodes = from.counts;
    counters.fetches.nbFetched = samples.nbMade;
    counters.fetches.nbEvicted = samples.nbGone;
    counters.fetches.nbEvictedUnseen = samples.nbGoneUnseen;
    counters.bytes.decoded = samples.bytes;
    counters.bytes.store = from.store.Bytes();
}

void SimulatedDecoders::LookForOrders() {
    mayHaveOrders_.assign(mayHaveOrders_.size(), true);
    for (const auto& worker : workers_) {
        Serve(*worker);
    }
}

/// Until the worker has to decode or to wait, or there is no order.
void SimulatedDecoders::Serve(Worker& worker) {
    Player::DecodeOrder order;
    while (!worker.order && mayHaveOrders_[worker.crew]) {
        // Every worker of a crew serves the same queues: what one of them does not find, none does.
        if (!worker.orders.Dequeue(order)) {
            mayHaveOrders_[worker.crew] = false;
            return;
        }
        worker.order = order;
        busyWorkers_.SetUsers(busyWorkers_.Users() + 1, events_.Now());
        worker.since = events_.Now();
        Begin(worker);
    }
}

void SimulatedDecoders::Begin(Worker& worker) {
    const auto& sample = static_cast<const CompressedSample&>(*worker.order->toDecode_);
    worker.track = tracks_.at(static_cast<std::size_t>(sample.Track().Id())).get();
    worker.group = sample.Group()->Number();
    worker.wanted = sample.PictureNumber();
    worker.found = worker.track->store.Find(worker.wanted);
    if (worker.found != nullptr) {
        ++worker.track->counts.nbFromStore;
        Answer(worker);
        return;
    }
    worker.lane = &worker.track->Choose(worker.group);
    if (worker.lane->isUsed) {
        worker.lane->waiting.push_back(&worker);
        waitingWorkers_.SetUsers(waitingWorkers_.Users() + 1, events_.Now());
    } else {
        Enter(worker);
    }
}

/// The lane is the worker's now.
void SimulatedDecoders::Enter(Worker& worker) {
    Lane& lane = *worker.lane;
    lane.isUsed = true;
    worker.found = worker.track->store.Find(worker.wanted);
    if (worker.found != nullptr) {
        ++worker.track->counts.nbFromStore;
        Leave(worker);
        return;
    }
    const std::size_t place = worker.wanted - worker.track->index->Group(worker.group).firstPicture;
    if (lane.group != worker.group || place < lane.nbPutOut || lane.leftOut.count(worker.wanted) > 0) {
        lane.group = worker.group;
        lane.nbTakenIn = 0;
        lane.nbPutOut = 0;
        lane.leftOut.clear();
        ++worker.track->counts.nbPasses;
    }
    nbThreads_ += worker.track->options.nbThreads;
    CountCores();
    DecodePacket(worker);
}

void SimulatedDecoders::DecodePacket(Worker& worker) {
    const std::size_t nbPackets = worker.track->index->Group(worker.group).nbPictures;
    LeaveOut(worker);
    if (worker.lane->nbTakenIn == nbPackets) {
        // Only what the decoder holds back is still to come.
        EndPacket(worker);
        return;
    }
    const auto nbThreads = static_cast<std::int64_t>(worker.track->options.nbThreads);
    const auto nbAll = static_cast<std::int64_t>(std::max(nbThreads_, model_.nbCores));
    const auto nbCores = static_cast<std::int64_t>(model_.nbCores);
    const TimePoint alone = model_.perPicture.Draw(worker.track->random);
    ++worker.lane->nbTakenIn;
    ++worker.track->counts.nbPackets;
    events_.After(alone * Time::Ratio(nbAll, nbThreads * nbCores), [this, &worker] { EndPacket(worker); });
}

/// Passes over pictures from which none is predicted and which the store does not want.
void SimulatedDecoders::LeaveOut(Worker& worker) {
    Lane& lane = *worker.lane;
    const RecordingIndex& index = *worker.track->index;
    const PictureGroup& group = index.Group(worker.group);
    for (; lane.nbTakenIn < group.nbPictures; ++lane.nbTakenIn) {
        const std::size_t picture = group.firstPicture + lane.nbTakenIn;
        const bool isNeeded = !index.Packet(index.Picture(picture).packet).disposable;
        if (isNeeded || picture == worker.wanted || worker.track->store.Wants(picture)) {
            return;
        }
        lane.leftOut.insert(picture);
        ++worker.track->counts.nbPacketsLeftOut;
    }
}

/// Files what comes out after a packet, and goes on to the picture that is wanted.
void SimulatedDecoders::EndPacket(Worker& worker) {
    Lane& lane = *worker.lane;
    const PictureGroup& group = worker.track->index->Group(worker.group);
    const bool isAll = lane.nbTakenIn == group.nbPictures;
    const std::size_t nbOut =
        isAll ? group.nbPictures : lane.nbTakenIn - std::min(lane.nbTakenIn, worker.track->Delay());
    while (lane.nbPutOut < nbOut && worker.found == nullptr) {
        PutOut(worker, group.firstPicture + lane.nbPutOut++);
    }
    if (worker.found == nullptr) {
        DecodePacket(worker);
        return;
    }
    nbThreads_ -= worker.track->options.nbThreads;
    CountCores();
    const TimePoint taken = events_.Now() - worker.since;
    worker.track->counts.latency.Add(std::chrono::nanoseconds(taken.Nanoseconds()));
    Leave(worker);
}

void SimulatedDecoders::PutOut(Worker& worker, std::size_t picture) {
    if (worker.lane->leftOut.count(picture) > 0) {
        return;
    }
    auto made = std::make_shared<Picture>(picture, *worker.track->frame, false);
    worker.track->store.Add(made, worker.wanted);
    if (picture == worker.wanted) {
        worker.found = std::move(made);
    }
}

/// Hands the picture out, and the lane to who waits for it.
void SimulatedDecoders::Leave(Worker& worker) {
    Lane& lane = *worker.lane;
    worker.lane = nullptr;
    lane.isUsed = false;
    if (!lane.waiting.empty()) {
        Worker* next = lane.waiting.front();
        lane.waiting.pop_front();
        waitingWorkers_.SetUsers(waitingWorkers_.Users() - 1, events_.Now());
        Enter(*next);
    }
    Answer(worker);
    // Not at once: one that waited may be served from within another one's turn.
    events_.At(events_.Now(), [this, &worker] { Serve(worker); });
}

void SimulatedDecoders::Answer(Worker& worker) {
    HandOut handOut(worker.found, worker.track->tally);
    registry_.DecodeIfExists(worker.order->queue_, &handOut, *worker.order);
    worker.order.reset();
    busyWorkers_.SetUsers(busyWorkers_.Users() - 1, events_.Now());
    worker.found.reset();
    answered_(worker.track->number);
}

void SimulatedDecoders::CountCores() {
    cores_.SetUsers(std::min(nbThreads_, model_.nbCores), events_.Now());
}

void SimulatedDecoders::RestartMeasuring() {
    cores_.Restart(events_.Now());
    busyWorkers_.Restart(events_.Now());
    waitingWorkers_.Restart(events_.Now());
}

double SimulatedDecoders::CoresBusyPercent() {
    return cores_.Percent(model_.nbCores, events_.Now());
}

double SimulatedDecoders::WorkersBusyPercent() {
    return busyWorkers_.Percent(workers_.size(), events_.Now());
}

double SimulatedDecoders::WorkersWaitingPercent() {
    return waitingWorkers_.Percent(workers_.size(), events_.Now());
}

}  // namespace Tavrin::Playout
