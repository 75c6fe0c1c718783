#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "Player/SampleRate.h"
#include "Player/Support/CacheModel.h"
#include "Player/Support/Moments.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

/// What a generator is to do, written down step by step, over the model of a cache: at every update a set of all the
/// numbers held, and a walk from the play head, number by number.
class PlannerModel {
public:
    void SetSampleRate(const SampleRate& rate) { sampleRate_ = rate; }
    void SetDisplayRate(const SampleRate& rate) { displayRate_ = rate; }
    void SetNumberPreloads(std::int64_t nb) { nb_ = nb; }
    void SetCache(const CacheModel* cache) { cache_ = cache; }

    void Update(const Time::TimePoint& tp, const Time::Ratio& speed) {
        tp_ = tp;
        speed_ = speed;
        timeSampling_ = SampleRate::TimeSamplingRate(sampleRate_, speed_, displayRate_);
        if (IsStill()) {
            upward_ = true;
        }
        if (cache_ == nullptr) {
            return;
        }
        hasRates_ = sampleRate_.Numerator() != 0 && (IsStill() || displayRate_.Numerator() != 0);
        if (!hasRates_) {
            return;
        }
        preloadRate_ = SampleRate::StreamPreloadRate(sampleRate_, timeSampling_);
        held_ = cache_->FindMultiples(preloadRate_);
        n_ = tp_.SampleNumber(preloadRate_);
        m_ = speed_.Positive() ? n_ + 1 : n_ - 1;
        nbSkipped_ = 0;
    }

    std::optional<Time::TimePoint> Get() {
        if (cache_ == nullptr || !hasRates_) {
            return std::nullopt;
        }
        if (IsStill()) {
            return GetStandingStill();
        }
        if (speed_.Positive()) {
            SkipUpward();
            return n_ + nb_ < m_ ? std::nullopt : Propose(preloadRate_, +1);
        }
        SkipDownward();
        return n_ - nb_ > m_ || m_ < 0 ? std::nullopt : Propose(preloadRate_, -1);
    }

    /// What `OutputInternalState` prints; without rates nothing is said about it.
    std::string StateText() const {
        std::ostringstream text;
        text << "playerTp " << tp_ << "\nstreamRate " << sampleRate_ << "\ndisplayRate " << displayRate_
             << "\nplayer speed " << speed_ << "\ntime sampling rate " << timeSampling_ << "\nnbToPreloads "
             << nb_ << "\nplayerTp sample number " << n_ << "\ncurrent mul. " << m_ << "\nmultipliers: ";
        for (const std::int64_t number : held_) {
            text << number << " (" << Time::TimePoint::StartOfSample(number, timeSampling_) << ") ";
        }
        text << "\n";
        return text.str();
    }

    bool IsStill() const { return speed_.Numerator() == 0; }
    const Time::Ratio& Speed() const { return speed_; }
    const CacheModel* Source() const { return cache_; }
    bool HasRates() const { return hasRates_; }
    const SampleRate& PreloadRate() const { return preloadRate_; }
    std::size_t NbHeld() const { return held_.size(); }
    std::int64_t NbToPreload() const { return nb_; }

    /// How many numbers of the walk since the last update were passed over because the cache held them.
    std::size_t NbSkipped() const { return nbSkipped_; }
    bool TurnedBack() const { return !upward_; }

private:
    std::optional<Time::TimePoint> GetStandingStill() {
        if (upward_) {
            SkipUpward();
            if (n_ + nb_ / 2 >= m_) {
                return Propose(timeSampling_, +1);
            }
            upward_ = false;
            m_ = n_ - 1;
        }
        SkipDownward();
        return n_ - nb_ / 2 > m_ || m_ < 0 ? std::nullopt : Propose(timeSampling_, -1);
    }

    /// Numbers below zero name no sample of a recording.
    void SkipUpward() {
        m_ = m_ < 0 ? 0 : m_;
        for (; held_.count(m_) != 0; ++m_) {
            ++nbSkipped_;
        }
    }

    void SkipDownward() {
        for (; m_ >= 0 && held_.count(m_) != 0; --m_) {
            ++nbSkipped_;
        }
    }

    std::optional<Time::TimePoint> Propose(const SampleRate& rate, std::int64_t step) {
        const Time::TimePoint tp = StartOf(m_, rate);
        m_ += step;
        return tp;
    }

    SampleRate sampleRate_;
    SampleRate displayRate_;
    std::int64_t nb_ = 5;
    const CacheModel* cache_ = nullptr;
    Time::TimePoint tp_;
    Time::Ratio speed_;
    bool hasRates_ = false;
    SampleRate timeSampling_;
    SampleRate preloadRate_;
    std::set<std::int64_t> held_;
    std::int64_t n_ = 0;
    std::int64_t m_ = 0;
    bool upward_ = true;
    std::size_t nbSkipped_ = 0;
};

}  // namespace Tavrin::Player::Testing
