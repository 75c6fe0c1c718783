#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "Logging/ILogger.h"
#include "Player/CacheUpdateQueue.h"
#include "Player/ISample.h"
#include "Player/Output.h"
#include "Player/PlayerExport.h"
#include "Player/SampleRate.h"
#include "Player/SampleRuns.h"
#include "Player/TrackId.h"
#include "Player/WindowMap.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

/// What is known of one stream's samples, of one kind, by time point: asked for, answered without a sample,
/// or answered with a sample, which the cache then owns.
///
///     (absent) --InsertPendingEntry--> Pending --Update, sample----> Valid   --eviction--> (absent)
///                                              --Update, no sample-> Missing --eviction--> (absent)
///
/// `Clear` and the destructor take every entry to (absent). An entry that is `Pending` is never evicted: a
/// request is still out for it. Nor is a `Valid` one whose sample is protected, or was handed out last by
/// `GetSample`.
///
/// Workers never touch the entries: they push `Output`s into the queue from `GetQueue`, and the owner files
/// them with `Update`.
///
/// *Threads:* externally synchronised (usually by being used on one thread only); only pushing into the
/// queue from `GetQueue` may happen on any thread at any time.
/// *Blocking:* never beyond the queue's short lock and the samples' own protection locks.
/// *Cost:* looking up, recording and filing one entry are searches, logarithmic in the entries; evicting costs
/// by the entry that goes or that must be asked whether it may. Only what says so walks all entries.
/// *Memory:* about 42 bytes an entry in a window that was filled in order, at most 165 however it was filled
/// and thinned out, and 16 to 64 for each run of numbers once `FindRuns` was asked. Beside that two blocks of 24
/// entries, and one for every four in use, are kept so that a window that slides allocates nothing. A window
/// that shrinks gives back the rest.
/// *Ownership:* owns the samples it has filed and deletes them on eviction, on `Clear` and on destruction;
/// deletes at once the sample of an answer that it rejects. A sample handed out by `GetSample` lives until
/// the next eviction pass that may take it; who keeps it longer protects it.
/// *Errors:* `std::runtime_error` with the logged text, from `InsertPendingEntry` and `Update` only.
class TAVRIN_PLAYER_EXPORT Cache {
public:
    enum EntryType : std::int32_t {
        Not_Found = 0,  ///< No entry; as an argument of `EraseAfter`: any type.
        Pending = 1,    ///< Asked for, not yet answered.
        Missing = 2,    ///< Answered without a sample.
        Valid = 3       ///< Answered with a sample, held in the entry.
    };

    struct CacheEntry {
        EntryType type_ = Not_Found;
        Output output_;
    };

    /// Ascending by time point; the valid entries are the marked ones.
    using CacheEntries = WindowMap<CacheEntry>;

    /// Counts of the entries, for diagnostics.
    struct TAVRIN_PLAYER_EXPORT Information {
        std::int64_t nbValidSamples_ = 0;
        std::int64_t nbProtectedSamples_ = 0;  ///< Of the valid ones, those with a protection above zero.
        std::int64_t nbMissingSamples_ = 0;
        std::int64_t nbPendingSamples_ = 0;
        std::int64_t cacheSize_ = 0;

        /// One line: "05V, (2), 3P, 0M (8)" for 5 valid (padded to two digits) of which 2 protected, 3
        /// pending, 0 missing, 8 entries.
        std::string ToString() const;
    };

    /// Logs to the logger named "Cache".
    Cache();

    /// Logs to the logger of that name.
    explicit Cache(const std::string& loggerName);

    Cache(const Cache&) = delete;
    Cache& operator=(const Cache&) = delete;

    /// Deletes every sample still held, protected or not.
    virtual ~Cache();

    /// Only the track number is used, to begin log lines with.
    void SetTrackId(const TrackId& id);

    /// The rate that time points are aligned to from now on. Entries already recorded keep their time points.
    /// With a rate nobody has set (zero) every time point aligns with the origin, the only one that can then
    /// be recorded.
    void SetStreamSampleRate(const SampleRate& streamRate);

    /// The queue for producers; it lives as long as the cache.
    CacheUpdateQueue* GetQueue() { return &queue_; }

