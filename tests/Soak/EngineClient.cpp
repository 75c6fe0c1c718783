#include "Soak/EngineClient.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include "Soak/Failure.h"

namespace Tavrin::Soak {

using Clock = std::chrono::steady_clock;
using Player::Cache;
using Player::ISample;
using Player::SampleStatus;
using Player::Testing::Ledger;
using Player::Testing::SimulatedTrack;
using Time::TimePoint;

namespace {

std::string NameOf(const EngineClient::SimulatedStream& stream) {
    return "track " + std::to_string(stream.Settings().track_);
}

}  // namespace

void EngineClient::Add(const SimulatedTrack& settings) {
    SimulatedStream& stream = places_.emplace_back().emplace(settings, registry_);
    workers_.Attach(stream.PreloadOrders(), stream.DecodeOrders());
    stream.LinkPlayer(&head_);
    head_.AttachStream(&stream);
    live_.push_back({&stream});
    ++totals_.nbStreams_;
}

void EngineClient::Remove(std::size_t stream) {
    const Live live = live_.at(stream);
    live_.erase(live_.begin() + static_cast<std::ptrdiff_t>(stream));
    ReleaseOf(*live.stream_);
    head_.DetachStream(live.stream_);
    workers_.Detach(live.stream_->PreloadOrders(), live.stream_->DecodeOrders());
    totals_.nbGivenUp_ += live.nbOut_;
    const auto place = std::find_if(places_.begin(), places_.end(), [&](const auto& candidate) {
        return candidate.has_value() && &*candidate == live.stream_;
    });
    place->reset();
}

void EngineClient::Clear() {
    while (!live_.empty()) {
        Remove(live_.size() - 1);
    }
}

void EngineClient::ToggleAttached(std::size_t stream) {
    Live& live = live_.at(stream);
    live.isAttached_ = !live.isAttached_;
    if (live.isAttached_) {
        live.stream_->LinkPlayer(&head_);
        head_.AttachStream(live.stream_);
    } else {
        head_.DetachStream(live.stream_);
        live.stream_->UnlinkPlayer();
    }
}

void EngineClient::Requeue(std::size_t stream) {
    SimulatedStream& moved = *live_.at(stream).stream_;
    workers_.Detach(moved.PreloadOrders(), moved.DecodeOrders());
    workers_.Attach(moved.PreloadOrders(), moved.DecodeOrders());
}

void EngineClient::Resize(std::size_t stream, std::size_t nbDecoded, std::size_t nbCompressed) {
    SimulatedStream& resized = *live_.at(stream).stream_;
    auto parameters = resized.GetStreamParameters();
    parameters.nbDecoding_ = nbDecoded;
    parameters.nbPreloading_ = nbCompressed;
    resized.SetStreamParameters(parameters);
}

void EngineClient::Tick(const TimePoint& delta) {
    const TimePoint before = head_.GetCurrentTimePoint();
    const TimePoint due = std::max(before + delta * head_.GetSpeed(), TimePoint());
    head_.Update(delta);
    const TimePoint after = head_.GetCurrentTimePoint();
    if (after != before && after != due) {
        throw Failure("the play head went from " + before.ToString() + " to " + after.ToString() +
                      " instead of " + due.ToString());
    }
    ++totals_.nbTicks_;
    ++nbTicks_;
    ReleaseDue();
    for (const Live& live : live_) {
        if (live.isAttached_) {
            CheckShown(*live.stream_);
        }
    }
}

void EngineClient::CheckShown(SimulatedStream& stream) const {
    ISample* sample = nullptr;
    const SampleStatus status = stream.GetCurrentSample(&sample);
    if (status != SampleStatus::New && status != SampleStatus::Same) {
        return;
    }
    const auto rate = stream.NeededRate();
    const TimePoint head = head_.GetCurrentTimePoint();
    if (sample->GetTimePoint().SampleNumber(rate) != head.SampleNumber(rate)) {
        throw Failure(NameOf(stream) + " shows the sample of " + sample->GetTimePoint().ToString() + " at " +
                      head.ToString());
    }
}

void EngineClient::Hold(std::size_t stream, std::uint64_t nbTicks) {
    const Live& live = live_.at(stream);
    ISample* sample = nullptr;
    if (live.isAttached_) {
        live.stream_->GetCurrentSample(&sample);
    }
    if (sample != nullptr) {
        sample->Protect(1);
        held_.push_back({live.stream_, sample, sample->GetTimePoint(), nbTicks_ + nbTicks});
    }
}

void EngineClient::Release(const Held& held) const {
    if (held.sample_->GetTimePoint() != held.tp_) {
        throw Failure(NameOf(*held.stream_) + " has dropped the protected sample of " + held.tp_.ToString());
    }
    held.sample_->Unprotect(1);
}

void EngineClient::ReleaseDue() {
    for (const Held& held : held_) {
        if (held.until_ <= nbTicks_) {
            Release(held);
        }
    }
    std::erase_if(held_, [this](const Held& held) { return held.until_ <= nbTicks_; });
}

void EngineClient::ReleaseAll() {
    for (const Held& held : held_) {
        Release(held);
    }
    held_.clear();
}

/// The way out, also after a failure: nothing is checked.
void EngineClient::ReleaseOf(const SimulatedStream& stream) {
    for (const Held& held : held_) {
        if (held.stream_ == &stream) {
            held.sample_->Unprotect(1);
        }
    }
    std::erase_if(held_, [&](const Held& held) { return held.stream_ == &stream; });
}

void EngineClient::Intake(Live& live) {
    std::uint64_t nbFiled = 0;
    try {
        nbFiled = live.stream_->Intake();
    } catch (const std::runtime_error& e) {
        throw Failure("a request of " + NameOf(*live.stream_) + " was answered twice: " + e.what());
    }
    totals_.nbAnswers_ += nbFiled;
    Require(nbFiled <= live.nbOut_, "more answers than requests for " + NameOf(*live.stream_));
    live.nbOut_ -= nbFiled;
}

void EngineClient::Drive(Live& live) {
    Intake(live);
    if (live.isAttached_) {
        const std::size_t nbOrdered = live.stream_->Plan();
        live.nbOut_ += nbOrdered;
        totals_.nbRequests_ += nbOrdered;
    }
}

bool EngineClient::Drive() {
    bool isBusy = false;
    for (Live& live : live_) {
        Drive(live);
        isBusy = isBusy || live.nbOut_ > 0;
    }
    return isBusy;
}

void EngineClient::DriveFor(std::chrono::milliseconds span) {
    const auto end = Clock::now() + span;
    while (Drive() && Clock::now() < end) {
        std::this_thread::yield();
    }
}

void EngineClient::Settle() {
    const auto end = Clock::now() + bound_;
    while (Drive()) {
        if (Clock::now() > end) {
            const auto waiting =
                std::find_if(live_.begin(), live_.end(), [](const Live& live) { return live.nbOut_ > 0; });
            throw Failure(std::to_string(waiting->nbOut_) + " requests of " + NameOf(*waiting->stream_) +
                          " were never answered: waited for " + std::to_string(bound_.count()) + " ms");
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

void EngineClient::CheckQuiet(const Ledger& ledger) {
    std::size_t nbPlaced = 0;
    for (Live& live : live_) {
        SimulatedStream& stream = *live.stream_;
        Intake(live);
        RequireEqual<std::uint64_t>(live.nbOut_, 0, "requests without an answer, " + NameOf(stream));
        RequireEqual<std::size_t>(stream.PreloadOrders().GetSize() + stream.DecodeOrders().GetSize(), 0,
                                  "orders left in the queues of " + NameOf(stream));
        for (Cache* cache : {&stream.Compressed(), &stream.Decoded()}) {
            const Cache::Information information = cache->GetInformation();
            RequireEqual<std::int64_t>(information.nbPendingSamples_, 0,
                                       "entries left pending, " + NameOf(stream));
            nbPlaced += static_cast<std::size_t>(information.nbValidSamples_);
        }
    }
    // The queues are empty, so the caches have all; what the client holds is among it.
    RequireEqual(ledger.NbLive(), nbPlaced, "live samples");
    RequireEqual(NbProtected(), static_cast<std::int64_t>(NbHeld()), "protected samples");
    ReleaseAll();
    RequireEqual<std::int64_t>(NbProtected(), 0, "samples protected that nobody holds");
}

std::size_t EngineClient::NbHeld() const {
    std::set<const ISample*> samples;
    for (const Held& held : held_) {
        samples.insert(held.sample_);
    }
    return samples.size();
}

std::int64_t EngineClient::NbProtected() const {
    std::int64_t nb = 0;
    for (const Live& live : live_) {
        nb += live.stream_->Compressed().GetInformation().nbProtectedSamples_ +
              live.stream_->Decoded().GetInformation().nbProtectedSamples_;
    }
    return nb;
}

}  // namespace Tavrin::Soak
