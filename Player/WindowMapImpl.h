#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "Player/WindowMap.h"

namespace Tavrin::Player {

/// The last block that begins at or before `tp`, or the first one.
template <typename Value>
std::size_t WindowMap<Value>::BlockOf(const Time::TimePoint& tp) const {
    const std::size_t nbBlocks = firsts_.size();
    if (nbBlocks > kNbBlocksToGuess) {
        std::size_t guess = GuessOf(tp - firsts_.Front(), firsts_.Back() - firsts_.Front(), nbBlocks - 1);
        for (int step = 0; step <= kNbStepsFromGuess; ++step) {
            if (guess > 0 && tp < firsts_[guess]) {
                --guess;
            } else if (guess + 1 < nbBlocks && firsts_[guess + 1] <= tp) {
                ++guess;
            } else {
                return guess;
            }
        }
    }
    // Written so that it compiles without a branch that depends on the keys: those are as good as random to
    // the processor.
    std::size_t found = 0;
    for (std::size_t nb = nbBlocks; nb > 1;) {
        const std::size_t half = nb / 2;
        found += firsts_[found + half] <= tp ? half : 0;
        nb -= half;
    }
    return found;
}

/// The block's first slot at or after `tp`, or its end.
template <typename Value>
unsigned WindowMap<Value>::SlotOf(std::size_t at, const Time::TimePoint& tp) const {
    const Block& block = blocks_[at];
    const auto& keys = block.slots_->keys_;
    if (firsts_.size() > kNbBlocksToGuess && at + 1 < firsts_.size()) {
        auto guess = static_cast<unsigned>(
            block.begin_ + GuessOf(tp - firsts_[at], firsts_[at + 1] - firsts_[at], block.Size()));
        for (int step = 0; step <= kNbStepsFromGuess; ++step) {
            if (guess > block.begin_ && tp <= keys[guess - 1]) {
                --guess;
            } else if (guess < block.end_ && keys[guess] < tp) {
                ++guess;
            } else {
                return guess;
            }
        }
    }
    unsigned found = block.begin_;
    for (unsigned nb = block.Size(); nb > 1;) {
        const unsigned half = nb / 2;
        found += keys[found + half - 1] < tp ? half : 0;
        nb -= half;
    }
    return found + (keys[found] < tp ? 1U : 0U);
}

/// Where among `nb` evenly spaced keys the part of the whole ends. The entries of a recording are mostly
/// evenly spaced, and then the guess saves the search its reads, each of which waits for the one before.
template <typename Value>
std::size_t WindowMap<Value>::GuessOf(const Time::TimePoint& part, const Time::TimePoint& whole,
                                      std::size_t nb) {
    std::uint64_t scaled = 0;
    const std::int64_t nanoseconds = part.Nanoseconds();
    if (nanoseconds <= 0) {
        return 0;
    }
    if (part >= whole || __builtin_mul_overflow(static_cast<std::uint64_t>(nanoseconds), nb, &scaled)) {
        return nb;
    }
    return scaled / static_cast<std::uint64_t>(whole.Nanoseconds());
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::LowerBound(const Time::TimePoint& tp) {
    if (empty()) {
        return end();
    }
    const std::size_t at = BlockOf(tp);
    const unsigned slot = SlotOf(at, tp);
    return slot == blocks_[at].end_ ? Iterator::FirstOf(this, at + 1) : Iterator(this, at, slot);
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::Find(const Time::TimePoint& tp) {
    const Iterator place = LowerBound(tp);
    return place != end() && place.Key() == tp ? place : end();
}

template <typename Value>
std::pair<typename WindowMap<Value>::Iterator, bool> WindowMap<Value>::Insert(const Time::TimePoint& tp) {
    const std::size_t at = BlockOf(tp);
    const unsigned slot = empty() ? 0 : SlotOf(at, tp);
    if (!empty() && slot != blocks_[at].end_ && blocks_[at].slots_->keys_[slot] == tp) {
        return {Iterator(this, at, slot), false};
    }
    const Iterator room = RoomAt(at, slot);
    Block& block = blocks_[room.block_];
    block.slots_->keys_[room.slot_] = tp;
    block.slots_->values_[room.slot_] = Value();
    NoteFirst(room.block_);
    ++size_;
    return {room, true};
}

/// Makes room for an entry before the slot of the block. The slot belongs to the block from then on; what is
/// in it is to be overwritten.
template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::RoomAt(std::size_t at, unsigned slot) {
    if (empty()) {
        return RoomInNewBlock(0, 0);
    }
    if (slot == blocks_[at].begin_) {
        return RoomBeforeFirst();  // in every other block the search ends behind its first entry
    }
    return slot == blocks_[at].end_ ? RoomBehindLastOf(at) : RoomWithin(at, slot);
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::RoomBeforeFirst() {
    Block& block = blocks_[0];
    if (block.begin_ == 0) {
        if (!IsHalfEmpty(block)) {
            return RoomInNewBlock(0, kNbSlots - 1);
        }
        MoveAllTo(0, kNbSlots - block.Size());
    }
    return {this, 0, --block.begin_};
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::RoomBehindLastOf(std::size_t at) {
    Block& block = blocks_[at];
    if (block.end_ == kNbSlots) {
        if (at + 1 < blocks_.size() && blocks_[at + 1].begin_ > 0) {
            return {this, at + 1, --blocks_[at + 1].begin_};
        }
        if (at + 1 < blocks_.size() && IsHalfEmpty(blocks_[at + 1])) {
            // Rather than a new block before it: with entries that come in descending order, each would get
            // one of its own.
            MoveAllTo(at + 1, kNbSlots - blocks_[at + 1].Size());
            return {this, at + 1, --blocks_[at + 1].begin_};
        }
        if (!IsHalfEmpty(block)) {
            return RoomInNewBlock(at + 1, 0);
        }
        MoveAllTo(at, 0);
    }
    return {this, at, block.end_++};
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::RoomWithin(std::size_t at, unsigned slot) {
    if (blocks_[at].Size() == kNbSlots) {
        Split(at);
        at += slot > blocks_[at].end_ ? 1 : 0;
    }
    Block& block = blocks_[at];
    const bool isBehindMiddle = slot - block.begin_ >= block.Size() / 2;
    if (block.begin_ == 0 || (isBehindMiddle && block.end_ < kNbSlots)) {
        MoveWithin(at, slot, block.end_++, slot + 1);
        return {this, at, slot};
    }
    MoveWithin(at, block.begin_, slot, block.begin_ - 1U);
    --block.begin_;
    return {this, at, slot - 1};
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::RoomInNewBlock(std::size_t at, unsigned slot) {
    AddBlock(at, slot);
    ++blocks_[at].end_;
    return {this, at, slot};
}

/// Moves the upper half of a full block, slot by slot, to a new one behind it: both have room then where the
/// other has its entries.
template <typename Value>
void WindowMap<Value>::Split(std::size_t at) {
    constexpr unsigned middle = kNbSlots / 2;
    AddBlock(at + 1, middle);
    Block& lower = blocks_[at];
    Block& upper = blocks_[at + 1];
    std::move(lower.slots_->keys_.begin() + middle, lower.slots_->keys_.end(),
              upper.slots_->keys_.begin() + middle);
    std::move(lower.slots_->values_.begin() + middle, lower.slots_->values_.end(),
              upper.slots_->values_.begin() + middle);
    upper.end_ = kNbSlots;
    lower.end_ = middle;
    NoteFirst(at + 1);
    marks_[at + 1] = marks_[at] & ~BitsBefore(middle);
    marks_[at] &= BitsBefore(middle);
    NoteMarks(at);
    NoteMarks(at + 1);
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::Erase(Iterator place) {
    const std::size_t at = place.block_;
    const Time::TimePoint key = place.Key();
    const Block& block = blocks_[at];
    --size_;
    if (block.Size() == 1) {
        RemoveBlock(at);
        return Iterator::FirstOf(this, at);
    }
    const unsigned next = Vacate(at, place.slot_);
    NoteFirst(at);
    if (JoinNeighbours(at)) {
        return LowerBound(key);
    }
    return next == block.end_ ? Iterator::FirstOf(this, at + 1) : Iterator(this, at, next);
}

/// Takes the slot out of the block; returns the slot of the entry behind.
template <typename Value>
unsigned WindowMap<Value>::Vacate(std::size_t at, unsigned slot) {
    Block& block = blocks_[at];
    marks_[at] &= ~Bit(slot);
    NoteMarks(at);
    if (slot - block.begin_ < block.Size() / 2) {
        MoveWithin(at, block.begin_, slot, block.begin_ + 1U);
        ++block.begin_;
        return slot + 1;
    }
    MoveWithin(at, slot + 1, block.end_, slot);
    --block.end_;
    return slot;
}

template <typename Value>
bool WindowMap<Value>::JoinNeighbours(std::size_t at) {
    const auto fitIntoHalf = [this](std::size_t lower) {
        return lower + 1 < blocks_.size() &&
               blocks_[lower].Size() + blocks_[lower + 1].Size() <= kNbSlots / 2;
    };
    if (fitIntoHalf(at)) {
        Join(at);
        return true;
    }
    if (at > 0 && fitIntoHalf(at - 1)) {
        Join(at - 1);
        return true;
    }
    return false;
}

/// Moves the entries of the block behind into this one.
template <typename Value>
void WindowMap<Value>::Join(std::size_t at) {
    Block& lower = blocks_[at];
    const Block& upper = blocks_[at + 1];
    MoveAllTo(at, 0);
    for (unsigned slot = upper.begin_; slot < upper.end_; ++slot) {
        lower.slots_->keys_[lower.end_] = upper.slots_->keys_[slot];
        lower.slots_->values_[lower.end_] = std::move(upper.slots_->values_[slot]);
        marks_[at] |= (marks_[at + 1] & Bit(slot)) != 0 ? Bit(lower.end_) : 0;
        ++lower.end_;
    }
    NoteMarks(at);
    RemoveBlock(at + 1);
}

template <typename Value>
void WindowMap<Value>::AddBlock(std::size_t at, unsigned begin) {
    // All that may throw comes first.
    const std::size_t nbBlocks = blocks_.size() + 1;
    spares_.reserve(NbSparesFor(nbBlocks) + 1);  // RemoveBlock adds before it counts
    blocks_.Reserve(nbBlocks);
    firsts_.Reserve(nbBlocks);
    marks_.Reserve(nbBlocks);
    markedBlocks_.Reserve(nbBlocks);
    Block block;
    block.begin_ = static_cast<std::uint16_t>(begin);
    block.end_ = block.begin_;
    if (spares_.empty()) {
        block.slots_ = new Slots;
    } else {
        block.slots_ = spares_.back().release();
        spares_.pop_back();
    }
    blocks_.Insert(at, block);
    firsts_.Insert(at, Time::TimePoint());
    marks_.Insert(at, 0);
    markedBlocks_.Insert(at);
}

template <typename Value>
void WindowMap<Value>::RemoveBlock(std::size_t at) {
    spares_.emplace_back(blocks_[at].slots_);
    blocks_.Erase(at);
    firsts_.Erase(at);
    marks_.Erase(at);
    markedBlocks_.Erase(at);
    while (spares_.size() > NbSparesFor(blocks_.size())) {
        spares_.pop_back();
    }
    blocks_.GiveBack(kNbBlocksKept);
    firsts_.GiveBack(kNbBlocksKept);
    marks_.GiveBack(kNbBlocksKept);
}

template <typename Value>
void WindowMap<Value>::Clear() {
    while (!blocks_.empty()) {
        RemoveBlock(blocks_.size() - 1);
    }
    while (spares_.size() > 1) {
        spares_.pop_back();
    }
    size_ = 0;
}

/// Moves entries, with their marks, to other slots of the block.
template <typename Value>
void WindowMap<Value>::MoveWithin(std::size_t at, unsigned begin, unsigned end, unsigned target) {
    if (target == begin) {
        return;
    }
    const auto move = [=](auto& items) {
        const auto first = items.begin();
        if (target < begin) {
            std::move(first + begin, first + end, first + target);
        } else {
            std::move_backward(first + begin, first + end, first + target + (end - begin));
        }
    };
    move(blocks_[at].slots_->keys_);
    move(blocks_[at].slots_->values_);
    const Marks moved = marks_[at] & BitsBefore(end) & ~BitsBefore(begin);
    const Marks arrived = target < begin ? moved >> (begin - target) : moved << (target - begin);
    marks_[at] = (marks_[at] & ~moved) | arrived;
}

template <typename Value>
void WindowMap<Value>::MoveAllTo(std::size_t at, unsigned target) {
    Block& block = blocks_[at];
    const unsigned size = block.Size();
    MoveWithin(at, block.begin_, block.end_, target);
    block.begin_ = static_cast<std::uint16_t>(target);
    block.end_ = static_cast<std::uint16_t>(target + size);
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::MarkedFrom(Iterator place) {
    std::size_t at = place.block_;
    if (at == blocks_.size()) {
        return end();
    }
    Marks marks = marks_[at] & ~BitsBefore(place.slot_);
    if (marks == 0) {
        at = markedBlocks_.SetFrom(at + 1);
        if (at == blocks_.size()) {
            return end();
        }
        marks = marks_[at];
    }
    return {this, at, static_cast<unsigned>(std::countr_zero(marks))};
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::MarkedBefore(Iterator place) {
    std::size_t at = place.block_;
    Marks marks = at == blocks_.size() ? 0 : marks_[at] & BitsBefore(place.slot_);
    if (marks == 0) {
        at = markedBlocks_.SetBefore(at);
        if (at == blocks_.size()) {
            return end();
        }
        marks = marks_[at];
    }
    return {this, at, static_cast<unsigned>(std::bit_width(marks)) - 1};
}

template <typename Value>
std::size_t WindowMap<Value>::NbMarkedFrom(Iterator place) const {
    std::size_t nb = 0;
    for (std::size_t at = place.block_; at < blocks_.size(); ++at) {
        const Marks counted = at == place.block_ ? ~BitsBefore(place.slot_) : ~Marks{0};
        nb += static_cast<std::size_t>(std::popcount(marks_[at] & counted));
    }
    return nb;
}

}  // namespace Tavrin::Player
