#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace Tavrin::Player {

/// A first-in, first-out sequence whose memory is used again: the storage of `LockedQueue`.
///
///     first_ -> segment -> ... -> segment <- last_        spares_ -> segment -> ... -> segment
///                  |                 |
///                read_             write_
///
/// Entries never move. Segments that were emptied are kept as spares, so once a sequence has held as many
/// entries as it usually does, pushing and popping allocate nothing. A slot is overwritten, not destroyed, when
/// it is used again: what entries allocate themselves (a long address) is reused too, and a copy of a popped
/// entry stays until then. Entries therefore hold values and plain pointers, nothing that must be released at
/// once.
///
/// *Threads:* externally synchronised.
/// *Memory:* nothing until the first push. Bounded by what it held at its fullest, and given back after a
/// burst: when for `kQuietPeriod` no more than a quarter of the segments was needed, half of the spare ones are
/// freed, a few each time it runs empty, and so on. One that never runs empty, or that is not used at all, keeps
/// its spares. `Clear` and the destructor free everything.
/// *Errors:* whatever throws, copying or allocating, leaves the sequence as it was.
template <typename Entry, typename Clock = std::chrono::steady_clock>
class SegmentedFifo {
public:
    /// Half a kilobyte of small entries: thousands of queues, one per track, mostly hold a few entries each.
    /// Never so few entries that changing segments is felt.
    static constexpr std::size_t kNbEntriesPerSegment = std::max<std::size_t>(16, 512 / sizeof(Entry));

    /// Longer than the lull between two bursts that belong together: a burst at every tick, or one whenever
    /// an operator moves the play head.
    static constexpr std::chrono::seconds kQuietPeriod{10};

    /// How many spare segments are freed at most when the sequence runs empty.
    static constexpr std::uint32_t kNbFreedPerRound = 4;

    /// How often a sequence that runs empty looks at the clock: reading it costs as much as a push.
    static constexpr std::uint32_t kNbRoundsPerLook = 16;

    SegmentedFifo() = default;
    SegmentedFifo(const SegmentedFifo&) = delete;
    SegmentedFifo& operator=(const SegmentedFifo&) = delete;
    ~SegmentedFifo() { Clear(); }

    std::size_t GetSize() const {
        if (first_ == nullptr) {
            return 0;
        }
        const auto nbBefore = static_cast<std::size_t>(read_ - first_->Begin());
        const auto nbInLast = static_cast<std::size_t>(write_ - last_->Begin());
        return (std::size_t{nbUsed_} - 1) * kNbEntriesPerSegment + nbInLast - nbBefore;
    }

    /// How many entries the memory held at this moment is enough for.
    std::size_t GetCapacity() const { return (std::size_t{nbUsed_} + nbSpares_) * kNbEntriesPerSegment; }

    /// Appends a copy of `entry`.
    void Push(const Entry& entry) {
        if (write_ == writeEnd_) {
            PushToSpare(entry);
        } else {
            last_->Put(write_, entry);
            ++write_;
        }
    }

    /// Assigns the oldest entry to `out` and removes it; false, with `out` untouched, when there is none.
    bool Pop(Entry& out) {
        if (read_ == write_) {
            return false;
        }
        out = read_->entry_;
        ++read_;
        if (read_ == write_) {
            EndRound();
        } else if (read_ == first_->End()) {
            DropFirst();
        }
        return true;
    }

    /// Destroys all entries and frees all memory.
    void Clear() {
        FreeAll(first_);
        FreeAll(spares_);
        last_ = nullptr;
        read_ = write_ = writeEnd_ = nullptr;
        nbUsed_ = nbSpares_ = nbUsedAtMost_ = nbQuietRounds_ = nbToFree_ = 0;
    }

private:
    /// Room for one entry, which is constructed when it is first needed.
    union Slot {
        Slot() {}   // NOLINT(modernize-use-equals-default): deleted if defaulted
        ~Slot() {}  // NOLINT(modernize-use-equals-default)
        Entry entry_;
    };

    class Segment {
    public:
        Segment() = default;
        Segment(const Segment&) = delete;
        Segment& operator=(const Segment&) = delete;
        ~Segment() {
            for (Slot* slot = Begin(); slot != unused_; ++slot) {
                std::destroy_at(&slot->entry_);
            }
        }

