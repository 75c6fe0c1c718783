#include "Player/SampleRuns.h"

#include <algorithm>
#include <limits>

namespace Tavrin::Player {

namespace {

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t kNbRunsKept = 64;

}  // namespace

SampleRuns& SampleRuns::operator=(const SampleRuns& other) {
    runs_ = other.runs_;
    GiveBack();
    return *this;
}

void SampleRuns::GiveBack() noexcept {
    runs_.GiveBack(kNbRunsKept);
}

/// The number of runs when there is none.
std::size_t SampleRuns::FirstRunEndingFrom(std::int64_t number) const {
    const auto endsBefore = [](const Run& run, std::int64_t value) { return run.last_ < value; };
    const Run* const found = std::lower_bound(runs_.begin(), runs_.end(), number, endsBefore);
    return static_cast<std::size_t>(found - runs_.begin());
}

bool SampleRuns::Contains(std::int64_t number) const {
    const std::size_t run = FirstRunEndingFrom(number);
    return run < runs_.size() && runs_[run].first_ <= number;
}

std::int64_t SampleRuns::FirstAbsentFrom(std::int64_t number) const {
    const std::size_t run = FirstRunEndingFrom(number);
    if (run == runs_.size() || runs_[run].first_ > number) {
        return number;
    }
    return runs_[run].last_ == kHighest ? kHighest : runs_[run].last_ + 1;
}

std::int64_t SampleRuns::LastAbsentUpTo(std::int64_t number) const {
    const std::size_t run = FirstRunEndingFrom(number);
    if (run == runs_.size() || runs_[run].first_ > number) {
        return number;
    }
    return runs_[run].first_ == kLowest ? kLowest : runs_[run].first_ - 1;
}

void SampleRuns::Insert(std::int64_t number) {
    const std::size_t above = FirstRunEndingFrom(number);
    if (above < runs_.size() && runs_[above].first_ <= number) {
        return;
    }
    // `number` lies in the gap below `above`; the differences cannot overflow, as it is no end of a run.
    const bool extendsAbove = above < runs_.size() && runs_[above].first_ - 1 == number;
    const bool extendsBelow = above > 0 && runs_[above - 1].last_ + 1 == number;
    if (extendsAbove && extendsBelow) {
        runs_[above - 1].last_ = runs_[above].last_;
        runs_.Erase(above);
        GiveBack();
    } else if (extendsAbove) {
        runs_[above].first_ = number;
    } else if (extendsBelow) {
        runs_[above - 1].last_ = number;
    } else {
        runs_.Insert(above, Run{number, number});
    }
}

void SampleRuns::Erase(std::int64_t first, std::int64_t last) {
    std::size_t from = FirstRunEndingFrom(first);
    if (from == runs_.size() || first > last) {
        return;
    }
    if (runs_[from].first_ < first && last < runs_[from].last_) {
        // The part below stays where it is once there is room for the part above.
        runs_.Insert(from + 1, Run{last + 1, runs_[from].last_});
        runs_[from].last_ = first - 1;
        return;
    }
    if (runs_[from].first_ < first) {
        runs_[from].last_ = first - 1;
        ++from;
    }
    std::size_t to = from;
    while (to < runs_.size() && runs_[to].last_ <= last) {
        ++to;
    }
    if (to < runs_.size() && runs_[to].first_ <= last) {
        runs_[to].first_ = last + 1;
    }
    runs_.Erase(from, to);
    GiveBack();
}

}  // namespace Tavrin::Player
