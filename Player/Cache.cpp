#include "Player/Cache.h"

#include <algorithm>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

#include "Logging/LoggingManager.h"
#include "Player/LogMessage.h"
#include "Player/WindowMapImpl.h"

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

bool IsProtected(const Cache::CacheEntry& entry) {
    return entry.type_ == Cache::Valid && entry.output_.sample_->GetProtectionCounter() > 0;
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
    const auto [place, isNew] = cache_.Insert(tp);
    if (isNew) {
        place.Get().type_ = Pending;
        NoteInserted(tp);
        return false;
    }
    TAVRIN_LOG(logger_, Level_Trace, kFile, "T", trackId_.Id(), ": Cannot InsertPendingEntry at ", tp,
               ": we already have a ", Name(place.Get().type_), " entry");
    return true;
}

Cache::EntryType Cache::GetSample(const TimePoint& tp, const SampleRate& sampleRate, ISample** sample,
                                  bool onlyBestMatchMode) {
    const std::int64_t number = tp.SampleNumber(sampleRate);
    // Numbers never fall as time points rise: an entry from the start of the sample to `tp` is in the sample
    // without a division to tell.
    const auto isInSample = [&](Iterator place) {
        return place != cache_.end() && (place.Key() <= tp || place.Key().SampleNumber(sampleRate) == number);
    };
    const Iterator first = FirstOfSample(number, sampleRate);
    const Iterator valid = cache_.MarkedFrom(first);
    if (isInSample(valid)) {
        return HandOut(valid, sample);
    }
    if (onlyBestMatchMode) {
        const Iterator closest = Closer(tp, cache_.MarkedBefore(first), valid);
        if (closest != cache_.end()) {
            return HandOut(closest, sample);
        }
    }
    EntryType best = Not_Found;
    for (Iterator place = first; best != Missing && isInSample(place); ++place) {
        best = place.Get().type_;
    }
    return best;
}

/// The first entry whose sample number is `number`, or the one that would follow it.
///
/// Sample numbers never fall as time points rise, so the entries of a sample lie side by side and begin at or
/// after its start: a search finds what a walk over all entries would. The two numbers that no start marks
/// the beginning of are those of the lowest sample, which saturation lets reach back to the beginning of
/// time, and of a rate that nobody has set, where every entry has the number zero.
Cache::Iterator Cache::FirstOfSample(std::int64_t number, const SampleRate& rate) {
    if (!rate.Positive() || number == std::numeric_limits<std::int64_t>::min()) {
        return cache_.begin();
    }
    return cache_.LowerBound(TimePoint::StartOfSample(number, rate));
}

/// Of the last valid entry before the sample of `tp` and the first one behind it, either of which may be the
/// end, the one nearest to `tp`; the earlier of two at the same distance.
Cache::Iterator Cache::Closer(const TimePoint& tp, Iterator before, Iterator after) {
    if (before == cache_.end()) {
        return after;
    }
    const TimePoint distance = DistanceBetween(tp, before.Key());
    if (after != cache_.end() && DistanceBetween(tp, after.Key()) < distance) {
        return after;
    }
    if (distance == TimePoint::GetHighestTimePoint()) {
        // Saturated: every valid entry further back is at this same distance, and the earliest wins a tie.
        return cache_.MarkedFrom(cache_.begin());
    }
    return before;
}

Cache::EntryType Cache::HandOut(Iterator entry, ISample** sample) {
    *sample = entry.Get().output_.sample_;
    usedSample_ = entry.Key();
    return Valid;
}

std::set<std::int64_t> Cache::FindMultiples(const SampleRate& sampleRate) {
    std::set<std::int64_t> numbers;
    for (const auto& entry : cache_) {
        // Ascending, so the hint makes each insertion constant time.
        numbers.insert(numbers.end(), entry.Key().SampleNumber(sampleRate));
    }
    return numbers;
}

const SampleRuns& Cache::FindRuns(const SampleRate& sampleRate) {
    if (!hasRuns_ || sampleRate != runsRate_) {
        hasRuns_ = false;
        runs_.Clear();
        for (const auto& entry : cache_) {
            runs_.Insert(entry.Key().SampleNumber(sampleRate));
        }
        runs_.GiveBack();
        runsRate_ = sampleRate;
        hasRuns_ = true;
    }
    return runs_;
}

/// The runs say nothing that the entries do not say: when there is no memory to change them they are dropped,
/// and made anew when somebody asks.
void Cache::NoteInserted(const TimePoint& tp) noexcept {
    if (!hasRuns_) {
        return;
    }
    try {
        runs_.Insert(tp.SampleNumber(runsRate_));
    } catch (const std::bad_alloc&) {
        hasRuns_ = false;
    }
}

TimePoint Cache::GetFirstEntry() const {
    return cache_.empty() ? TimePoint() : cache_.begin().Key();
}

