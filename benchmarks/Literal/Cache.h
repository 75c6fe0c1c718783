#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Literal/Queues.h"
#include "Logging/ILogger.h"
#include "Player/Cache.h"
#include "Player/ISample.h"
#include "Player/Output.h"
#include "Player/SampleRate.h"
#include "Player/TrackId.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player::Literal {

/// `Player::Cache` as it is defined: an ordered map that every lookup walks from the front, one division for
/// each entry, and eviction in two steps through an array of keys.
///
/// *Threads:* externally synchronised, but for pushing into the queue.
class Cache {
public:
    using EntryType = Player::Cache::EntryType;
    using CacheEntry = Player::Cache::CacheEntry;

    Cache();
    Cache(const Cache&) = delete;
    Cache& operator=(const Cache&) = delete;
    virtual ~Cache();

    void SetTrackId(const TrackId& id) { trackId_ = id; }
    void SetStreamSampleRate(const SampleRate& streamRate) { streamRate_ = streamRate; }
    CacheUpdateQueue* GetQueue() { return &queue_; }

    bool InsertPendingEntry(const Time::TimePoint& tp);
    EntryType GetSample(const Time::TimePoint& tp, const SampleRate& sampleRate, ISample** sample,
                        bool onlyBestMatchMode);
    std::set<std::int64_t> FindMultiples(const SampleRate& sampleRate);
    std::size_t Update();
    Player::Cache::Information GetInformation() const;
    Time::TimePoint GetFirstEntry() const;
    Time::TimePoint GetLastEntry() const;
    void Clear();
    std::size_t EraseBefore(const Time::TimePoint& tp);
    std::size_t EraseAfter(const Time::TimePoint& tp, EntryType e);

private:
    using CacheEntries = std::map<Time::TimePoint, CacheEntry>;

    void File(const Output& output);
    [[noreturn]] void Refuse(const std::string& message) const;
    bool Release(CacheEntries::value_type& entry);
    std::size_t EraseRecorded(std::size_t nb);

    CacheUpdateQueue queue_;
    SampleRate streamRate_;
    CacheEntries cache_;
    Time::TimePoint usedSample_;
    TrackId trackId_;
    std::vector<Time::TimePoint> toErase_;
    qor::kp::logging::ILogger* logger_;
};

}  // namespace Tavrin::Player::Literal
