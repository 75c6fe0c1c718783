#include "Tools/LoopRecordingVector.h"

#include <algorithm>

namespace Tavrin::Tools {

void LoopRecordingVector::Resize(std::size_t size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto middle = records_.begin() + static_cast<std::ptrdiff_t>(oldest_);
    std::rotate(records_.begin(), middle, records_.end());
    oldest_ = 0;
    if (records_.size() > size) {
        records_.erase(records_.begin(), records_.end() - static_cast<std::ptrdiff_t>(size));
    }
    records_.reserve(size);
    capacity_ = size;
}

void LoopRecordingVector::Push(std::int64_t value) {
    Push(value, std::chrono::steady_clock::now());
}

void LoopRecordingVector::Push(std::int64_t value, std::chrono::steady_clock::time_point now) {
    const Record record{value, now};
    const std::lock_guard<std::mutex> lock(mutex_);
    if (records_.size() < capacity_) {
        records_.push_back(record);
    } else if (capacity_ > 0) {
        records_[oldest_] = record;
        oldest_ = (oldest_ + 1) % capacity_;
    }
}

double LoopRecordingVector::AverageSince(int milliseconds) const {
    const auto since = std::chrono::steady_clock::now() - std::chrono::milliseconds(milliseconds);
    const std::lock_guard<std::mutex> lock(mutex_);
    double sum = 0.0;
    std::size_t nbValues = 0;
    for (const Record& record : records_) {
        if (record.when_ >= since) {
            sum += static_cast<double>(record.value_);
            ++nbValues;
        }
    }
    return nbValues == 0 ? 0.0 : sum / static_cast<double>(nbValues);
}

}  // namespace Tavrin::Tools
