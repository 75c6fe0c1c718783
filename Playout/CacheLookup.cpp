#include "Playout/CacheLookup.h"

#include <cstdint>

namespace Tavrin::Playout {

Player::Cache::EntryType EntryAt(Player::Cache& cache, const Time::TimePoint& tp,
                                 const Player::SampleRate& rate) {
    Player::ISample* sample = nullptr;
    return cache.GetSample(tp, rate, &sample, false);
}

bool UseAnother(Player::Cache& cache, const Player::SampleRate& rate, const Time::TimePoint& than) {
    for (const std::int64_t number : cache.FindMultiples(rate)) {
        const auto tp = Time::TimePoint::StartOfSample(number, rate);
        if (tp != than && EntryAt(cache, tp, rate) == Player::Cache::Valid) {
            return true;
        }
    }
    return false;
}

}  // namespace Tavrin::Playout
