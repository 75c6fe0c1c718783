#include "Literal/Cache.h"

#include <stdexcept>

#include "Literal/TimeArithmetic.h"
#include "Logging/LoggingManager.h"
#include "Player/LogMessage.h"

namespace Tavrin::Player::Literal {

using namespace qor::kp::logging;
using Time::TimePoint;
using enum Player::Cache::EntryType;

namespace {

constexpr const char* kFile = "Literal/Cache";

TimePoint DistanceBetween(const TimePoint& t1, const TimePoint& t2) {
    return (t1 - t2).Abs();
}

}  // namespace

Cache::Cache() : logger_(LoggingManager::GetLoggerPtr("Cache")) {
}

Cache::~Cache() {
    Clear();
}

bool Cache::InsertPendingEntry(const TimePoint& tp) {
    const TimePoint aligned = AlignWith(tp, streamRate_);
    if (aligned != tp) {
        Refuse(Compose("Timepoint ", tp, " must be aligned to streamRate ", streamRate_,
                       ". It should have been ", aligned));
    }
    const auto [entry, inserted] = cache_.try_emplace(tp);
    if (inserted) {
        entry->second.type_ = Pending;
        return false;
    }
    TAVRIN_LOG(logger_, Level_Trace, kFile, "T", trackId_.Id(), ": Cannot InsertPendingEntry at ", tp);
    return true;
}

Cache::EntryType Cache::GetSample(const TimePoint& tp, const SampleRate& sampleRate, ISample** sample,
                                  bool onlyBestMatchMode) {
    if (cache_.empty()) {
        return Not_Found;
    }
    EntryType bestResult = Not_Found;
    auto closest = cache_.end();
    const std::int64_t n = SampleNumber(tp, sampleRate);
    for (auto entry = cache_.begin(); entry != cache_.end(); ++entry) {
        const EntryType type = entry->second.type_;
        if (SampleNumber(entry->first, sampleRate) == n) {
            if (type == Valid) {
                *sample = entry->second.output_.sample_;
                usedSample_ = entry->first;
                return Valid;
            }
            if (type == Missing || bestResult == Not_Found) {
                bestResult = type;
            }
        } else if (onlyBestMatchMode && type == Valid) {
            if (closest == cache_.end() ||
                DistanceBetween(tp, entry->first) < DistanceBetween(tp, closest->first)) {
                closest = entry;
            }
        }
    }
    if (closest == cache_.end()) {
        return bestResult;
    }
    *sample = closest->second.output_.sample_;
    usedSample_ = closest->first;
    return Valid;
}

std::set<std::int64_t> Cache::FindMultiples(const SampleRate& sampleRate) {
    std::set<std::int64_t> numbers;
    for (const auto& entry : cache_) {
        numbers.insert(SampleNumber(entry.first, sampleRate));
    }
    return numbers;
}

std::size_t Cache::Update() {
    std::size_t nbOutputs = 0;
    Output output;
    while (queue_.Pop(output)) {
        ++nbOutputs;
        File(output);
    }
    return nbOutputs;
}

void Cache::File(const Output& output) {
    const TimePoint orderTp = output.GetTimePoint();
    const TimePoint alignedOrderTp = AlignWith(orderTp, streamRate_);
    const auto entry = cache_.find(alignedOrderTp);
    if (entry == cache_.end()) {
        delete output.sample_;
        Refuse(Compose("No entry for aligned order tp ", alignedOrderTp));
    }
    if (entry->second.type_ != Pending) {
        delete output.sample_;
        Refuse(Compose("Entry should be Pending at ", alignedOrderTp));
    }
    if (output.sample_ == nullptr) {
        entry->second.type_ = Missing;
        return;
    }
    entry->second.output_ = output;
    entry->second.type_ = Valid;
    TAVRIN_LOG(logger_, Level_Trace, kFile, "T", trackId_.Id(), ": inserted valid sample at ",
               alignedOrderTp);
}

void Cache::Refuse(const std::string& message) const {
    TAVRIN_LOG(logger_, Level_Error, kFile, message);
    throw std::runtime_error(message);
}

Player::Cache::Information Cache::GetInformation() const {
    Player::Cache::Information information;
    information.cacheSize_ = static_cast<std::int64_t>(cache_.size());
    for (const auto& [tp, entry] : cache_) {
        information.nbValidSamples_ += entry.type_ == Valid ? 1 : 0;
        information.nbMissingSamples_ += entry.type_ == Missing ? 1 : 0;
        information.nbPendingSamples_ += entry.type_ == Pending ? 1 : 0;
        const bool isProtected = entry.type_ == Valid && entry.output_.sample_->GetProtectionCounter() > 0;
        information.nbProtectedSamples_ += isProtected ? 1 : 0;
    }
    return information;
}

TimePoint Cache::GetFirstEntry() const {
    return cache_.empty() ? TimePoint() : cache_.begin()->first;
}

TimePoint Cache::GetLastEntry() const {
    return cache_.empty() ? TimePoint() : cache_.rbegin()->first;
}

void Cache::Clear() {
    for (auto& entry : cache_) {
        delete entry.second.output_.sample_;
    }
    cache_.clear();
    usedSample_ = TimePoint();
}

std::size_t Cache::EraseBefore(const TimePoint& tp) {
    if (cache_.empty()) {
        return 0;
    }
    toErase_.resize(cache_.size());
    std::size_t nb = 0;
    for (auto entry = cache_.begin(); entry != cache_.end() && entry->first < tp; ++entry) {
        if (Release(*entry)) {
            toErase_[nb++] = entry->first;
        }
    }
    return EraseRecorded(nb);
}

std::size_t Cache::EraseAfter(const TimePoint& tp, EntryType e) {
    if (cache_.empty()) {
        return 0;
    }
    toErase_.resize(cache_.size());
    std::size_t nb = 0;
    for (auto entry = cache_.rbegin(); entry != cache_.rend() && tp < entry->first; ++entry) {
        if ((e == Not_Found || entry->second.type_ == e) && Release(*entry)) {
            toErase_[nb++] = entry->first;
        }
    }
    return EraseRecorded(nb);
}

/// Deletes what the entry holds if the entry may be evicted; whether it may.
bool Cache::Release(CacheEntries::value_type& entry) {
    if (entry.second.type_ == Pending) {
        return false;
    }
    if (entry.second.type_ == Valid) {
        ISample* const sample = entry.second.output_.sample_;
        if (sample->GetProtectionCounter() != 0 || entry.first == usedSample_) {
            return false;
        }
        delete sample;
    }
    return true;
}

std::size_t Cache::EraseRecorded(std::size_t nb) {
    for (std::size_t i = nb; i-- > 0;) {
        cache_.erase(toErase_[i]);
    }
    return nb;
}

}  // namespace Tavrin::Player::Literal
