#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "Player/BitRow.h"
#include "Player/SlidingArray.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

/// An ordered map from time points, made for windows that slide over a recording: entries come at one end and
/// go at the other, in either direction, and now and then in between. Any entry can carry a mark, and the
/// nearest marked entry on either side of a place is found without a look at the entries in between.
///
/// The entries lie side by side in blocks of up to 24; a directory says where each block begins and which of
/// its entries are marked:
///
///     directory   first, marks        first, marks        first, marks
///     blocks      [ . . k k k k k ]   [ k k k k k k k ]   [ k k k . . . . ]
///
/// A search is two short searches among neighbouring keys. Coming and going at an end moves nothing; in
/// between, at most the entries of one block.
///
/// *Threads:* externally synchronised.
/// *Memory:* two neighbouring blocks are always more than half full together. Of the blocks that have emptied
/// two, and one for every four in use, are kept for reuse, so that a window that slides allocates nothing; the
/// others are given back at once. The directory takes 30 bytes a block, and up to four times as much after
/// blocks have gone.
/// *Errors:* when memory runs out, `Insert` changes nothing. Nothing else throws.
///
/// The definitions are in "Player/WindowMapImpl.h", for those who instantiate it.
template <typename Value>
class WindowMap {
public:
    /// A place in the map: that of an entry, or the end. Any insertion or removal invalidates it.
    template <bool IsConst>
    class Place {
        using Map = std::conditional_t<IsConst, const WindowMap, WindowMap>;

    public:
        const Time::TimePoint& Key() const { return Slots().keys_[slot_]; }
        std::conditional_t<IsConst, const Value&, Value&> Get() const { return Slots().values_[slot_]; }

        /// The entry of a place is asked of the place: this is for range-based loops.
        const Place& operator*() const { return *this; }

        Place& operator++() {
            if (++slot_ == map_->blocks_[block_].end_) {
                *this = FirstOf(map_, std::size_t{block_} + 1);
            }
            return *this;
        }

        Place& operator--() {
            if (block_ == map_->blocks_.size() || slot_ == map_->blocks_[block_].begin_) {
                --block_;
                slot_ = map_->blocks_[block_].end_;
            }
            --slot_;
            return *this;
        }

        friend bool operator==(const Place& left, const Place& right) {
            return left.block_ == right.block_ && left.slot_ == right.slot_;
        }

    private:
        friend class WindowMap;

        Place(Map* map, std::size_t block, unsigned slot)
            : map_(map), block_(static_cast<std::uint32_t>(block)), slot_(slot) {}

        /// The first entry of the block; the end for one past the last block.
        static Place FirstOf(Map* map, std::size_t block) {
            return {map, block, block < map->blocks_.size() ? map->blocks_[block].begin_ : 0U};
        }

        auto& Slots() const { return *map_->blocks_[block_].slots_; }

        // Two words, which functions return in registers.
        Map* map_;
        std::uint32_t block_;
        std::uint32_t slot_;
    };

    using Iterator = Place<false>;
    using ConstIterator = Place<true>;

    WindowMap() = default;
    WindowMap(const WindowMap&) = delete;
    WindowMap& operator=(const WindowMap&) = delete;
    ~WindowMap() { Clear(); }

    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] std::size_t size() const { return size_; }

    Iterator begin() { return Iterator::FirstOf(this, 0); }
    Iterator end() { return Iterator::FirstOf(this, blocks_.size()); }
    ConstIterator begin() const { return ConstIterator::FirstOf(this, 0); }
    ConstIterator end() const { return ConstIterator::FirstOf(this, blocks_.size()); }

    /// The first entry at or after `tp`; the end when there is none.
    Iterator LowerBound(const Time::TimePoint& tp);

    /// The entry at `tp`; the end when there is none.
    Iterator Find(const Time::TimePoint& tp);

    /// The entry at `tp`, and whether it is new: then it holds a default value and carries no mark.
    std::pair<Iterator, bool> Insert(const Time::TimePoint& tp);

    /// Removes the entry; returns the place of the one after it.
    Iterator Erase(Iterator place);

    /// Removes all entries, and gives back the memory but for one block and the directory's.
    void Clear();

    void Mark(Iterator place) {
        marks_[place.block_] |= Bit(place.slot_);
        NoteMarks(place.block_);
    }

    /// The first marked entry at or after the place; the end when there is none.
    Iterator MarkedFrom(Iterator place);

    /// The last marked entry before the place; the end when there is none.
    Iterator MarkedBefore(Iterator place);

    /// The number of marked entries at or after the place.
    std::size_t NbMarkedFrom(Iterator place) const;

