#include "Player/SampleRuns.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>

namespace Tavrin::Player {

namespace {

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

constexpr std::size_t kNbRunsKept = 64;
constexpr std::size_t kFarMore = 4;

bool EndsBefore(const SampleRuns::Run& run, std::int64_t number) {
    return run.last_ < number;
}

}  // namespace

SampleRuns& SampleRuns::operator=(const SampleRuns& other) {
    runs_ = other.runs_;
    GiveBack();
    return *this;
}

void SampleRuns::Clear() {
    runs_.clear();
    GiveBack();
}

/// Gives memory back when far more is held than needed, and keeps twice what is needed, so that a set that goes
/// up and down a little does not come here each time.
void SampleRuns::GiveBack() noexcept {
    if (runs_.capacity() <= std::max(kNbRunsKept, kFarMore * runs_.size())) {
        return;
    }
    try {
        std::vector<Run> smaller;
        smaller.reserve(std::max(kNbRunsKept, 2 * runs_.size()));
        smaller.assign(runs_.begin(), runs_.end());
        runs_.swap(smaller);
    } catch (const std::bad_alloc&) {
        return;  // what is held stays held: the next change tries again
    }
}

std::vector<SampleRuns::Run>::iterator SampleRuns::FirstRunEndingFrom(std::int64_t number) {
    return std::lower_bound(runs_.begin(), runs_.end(), number, EndsBefore);
}

std::vector<SampleRuns::Run>::const_iterator SampleRuns::FirstRunEndingFrom(std::int64_t number) const {
    return std::lower_bound(runs_.begin(), runs_.end(), number, EndsBefore);
}

bool SampleRuns::Contains(std::int64_t number) const {
    const auto run = FirstRunEndingFrom(number);
    return run != runs_.end() && run->first_ <= number;
}

std::int64_t SampleRuns::FirstAbsentFrom(std::int64_t number) const {
    const auto run = FirstRunEndingFrom(number);
    if (run == runs_.end() || run->first_ > number) {
        return number;
    }
    return run->last_ == kHighest ? kHighest : run->last_ + 1;
}

std::int64_t SampleRuns::LastAbsentUpTo(std::int64_t number) const {
    const auto run = FirstRunEndingFrom(number);
    if (run == runs_.end() || run->first_ > number) {
        return number;
    }
    return run->first_ == kLowest ? kLowest : run->first_ - 1;
}

void SampleRuns::Insert(std::int64_t number) {
    const auto above = FirstRunEndingFrom(number);
    if (above != runs_.end() && above->first_ <= number) {
        return;
    }
    // `number` lies in the gap below `above`; the differences cannot overflow, as it is no end of a run.
    const bool extendsAbove = above != runs_.end() && above->first_ - 1 == number;
    const bool extendsBelow = above != runs_.begin() && std::prev(above)->last_ + 1 == number;
    if (extendsAbove && extendsBelow) {
        std::prev(above)->last_ = above->last_;
        runs_.erase(above);
        GiveBack();
    } else if (extendsAbove) {
        above->first_ = number;
    } else if (extendsBelow) {
        std::prev(above)->last_ = number;
    } else {
        runs_.insert(above, Run{number, number});
    }
}

void SampleRuns::Erase(std::int64_t number) {
    const auto run = FirstRunEndingFrom(number);
    if (run == runs_.end() || run->first_ > number) {
        return;
    }
    if (run->first_ == run->last_) {
        runs_.erase(run);
        GiveBack();
    } else if (run->first_ == number) {
        ++run->first_;
    } else if (run->last_ == number) {
        --run->last_;
    } else {
        const Run below{run->first_, number - 1};
        // The part above is left in place once there is room for the part below.
        const auto inserted = runs_.insert(run, below);
        std::next(inserted)->first_ = number + 1;
    }
}

}  // namespace Tavrin::Player
