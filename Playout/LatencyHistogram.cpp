#include "Playout/LatencyHistogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace Tavrin::Playout {

using std::chrono::nanoseconds;

namespace {

/// A unit is 2 to this power in nanoseconds: finer than any read or decode that anybody waits for.
constexpr unsigned kUnitBits = 10;

/// Buckets to each doubling, and as a power of two.
constexpr unsigned kStepBits = 3;
constexpr std::size_t kSteps = std::size_t{1} << kStepBits;

constexpr std::uint64_t kMostUnits = (std::uint64_t{1} << 32U) - 1;

std::size_t BucketOf(nanoseconds latency) {
    const auto units = std::min(static_cast<std::uint64_t>(latency.count()) >> kUnitBits, kMostUnits);
    if (units < 2 * kSteps) {
        return units;
    }
    const auto doublings = static_cast<unsigned>(std::bit_width(units)) - 1 - kStepBits;
    return doublings * kSteps + (units >> doublings);
}

/// The last nanosecond of a bucket.
nanoseconds EndOf(std::size_t bucket) {
    const std::size_t doublings = bucket < 2 * kSteps ? 0 : bucket / kSteps - 1;
    const std::uint64_t units = (bucket - doublings * kSteps + 1) << doublings;
    return nanoseconds(static_cast<nanoseconds::rep>((units << kUnitBits) - 1));
}

}  // namespace

void LatencyHistogram::Add(nanoseconds latency) {
    const nanoseconds counted = std::max(latency, nanoseconds::zero());
    ++buckets_[BucketOf(counted)];
    ++count_;
    sum_ += counted;
    longest_ = std::max(longest_, counted);
}

void LatencyHistogram::Add(const LatencyHistogram& other) {
    std::transform(buckets_.begin(), buckets_.end(), other.buckets_.begin(), buckets_.begin(),
                   [](std::uint64_t ours, std::uint64_t theirs) { return ours + theirs; });
    count_ += other.count_;
    sum_ += other.sum_;
    longest_ = std::max(longest_, other.longest_);
}

nanoseconds LatencyHistogram::Percentile(double percent) const {
    constexpr double kWhole = 100;
    const auto wanted = static_cast<std::uint64_t>(std::ceil(percent * static_cast<double>(count_) / kWhole));
    const std::uint64_t rank = std::clamp<std::uint64_t>(wanted, 1, std::max<std::uint64_t>(count_, 1));
    std::uint64_t nb = 0;
    for (std::size_t bucket = 0; bucket + 1 < kNbBuckets; ++bucket) {
        nb += buckets_[bucket];
        if (nb >= rank) {
            return std::min(EndOf(bucket), longest_);
        }
    }
    return longest_;
}

}  // namespace Tavrin::Playout
