#include "Playout/CellState.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace Tavrin::Playout {

using Player::Cache;
using Player::ISample;
using Player::SampleRate;
using Time::TimePoint;

namespace {

/// The cells, numbered as the samples of a rate at which there are so many of them in the range.
class Cells {
public:
    explicit Cells(const CellRange& range)
        : from_(range.from),
          rate_(static_cast<std::int64_t>(range.nbCells) * TimePoint().FromSeconds(1).Nanoseconds(),
                (range.to - range.from).Nanoseconds()),
          states_(range.nbCells, CellState::Absent) {}

    /// What says more stays.
    void Mark(const TimePoint& begin, const TimePoint& end, CellState state) {
        const auto nb = static_cast<std::int64_t>(states_.size());
        const std::int64_t first = std::max<std::int64_t>(CellAt(begin), 0);
        const std::int64_t last = std::min(CellAt(end - TimePoint().FromNanoseconds(1)), nb - 1);
        for (std::int64_t cell = first; cell <= last; ++cell) {
            auto& marked = states_[static_cast<std::size_t>(cell)];
            marked = std::max(marked, state);
        }
    }

    std::vector<CellState> Take() { return std::move(states_); }

private:
    std::int64_t CellAt(const TimePoint& tp) const { return (tp - from_).SampleNumber(rate_); }

    TimePoint from_;
    SampleRate rate_;
    std::vector<CellState> states_;
};

CellState DecodedState(ISample& sample) {
    return sample.GetProtectionCounter() > 0 ? CellState::Protected : CellState::Ready;
}

CellState StateAt(const CacheView& caches, const TimePoint& tp) {
    ISample* sample = nullptr;
    switch (caches.decoded.GetSample(tp, caches.rate, &sample, false)) {
        case Cache::Valid:
            return DecodedState(*sample);
        case Cache::Missing:
            return CellState::Missing;
        case Cache::Pending:
            return CellState::AskedFor;
        case Cache::Not_Found:
            break;
    }
    switch (caches.compressed.GetSample(tp, caches.rate, &sample, false)) {
        case Cache::Valid:
        case Cache::Pending:
            return CellState::AskedFor;
        case Cache::Missing:
            return CellState::Missing;
        case Cache::Not_Found:
            break;
    }
    return CellState::Absent;
}

/// An entry of the rate that is fetched stands for all the samples up to the next one.
TimePoint EndOf(const CacheView& caches, const TimePoint& tp) {
    const SampleRate& rate = tp.AlignWith(caches.fetched) == tp ? caches.fetched : caches.rate;
    return TimePoint::StartOfSample(tp.SampleNumber(rate) + 1, rate);
}

}  // namespace

std::vector<CellState> CellStatesOf(const CacheView& caches, const CellRange& range) {
    if (range.to <= range.from || range.nbCells == 0) {
        throw std::invalid_argument("no cells lie in a stretch from " + range.from.ToDurationString() +
                                    " to " + range.to.ToDurationString() + " cut into " +
                                    std::to_string(range.nbCells));
    }
    Cells cells(range);
    std::set<std::int64_t> samples = caches.decoded.FindMultiples(caches.rate);
    samples.merge(caches.compressed.FindMultiples(caches.rate));
    for (const std::int64_t sample : samples) {
        const TimePoint tp = TimePoint::StartOfSample(sample, caches.rate);
        cells.Mark(tp, EndOf(caches, tp), StateAt(caches, tp));
    }
    ISample* nearest = nullptr;
    caches.decoded.GetSample(caches.now, caches.rate, &nearest, true);
    return cells.Take();
}

}  // namespace Tavrin::Playout
