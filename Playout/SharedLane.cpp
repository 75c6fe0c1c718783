#include "Playout/SharedLane.h"

#include <utility>

#include "Playout/PictureSize.h"

namespace Tavrin::Playout {

/// Measures and publishes what is done in a scope, however it ends.
class SharedLane::Measured {
public:
    Measured(SharedLane& lane, DecodeMeter& meter)
        : lane_(lane), meter_(meter), before_(NbPackets(lane.lane_.GetInformation())) {
        meter_.Begin(DecodeMeter::Clock::now());
    }
    ~Measured() {
        auto information = lane_.lane_.GetInformation();
        const auto nb = static_cast<std::size_t>(NbPackets(information) - before_);
        meter_.End(DecodeMeter::Clock::now(), nb * lane_.pictureBytes_);
        const std::scoped_lock lock(lane_.publishedMutex_);
        lane_.published_ = std::move(information);
    }
    Measured(const Measured&) = delete;
    Measured& operator=(const Measured&) = delete;

private:
    static std::uint64_t NbPackets(const DecodeLane::Information& information) {
        return information.nbPacketsDecoded + information.nbPacketsLeftOut;
    }

    SharedLane& lane_;
    DecodeMeter& meter_;
    std::uint64_t before_;
};

SharedLane::SharedLane(const std::shared_ptr<const RecordingIndex>& index, const DecodeLaneOptions& options,
                       const std::shared_ptr<PictureStore>& store, const std::shared_ptr<FramePool>& pool)
    : pictureBytes_(DecodedPictureBytes(*index)), lane_(index, options, store, pool) {
}

std::shared_ptr<const Picture> SharedLane::Decode(const PacketGroup& packets, std::size_t picture,
                                                  const DecodeManner& manner, DecodeMeter& meter,
                                                  const std::function<bool()>& isOutOfDate) {
    const std::scoped_lock lock(mutex_);
    // The play head may have been put elsewhere while the lane was waited for.
    if (isOutOfDate()) {
        return nullptr;
    }
    const Measured measured(*this, meter);
    return lane_.Decode(packets, picture, manner);
}

DecodeLane::Information SharedLane::GetInformation() const {
    const std::scoped_lock lock(publishedMutex_);
    return published_;
}

bool SharedLane::GoesOnTo(std::size_t group) const {
    const std::scoped_lock lock(publishedMutex_);
    // Sent elsewhere since, it begins anew.
    return published_.goesOnTo == group && group_ && *group_ + 1 == group;
}

void SharedLane::Enter(std::size_t group, std::uint64_t visit) {
    if (!IsIn(group)) {
        goneOnFrom_ = GoesOnTo(group) ? group_ : std::nullopt;
        group_ = group;
    }
    lastVisit_ = visit;
    ++nbVisitors_;
}

void SharedLane::Leave(std::size_t group) {
    --nbVisitors_;
    if (group_ == group) {
        goneOnFrom_.reset();
    }
}

}  // namespace Tavrin::Playout