TimePoint Cache::GetLastEntry() const {
    return cache_.empty() ? TimePoint() : (--cache_.end()).Key();
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
    const Iterator place = cache_.Find(alignedOrderTp);
    if (place == cache_.end()) {
        sample.reset();
        Refuse(Compose("No entry for aligned order tp ", alignedOrderTp));
    }
    EntryType& type = place.Get().type_;
    if (type != Pending) {
        sample.reset();
        Refuse(Compose("Entry should be Pending at ", alignedOrderTp, ", it's ", Name(type)));
    }
    if (sample == nullptr) {
        type = Missing;
        return;
    }
    place.Get().output_ = output;
    type = Valid;
    cache_.Mark(place);
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
    if (type == Valid) {
        return cache_.NbMarkedFrom(cache_.LowerBound(tp));
    }
    std::size_t nb = 0;
    for (Iterator place = cache_.LowerBound(tp); place != cache_.end(); ++place) {
        nb += place.Get().type_ == type ? 1 : 0;
    }
    return nb;
}

std::size_t Cache::GetNumberProtectedSamples(const TimePoint& tp) {
    std::size_t nb = 0;
    for (Iterator place = cache_.LowerBound(tp); place != cache_.end(); ++place) {
        nb += IsProtected(place.Get()) ? 1 : 0;
    }
    return nb;
}

Cache::Information Cache::GetInformation() const {
    Information information;
    information.cacheSize_ = static_cast<std::int64_t>(cache_.size());
    for (const auto& place : cache_) {
        const EntryType type = place.Get().type_;
        information.nbValidSamples_ += type == Valid ? 1 : 0;
        information.nbProtectedSamples_ += IsProtected(place.Get()) ? 1 : 0;
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
    for (const auto& place : cache_) {
        std::cout << place.Key().SampleNumber(s);
        switch (place.Get().type_) {
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
    for (const auto& place : cache_) {
        delete place.Get().output_.sample_;
    }
    cache_.Clear();
    runs_.Clear();
    usedSample_ = TimePoint();
}

/// Entries that lay side by side and are erased in one pass. Their numbers go from the runs together: all from
/// the first to the last, but for one that an entry before or behind them has as well. No other entry can have
/// one of them, as numbers never fall as time points rise.
///
/// While a pass runs the runs are not valid; they are again when it ends with `Close`, and not when a sample
/// throws.
class Cache::ErasedStretch {
public:
    explicit ErasedStretch(Cache& cache) : cache_(cache), keepsRuns_(std::exchange(cache.hasRuns_, false)) {}

    void Add(const TimePoint& tp) {
        first_ = isEmpty_ ? tp : std::min(first_, tp);
        last_ = isEmpty_ ? tp : std::max(last_, tp);
        isEmpty_ = false;
    }

    /// The stretch ends where `next`, which may be the end, follows it; another may begin.
    void EndBefore(Iterator next) {
        if (!isEmpty_ && keepsRuns_) {
            TakeFromRuns(next);
        }
        isEmpty_ = true;
    }

    void Close(Iterator next) {
        EndBefore(next);
        cache_.hasRuns_ = keepsRuns_;
    }

private:
    void TakeFromRuns(Iterator next) {
        const SampleRate& rate = cache_.runsRate_;
        std::int64_t first = first_.SampleNumber(rate);
        std::int64_t last = last_.SampleNumber(rate);
        const bool sharesLast = next != cache_.cache_.end() && next.Key().SampleNumber(rate) == last;
        const bool sharesFirst = next != cache_.cache_.begin() && (--next).Key().SampleNumber(rate) == first;
        // One number only, which is shared: nothing goes. Otherwise the sums cannot overflow.
        if (first == last && (sharesFirst || sharesLast)) {
            return;
        }
        first += sharesFirst ? 1 : 0;
        last -= sharesLast ? 1 : 0;
        try {
            cache_.runs_.Erase(first, last);
        } catch (const std::bad_alloc&) {
            keepsRuns_ = false;
        }
    }

    Cache& cache_;
    bool keepsRuns_;
    bool isEmpty_ = true;
    TimePoint first_;
    TimePoint last_;
};

std::size_t Cache::EraseBefore(const TimePoint& tp) {
    std::size_t nbErased = 0;
    ErasedStretch stretch(*this);
    Iterator place = cache_.begin();
    while (place != cache_.end() && place.Key() < tp) {
        if (MayBeErased(place.Get(), place.Key() == usedSample_)) {
            stretch.Add(place.Key());
            place = Erase(place);
            ++nbErased;
        } else {
            stretch.EndBefore(place);
            ++place;
        }
    }
    stretch.Close(place);
    return nbErased;
}

std::size_t Cache::EraseAfter(const TimePoint& tp, EntryType e) {
    std::size_t nbErased = 0;
    ErasedStretch stretch(*this);
    Iterator next = cache_.end();
    while (next != cache_.begin()) {
        Iterator place = next;
        if ((--place).Key() <= tp) {
            break;
        }
        const bool matches = e == Not_Found || place.Get().type_ == e;
        if (matches && MayBeErased(place.Get(), place.Key() == usedSample_)) {
            stretch.Add(place.Key());
            next = Erase(place);
            ++nbErased;
        } else {
            stretch.EndBefore(next);
            next = place;
        }
    }
    stretch.Close(next);
    return nbErased;
}

bool Cache::MayBeErased(const CacheEntry& entry, bool isInUse) {
    if (entry.type_ != Valid) {
        return entry.type_ != Pending;
    }
    return entry.output_.sample_->GetProtectionCounter() == 0 && !isInUse;
}

Cache::Iterator Cache::Erase(Iterator entry) {
    delete entry.Get().output_.sample_;
    return cache_.Erase(entry);
}

}  // namespace Tavrin::Player