        Slot* Begin() { return slots_.data(); }
        Slot* End() { return slots_.data() + kNbEntriesPerSegment; }

        /// Slots are used in order, so this is one that was used before or the first that was not.
        void Put(Slot* slot, const Entry& entry) {
            if (slot != unused_) {
                slot->entry_ = entry;
            } else {
                std::construct_at(&slot->entry_, entry);
                ++unused_;
            }
        }

        std::unique_ptr<Segment> next_;

    private:
        std::array<Slot, kNbEntriesPerSegment> slots_;
        Slot* unused_ = Begin();  ///< From here on, no slot has held an entry yet.
    };

    using Chain = std::unique_ptr<Segment>;

    /// One after the other: left to the chain itself, a long one would be destroyed in as many nested calls.
    static void FreeAll(Chain& chain) {
        while (chain != nullptr) {
            chain = std::move(chain->next_);
        }
    }

    void PushToSpare(const Entry& entry) {
        if (spares_ == nullptr) {
            spares_ = std::make_unique_for_overwrite<Segment>();
            ++nbSpares_;
        }
        // Before the segment joins the others: if copying throws, it is a spare still.
        spares_->Put(spares_->Begin(), entry);
        Chain segment = std::move(spares_);
        spares_ = std::move(segment->next_);
        --nbSpares_;
        Append(std::move(segment));
        ++write_;
    }

    void Append(Chain segment) {
        Segment* const added = segment.get();
        if (last_ == nullptr) {
            first_ = std::move(segment);
            read_ = added->Begin();
        } else {
            last_->next_ = std::move(segment);
        }
        last_ = added;
        write_ = added->Begin();
        writeEnd_ = added->End();
        ++nbUsed_;
        nbUsedAtMost_ = std::max(nbUsedAtMost_, nbUsed_);
    }

    void DropFirst() {
        Chain emptied = std::move(first_);
        first_ = std::move(emptied->next_);
        read_ = first_->Begin();
        emptied->next_ = std::move(spares_);
        spares_ = std::move(emptied);
        ++nbSpares_;
        --nbUsed_;
    }

    /// The one segment left is filled again from its beginning, whose memory is still near the processor.
    void EndRound() {
        read_ = write_ = last_->Begin();
        if (nbSpares_ != 0) {
            JudgeRound();
        }
    }

    /// A round lasts from one moment at which the sequence runs empty to the next.
    void JudgeRound() {
        const bool wasQuiet = nbUsedAtMost_ * 4 <= nbUsed_ + nbSpares_;
        nbUsedAtMost_ = nbUsed_;
        nbQuietRounds_ = wasQuiet ? nbQuietRounds_ + 1 : 0;
        nbToFree_ = wasQuiet ? nbToFree_ : 0;
        if (wasQuiet && nbQuietRounds_ % kNbRoundsPerLook == 0) {
            LookAtClock();
        }
        FreeSome();
    }

    void LookAtClock() {
        const auto now = Clock::now();
        if (nbQuietRounds_ == kNbRoundsPerLook) {
            quietSince_ = now;
        } else if (now - quietSince_ >= kQuietPeriod) {
            nbToFree_ = nbSpares_ - nbSpares_ / 2;
            quietSince_ = now;
        }
    }

    /// A few at a time: somebody may be waiting for the lock under which this is done.
    void FreeSome() {
        for (std::uint32_t nb = std::min(nbToFree_, kNbFreedPerRound); nb > 0; --nb) {
            spares_ = std::move(spares_->next_);
            --nbSpares_;
            --nbToFree_;
        }
    }

    // Empty when `read_` and `write_` are the same. Both are null until the first push.
    Slot* read_ = nullptr;
    Slot* write_ = nullptr;
    Slot* writeEnd_ = nullptr;
    Chain first_;
    Segment* last_ = nullptr;
    std::uint32_t nbUsed_ = 0;
    std::uint32_t nbSpares_ = 0;
    Chain spares_;
    std::uint32_t nbUsedAtMost_ = 0;   ///< In the current round.
    std::uint32_t nbQuietRounds_ = 0;  ///< In a row.
    std::uint32_t nbToFree_ = 0;
    typename Clock::time_point quietSince_;
};

}  // namespace Tavrin::Player
