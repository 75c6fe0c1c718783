#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Player/Cache.h"
#include "Player/SampleRate.h"
#include "Player/Support/SampleLedger.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Testing {

inline const char* NameOf(Cache::EntryType type) {
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

/// What a cache is to do, written down step by step without a thought for speed: a plain map, and plain walks over
/// all of it. It does nothing to a sample: it keeps the list of what ought to be done to them, in order.
class CacheModel {
public:
    struct Answer {
        LedgerSample* sample = nullptr;
        Time::TimePoint tp;
    };
    struct Entry {
        Cache::EntryType type = Cache::Not_Found;
        LedgerSample* sample = nullptr;
    };
    using Entries = std::map<Time::TimePoint, Entry>;

    void SetRate(const SampleRate& rate) { rate_ = rate; }
    const SampleRate& Rate() const { return rate_; }
    const Entries& All() const { return entries_; }
    const Time::TimePoint& Used() const { return used_; }
    bool HasAnswers() const { return !queue_.empty(); }

    /// What ought to have happened to samples since the last call, oldest first.
    std::vector<SampleEvent> TakeEvents() { return std::exchange(events_, {}); }

    void Push(const Answer& answer) { queue_.push_back(answer); }

    bool InsertPendingEntry(const Time::TimePoint& tp) {
        const Time::TimePoint aligned = tp.AlignWith(rate_);
        if (aligned != tp) {
            std::ostringstream text;
            text << "Timepoint " << tp << " must be aligned to streamRate " << rate_
                 << ". It should have been " << aligned;
            throw std::runtime_error(text.str());
        }
        if (entries_.count(tp) != 0) {
            return true;
        }
        entries_[tp].type = Cache::Pending;
        return false;
    }

    Cache::EntryType GetSample(const Time::TimePoint& tp, const SampleRate& rate, ISample** sample,
                               bool best) {
        if (entries_.empty()) {
            return Cache::Not_Found;
        }
        const std::int64_t number = tp.SampleNumber(rate);
        Cache::EntryType result = Cache::Not_Found;
        const std::pair<const Time::TimePoint, Entry>* closest = nullptr;
        for (const auto& item : entries_) {
            const auto& [key, entry] = item;
            if (key.SampleNumber(rate) == number) {
                if (entry.type == Cache::Pending && result == Cache::Not_Found) {
                    result = Cache::Pending;
                } else if (entry.type == Cache::Missing) {
                    result = Cache::Missing;
                } else if (entry.type == Cache::Valid) {
                    return Hand(item, sample);
                }
            } else if (best && entry.type == Cache::Valid &&
                       (closest == nullptr || (tp - key).Abs() < (tp - closest->first).Abs())) {
                closest = &item;
            }
        }
        return closest == nullptr ? result : Hand(*closest, sample);
    }

    std::set<std::int64_t> FindMultiples(const SampleRate& rate) const {
        std::set<std::int64_t> numbers;
        for (const auto& [key, entry] : entries_) {
            numbers.insert(numbers.end(), key.SampleNumber(rate));
        }
        return numbers;
    }

    Time::TimePoint GetFirstEntry() const {
        return entries_.empty() ? Time::TimePoint() : entries_.begin()->first;
    }
    Time::TimePoint GetLastEntry() const {
        return entries_.empty() ? Time::TimePoint() : entries_.rbegin()->first;
    }

    std::size_t Update() {
        std::size_t nb = 0;
        while (!queue_.empty()) {
            const Answer answer = queue_.front();
            queue_.pop_front();
            ++nb;
            const Time::TimePoint aligned = answer.tp.AlignWith(rate_);
            const auto found = entries_.find(aligned);
            std::ostringstream text;
            if (found == entries_.end()) {
                text << "No entry for aligned order tp " << aligned;
            } else if (found->second.type != Cache::Pending) {
                text << "Entry should be Pending at " << aligned << ", it's " << NameOf(found->second.type);
            }
            if (found == entries_.end() || found->second.type != Cache::Pending) {
                Delete(answer.sample);
                throw std::runtime_error(text.str());
            }
            found->second.type = answer.sample == nullptr ? Cache::Missing : Cache::Valid;
            found->second.sample = answer.sample;
        }
        return nb;
    }

    std::size_t GetNumberSamples(Cache::EntryType type, const Time::TimePoint& tp) const {
        std::size_t nb = 0;
        for (const auto& [key, entry] : entries_) {
            nb += key >= tp && entry.type == type ? 1 : 0;
        }
        return nb;
    }

    std::size_t GetNumberProtectedSamples(const Time::TimePoint& tp) const {
        std::size_t nb = 0;
        for (const auto& [key, entry] : entries_) {
            nb += key >= tp && entry.type == Cache::Valid && entry.sample->Counter() > 0 ? 1 : 0;
        }
        return nb;
    }

    /// What `OutputSampleNumbers` prints: the number and the type of every entry, in order.
    std::string SampleNumbersText(const SampleRate& rate) const {
        static const std::map<Cache::EntryType, const char*> marks{
            {Cache::Valid, "(V) "}, {Cache::Pending, "(P) "}, {Cache::Missing, "(M) "}};
        std::ostringstream text;
        text << "For " << rate << ": ";
        for (const auto& [key, entry] : entries_) {
            text << key.SampleNumber(rate) << marks.at(entry.type);
        }
        text << "\n";
        return text.str();
    }

    void Clear() {
        for (const auto& [key, entry] : entries_) {
            Delete(entry.sample);
        }
        entries_.clear();
        used_ = Time::TimePoint();
    }

    std::size_t EraseBefore(const Time::TimePoint& tp) {
        std::vector<Time::TimePoint> toErase;
        for (auto item = entries_.begin(); item != entries_.end() && item->first < tp; ++item) {
            NoteIfErased(*item, toErase);
        }
        return Erase(toErase);
    }

    std::size_t EraseAfter(const Time::TimePoint& tp, Cache::EntryType type) {
        std::vector<Time::TimePoint> toErase;
        for (auto item = entries_.rbegin(); item != entries_.rend() && tp < item->first; ++item) {
            if (type == Cache::Not_Found || item->second.type == type) {
                NoteIfErased(*item, toErase);
            }
        }
        return Erase(toErase);
    }

    /// At the end of the cache's life the waiting answers go too.
    void Destroy() {
        Clear();
        for (const Answer& answer : queue_) {
            Delete(answer.sample);
        }
        queue_.clear();
    }

private:
    Cache::EntryType Hand(const std::pair<const Time::TimePoint, Entry>& item, ISample** sample) {
        *sample = item.second.sample;
        used_ = item.first;
        return Cache::Valid;
    }

    void Delete(const LedgerSample* sample) {
        if (sample != nullptr) {
            events_.push_back({SampleEvent::Deleted, sample});
        }
    }

    void NoteIfErased(const std::pair<const Time::TimePoint, Entry>& item,
                      std::vector<Time::TimePoint>& toErase) {
        const auto& [key, entry] = item;
        if (entry.type == Cache::Pending) {
            return;
        }
        if (entry.type == Cache::Valid) {
            events_.push_back({SampleEvent::AskedForProtection, entry.sample});
            if (entry.sample->Counter() != 0 || key == used_) {
                return;
            }
        }
        Delete(entry.sample);
        toErase.push_back(key);
    }

    std::size_t Erase(const std::vector<Time::TimePoint>& toErase) {
        for (const Time::TimePoint& key : toErase) {
            entries_.erase(key);
        }
        return toErase.size();
    }

    SampleRate rate_;
    Entries entries_;
    std::deque<Answer> queue_;
    Time::TimePoint used_;
    std::vector<SampleEvent> events_;
};

}  // namespace Tavrin::Player::Testing