    /// Records that the sample at `tp` is being asked for; to be called before the order goes out, since
    /// answers are only taken for pending entries.
    ///
    /// Note the sense of the result: true means that an entry was already there, of whatever type, and
    /// nothing changed; false means that a new pending entry was recorded.
    /// Throws `std::runtime_error` when `tp` is not the start of a sample of the stream's rate.
    bool InsertPendingEntry(const Time::TimePoint& tp);

    /// Looks up the sample of `sampleRate` that `tp` falls in. The rate may be coarser than the stream's, so
    /// that several entries fall into that sample: the earliest valid one wins; with none, `Missing` wins
    /// over `Pending`.
    ///
    /// In best-match mode, when that sample has no valid entry, the valid entry nearest to `tp` anywhere in
    /// the cache is taken (the earlier one of two at the same distance) rather than answering `Pending` or
    /// `Missing`; the caller tells by the sample's own time point that it got a neighbour.
    ///
    /// `*sample` is written, and the entry remembered as the one in use, only when `Valid` is returned. The
    /// sample is not protected. Costs a search, plus a look at each entry of the sample when none is valid.
    EntryType GetSample(const Time::TimePoint& tp, const SampleRate& sampleRate, ISample** sample,
                        bool onlyBestMatchMode);

    /// The sample numbers, at `sampleRate`, of all entries of every type. Walks all entries.
    std::set<std::int64_t> FindMultiples(const SampleRate& sampleRate);

    /// The numbers that `FindMultiples` gives, as runs; valid until the next call of any other operation that
    /// is not const.
    ///
    /// Walks all entries when it is asked for a rate for the first time. From then on the runs of that rate
    /// are kept up to date with the entries, at the cost of a search for each that comes and for each stretch
    /// that goes, so asking for the same rate again costs nothing. They are kept for one rate: that of the last
    /// call.
    const SampleRuns& FindRuns(const SampleRate& sampleRate);

    /// The lowest and the highest time point recorded; the origin when the cache is empty.
    Time::TimePoint GetFirstEntry() const;
    Time::TimePoint GetLastEntry() const;

    /// Files the answers that wait in the queue, each into its pending entry, and returns how many there
    /// were.
    ///
    /// An answer for a time point that is not recorded, or whose entry is not pending, is rejected: its
    /// sample is deleted and `std::runtime_error` thrown. The answers filed before it stay filed, those after
    /// it stay in the queue for the next call.
    std::size_t Update();

    /// The number of entries of that type at or after `tp`.
    std::size_t GetNumberSamples(EntryType type, const Time::TimePoint& tp);

    /// The number of valid entries at or after `tp` whose sample's protection is above zero.
    std::size_t GetNumberProtectedSamples(const Time::TimePoint& tp);

    Information GetInformation() const;

    /// Prints the number, at rate `s`, and the type of every entry to standard output, on one line.
    void OutputSampleNumbers(const SampleRate& s) const;

    /// Removes every entry and deletes every sample, protected or not: the way out. Requests still out will
    /// be rejected by `Update` when their answers come.
    void Clear();

    /// Removes what can be removed (see the class) before `tp`; returns how many entries that were.
    std::size_t EraseBefore(const Time::TimePoint& tp);

    /// Removes what can be removed after `tp`, only entries of type `e` unless that is `Not_Found`; returns
    /// how many entries that were. With `Pending` it removes nothing: no eviction drops a request.
    std::size_t EraseAfter(const Time::TimePoint& tp, EntryType e);

private:
    using Iterator = CacheEntries::Iterator;

    Iterator FirstOfSample(std::int64_t number, const SampleRate& rate);
    Iterator Closer(const Time::TimePoint& tp, Iterator before, Iterator after);
    EntryType HandOut(Iterator entry, ISample** sample);
    void File(const Output& output);
    [[noreturn]] void Refuse(const std::string& message) const;
    static bool MayBeErased(const CacheEntry& entry, bool isInUse);
    Iterator Erase(Iterator entry);
    void NoteInserted(const Time::TimePoint& tp) noexcept;

    class ErasedStretch;

    CacheUpdateQueue queue_;
    SampleRate streamRate_;
    CacheEntries cache_;
    SampleRuns runs_;  ///< Of the entries' numbers at `runsRate_`.
    SampleRate runsRate_;
    bool hasRuns_ = false;
    Time::TimePoint usedSample_;
    TrackId trackId_;
    qor::kp::logging::ILogger* logger_;
};

}  // namespace Tavrin::Player