private:
    using Marks = std::uint32_t;

    /// At most as many as `Marks` has bits. With more, entries in between cost more to add; with fewer, long
    /// windows have more blocks to search.
    static constexpr unsigned kNbSlots = 24;
    static constexpr std::size_t kNbBlocksToGuess = 8;  ///< With fewer, a search is as quick as a guess.
    static constexpr int kNbStepsFromGuess = 2;
    static constexpr std::size_t kNbSparesAtLeast = 2;
    static constexpr std::size_t kNbBlocksKept = 16;  ///< Room in the directory that is never given back.
    static constexpr std::size_t kNbBlocksPerSpare = 4;

    struct Slots {
        std::array<Time::TimePoint, kNbSlots> keys_;
        std::array<Value, kNbSlots> values_;
    };

    /// The slots from `begin_` to before `end_` are in use. The map owns them.
    struct Block {
        Slots* slots_ = nullptr;
        std::uint16_t begin_ = 0;
        std::uint16_t end_ = 0;

        unsigned Size() const { return unsigned{end_} - begin_; }
    };

    /// How many emptied blocks are kept beside so many in use.
    static std::size_t NbSparesFor(std::size_t nbBlocks) {
        return kNbSparesAtLeast + nbBlocks / kNbBlocksPerSpare;
    }

    static bool IsHalfEmpty(const Block& block) { return block.Size() <= kNbSlots / 2; }

    static Marks Bit(unsigned slot) { return Marks{1} << slot; }

    /// The bits of the slots before `slot`, which may be one past the last.
    static Marks BitsBefore(unsigned slot) { return Bit(slot) - 1; }

    std::size_t BlockOf(const Time::TimePoint& tp) const;
    unsigned SlotOf(std::size_t at, const Time::TimePoint& tp) const;
    static std::size_t GuessOf(const Time::TimePoint& part, const Time::TimePoint& whole, std::size_t nb);

    void NoteMarks(std::size_t at) { markedBlocks_.Set(at, marks_[at] != 0); }

    Iterator RoomAt(std::size_t at, unsigned slot);
    Iterator RoomBeforeFirst();
    Iterator RoomBehindLastOf(std::size_t at);
    Iterator RoomWithin(std::size_t at, unsigned slot);
    Iterator RoomInNewBlock(std::size_t at, unsigned slot);
    void Split(std::size_t at);
    void AddBlock(std::size_t at, unsigned begin);
    void RemoveBlock(std::size_t at);

    unsigned Vacate(std::size_t at, unsigned slot);
    bool JoinNeighbours(std::size_t at);
    void Join(std::size_t at);

    void MoveWithin(std::size_t at, unsigned begin, unsigned end, unsigned target);
    void MoveAllTo(std::size_t at, unsigned target);
    void NoteFirst(std::size_t at) { firsts_[at] = blocks_[at].slots_->keys_[blocks_[at].begin_]; }

    // The directory, ascending; no block is empty. Searches read only the firsts and the marks, so these lie
    // side by side.
    SlidingArray<Block> blocks_;
    SlidingArray<Time::TimePoint> firsts_;
    SlidingArray<Marks> marks_;
    BitRow markedBlocks_;  ///< A bit for each block, set when it has a mark.
    std::size_t size_ = 0;
    std::vector<std::unique_ptr<Slots>> spares_;
};

}  // namespace Tavrin::Player
