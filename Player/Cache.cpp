#include "Player/Cache.h"

#include <algorithm>
#include <iostream>
#include <limits>
#include <memory>
#include <stdexcept>

#include "Logging/LoggingManager.h"
#include "Player/LogMessage.h"

namespace Tavrin::Player {

using namespace qor::kp::logging;
using Time::TimePoint;

namespace {

constexpr const char* kFile = "Player/Cache";

const char* Name(Cache::EntryType type) {
    switch (type) {
        case Cache::Not_Found:
            return "Not_Found";
        case Cache::Pending:
            return "Pending";
        case Cache::Missing:
            return "Missing";
        case Cache::Valid:
            return "Valid";
    }
    return "None";
}

TimePoint DistanceBetween(const TimePoint& t1, const TimePoint& t2) {
    return (t1 - t2).Abs();
}

bool IsValid(const Cache::CacheEntries::value_type& entry) {
    return entry.second.type_ == Cache::Valid;
}

bool IsProtected(const Cache::CacheEntries::value_type& entry) {
    return IsValid(entry) && entry.second.output_.sample_->GetProtectionCounter() > 0;
}

}  // namespace

Cache::Cache() : Cache("Cache") {
}

Cache::Cache(const std::string& loggerName) : logger_(LoggingManager::GetLoggerPtr(loggerName)) {
}

Cache::~Cache() {
    Clear();
}

void Cache::SetTrackId(const TrackId& id) {
    trackId_ = id;
}

void Cache::SetStreamSampleRate(const SampleRate& streamRate) {
    streamRate_ = streamRate;
}

bool Cache::InsertPendingEntry(const TimePoint& tp) {
    const TimePoint aligned = tp.AlignWith(streamRate_);
    if (aligned != tp) {
        Refuse(Compose("Timepoint ", tp, " must be aligned to streamRate ", streamRate_,
                       ". It should have been ", aligned));
    }
    const auto [entry, inserted] = cache_.try_emplace(tp);
    if (inserted) {
        entry->second.type_ = Pending;
        return false;
    }
    TAVRIN_LOG(logger_, Level_Trace, kFile, "T", trackId_.Id(), ": Cannot InsertPendingEntry at ", tp,
               ": we already have a ", Name(entry->second.type_), " entry");
    return true;
}

Cache::EntryType Cache::GetSample(const TimePoint& tp, const SampleRate& sampleRate, ISample** sample,
                                  bool onlyBestMatchMode) {
    EntryType best = Not_Found;
    const std::int64_t number = tp.SampleNumber(sampleRate);
    for (auto entry = FirstOfSample(number, sampleRate);
         entry != cache_.end() && entry->first.SampleNumber(sampleRate) == number; ++entry) {
        if (IsValid(*entry)) {
            return HandOut(entry, sample);
        }
        if (best != Missing) {
            best = entry->second.type_;
        }
    }
    if (onlyBestMatchMode) {
        const auto closest = ClosestValid(tp);
        if (closest != cache_.end()) {
            return HandOut(closest, sample);
        }
    }
    return best;
}

/// The first entry whose sample number is `number`, or the one that would follow it.
///
/// Sample numbers never fall as time points rise, so the entries of a sample lie side by side and begin at or
/// after its start: a search finds what a walk over all entries would. The two numbers that no start marks
/// the beginning of are those of the lowest sample, which saturation lets reach back to the beginning of
/// time, and of a rate that nobody has set, where every entry has the number zero.
Cache::CacheEntries::iterator Cache::FirstOfSample(std::int64_t number, const SampleRate& rate) {
    if (!rate.Positive() || number == std::numeric_limits<std::int64_t>::min()) {
        return cache_.begin();
    }
    return cache_.lower_bound(TimePoint::StartOfSample(number, rate));
}

/// The valid entry nearest to `tp`, the earlier of two at the same distance; end when none is valid.
Cache::CacheEntries::iterator Cache::ClosestValid(const TimePoint& tp) {
    const auto middle = cache_.lower_bound(tp);
    const auto after = std::find_if(middle, cache_.end(), IsValid);
    const auto before = std::find_if(std::make_reverse_iterator(middle), cache_.rend(), IsValid);
    if (before == cache_.rend()) {
        return after;
    }
    const TimePoint distance = DistanceBetween(tp, before->first);
    if (after != cache_.end() && DistanceBetween(tp, after->first) < distance) {
        return after;
    }
    if (distance == TimePoint::GetHighestTimePoint()) {
        // Saturated: every valid entry further back is at this same distance, and the earliest wins a tie.
        return std::find_if(cache_.begin(), middle, IsValid);
    }
    return std::prev(before.base());
}

Cache::EntryType Cache::HandOut(CacheEntries::iterator entry, ISample** sample) {
    *sample = entry->second.output_.sample_;
    usedSample_ = entry->first;
    return Valid;
}

std::set<std::int64_t> Cache::FindMultiples(const SampleRate& sampleRate) {
    std::set<std::int64_t> numbers;
    for (const auto& entry : cache_) {
        // Ascending, so the hint makes each insertion constant time.
        numbers.insert(numbers.end(), entry.first.SampleNumber(sampleRate));
    }
    return numbers;
}

TimePoint Cache::GetFirstEntry() const {
    return cache_.empty() ? TimePoint() : cache_.begin()->first;
}

TimePoint Cache::GetLastEntry() const {
    return cache_.empty() ? TimePoint() : cache_.rbegin()->first;
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
    // Deletes the sample on every way out but the one that files it.
    std::unique_ptr<ISample> sample(output.sample_);
    const TimePoint orderTp = output.GetTimePoint();
    const TimePoint alignedOrderTp = orderTp.AlignWith(streamRate_);
    const auto entry = cache_.find(alignedOrderTp);
    if (entry == cache_.end()) {
        sample.reset();
        Refuse(Compose("No entry for aligned order tp ", alignedOrderTp));
    }
    EntryType& type = entry->second.type_;
    if (type != Pending) {
        sample.reset();
        Refuse(Compose("Entry should be Pending at ", alignedOrderTp, ", it's ", Name(type)));
    }
    if (sample == nullptr) {
        type = Missing;
        return;
    }
    entry->second.output_ = output;
    type = Valid;
    sample.release();  // NOLINT(bugprone-unused-return-value): the entry owns it now
    TAVRIN_LOG(logger_, Level_Trace, kFile, "T", trackId_.Id(), ": inserted valid sample at ", alignedOrderTp,
               " (", orderTp.SampleNumber(streamRate_), ") : ", GetNumberSamples(Valid, TimePoint()),
               " valid samples");
}

void Cache::Refuse(const std::string& message) const {
    TAVRIN_LOG(logger_, Level_Error, kFile, message);
    throw std::runtime_error(message);
}

std::size_t Cache::GetNumberSamples(EntryType type, const TimePoint& tp) {
    const auto isOfType = [type](const auto& entry) { return entry.second.type_ == type; };
    return static_cast<std::size_t>(std::count_if(cache_.lower_bound(tp), cache_.end(), isOfType));
}

std::size_t Cache::GetNumberProtectedSamples(const TimePoint& tp) {
    return static_cast<std::size_t>(std::count_if(cache_.lower_bound(tp), cache_.end(), IsProtected));
}

Cache::Information Cache::GetInformation() const {
    Information information;
    information.cacheSize_ = static_cast<std::int64_t>(cache_.size());
    for (const auto& entry : cache_) {
        const EntryType type = entry.second.type_;
        information.nbValidSamples_ += type == Valid ? 1 : 0;
        information.nbProtectedSamples_ += IsProtected(entry) ? 1 : 0;
        information.nbPendingSamples_ += type == Pending ? 1 : 0;
        information.nbMissingSamples_ += type == Missing ? 1 : 0;
    }
    return information;
}

std::string Cache::Information::ToString() const {
    return Compose(nbValidSamples_ <= 9 ? "0" : "", nbValidSamples_, "V, (", nbProtectedSamples_, "), ",
                   nbPendingSamples_, "P, ", nbMissingSamples_, "M (", cacheSize_, ")");
}

void Cache::OutputSampleNumbers(const SampleRate& s) const {
    std::cout << "For " << s << ": ";
    for (const auto& entry : cache_) {
        std::cout << entry.first.SampleNumber(s);
        switch (entry.second.type_) {
            case Valid:
                std::cout << "(V) ";
                break;
            case Pending:
                std::cout << "(P) ";
                break;
            case Missing:
                std::cout << "(M) ";
                break;
            case Not_Found:
                break;
        }
    }
    std::cout << std::endl;  // NOLINT(performance-avoid-endl): a diagnostic must be out before a crash
}

void Cache::Clear() {
    for (auto& entry : cache_) {
        delete entry.second.output_.sample_;
    }
    cache_.clear();
    usedSample_ = TimePoint();
}

std::size_t Cache::EraseBefore(const TimePoint& tp) {
    std::size_t nbErased = 0;
    auto entry = cache_.begin();
    while (entry != cache_.end() && entry->first < tp) {
        const auto candidate = entry++;
        if (Release(candidate)) {
            cache_.erase(candidate);
            ++nbErased;
        }
    }
    return nbErased;
}

std::size_t Cache::EraseAfter(const TimePoint& tp, EntryType e) {
    std::size_t nbErased = 0;
    auto entry = cache_.end();
    while (entry != cache_.begin() && tp < std::prev(entry)->first) {
        const auto candidate = std::prev(entry);
        const bool matches = e == Not_Found || candidate->second.type_ == e;
        if (matches && Release(candidate)) {
            cache_.erase(candidate);
            ++nbErased;
        } else {
            entry = candidate;
        }
    }
    return nbErased;
}

/// Deletes what the entry holds if the entry may be evicted; whether it may.
bool Cache::Release(CacheEntries::iterator entry) {
    if (entry->second.type_ == Pending) {
        return false;
    }
    if (IsValid(*entry)) {
        ISample*& sample = entry->second.output_.sample_;
        if (sample->GetProtectionCounter() != 0 || entry->first == usedSample_) {
            return false;
        }
        delete sample;
        sample = nullptr;
    }
    return true;
}

}  // namespace Tavrin::Player
