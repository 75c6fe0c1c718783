#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>

#include "Player/WindowMap.h"

namespace Tavrin::Player {

template <typename Value>
std::size_t WindowMap<Value>::BlockOf(const Time::TimePoint& tp) const {
    // The last block that begins at or before `tp`, or the first. Written so that it compiles without a
    // branch that depends on the keys: those are as good as random to the processor.
    std::size_t found = 0;
    for (std::size_t nb = blocks_.size(); nb > 1;) {
        const std::size_t half = nb / 2;
        found += blocks_[found + half].first_ <= tp ? half : 0;
        nb -= half;
    }
    return found;
}

/// The first slot at or after `tp`, or the block's end.
template <typename Value>
unsigned WindowMap<Value>::SlotOf(const Block& block, const Time::TimePoint& tp) {
    const auto& keys = block.slots_->keys_;
    unsigned found = block.begin_;
    for (unsigned nb = block.Size(); nb > 1;) {
        const unsigned half = nb / 2;
        found += keys[found + half - 1] < tp ? half : 0;
        nb -= half;
    }
    return found + (keys[found] < tp ? 1U : 0U);
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::LowerBound(const Time::TimePoint& tp) {
    if (empty()) {
        return end();
    }
    const std::size_t at = BlockOf(tp);
    const unsigned slot = SlotOf(blocks_[at], tp);
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
    const unsigned slot = empty() ? 0 : SlotOf(blocks_[at], tp);
    if (!empty() && slot != blocks_[at].end_ && blocks_[at].slots_->keys_[slot] == tp) {
        return {Iterator(this, at, slot), false};
    }
    const Iterator room = RoomAt(at, slot);
    Block& block = blocks_[room.block_];
    block.slots_->keys_[room.slot_] = tp;
    block.slots_->values_[room.slot_] = Value();
    block.first_ = block.slots_->keys_[block.begin_];
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
    Block& block = blocks_.front();
    if (block.begin_ == 0) {
        if (!IsHalfEmpty(block)) {
            return RoomInNewBlock(0, kNbSlots - 1);
        }
        MoveAllTo(block, kNbSlots - block.Size());
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
        if (!IsHalfEmpty(block)) {
            return RoomInNewBlock(at + 1, 0);
        }
        MoveAllTo(block, 0);
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
        MoveWithin(block, slot, block.end_++, slot + 1);
        return {this, at, slot};
    }
    MoveWithin(block, block.begin_, slot, block.begin_ - 1U);
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
    upper.first_ = upper.slots_->keys_[middle];
    upper.marks_ = lower.marks_ & ~BitsBefore(middle);
    lower.end_ = middle;
    lower.marks_ &= BitsBefore(middle);
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::Erase(Iterator place) {
    const std::size_t at = place.block_;
    const Time::TimePoint key = place.Key();
    Block& block = blocks_[at];
    --size_;
    if (block.Size() == 1) {
        RemoveBlock(at);
        return Iterator::FirstOf(this, at);
    }
    const unsigned next = Vacate(block, place.slot_);
    block.first_ = block.slots_->keys_[block.begin_];
    if (JoinNeighbours(at)) {
        return LowerBound(key);
    }
    return next == block.end_ ? Iterator::FirstOf(this, at + 1) : Iterator(this, at, next);
}

/// Takes the slot out of the block; returns the slot of the entry behind.
template <typename Value>
unsigned WindowMap<Value>::Vacate(Block& block, unsigned slot) {
    block.marks_ &= ~Bit(slot);
    if (slot - block.begin_ < block.Size() / 2) {
        MoveWithin(block, block.begin_, slot, block.begin_ + 1U);
        ++block.begin_;
        return slot + 1;
    }
    MoveWithin(block, slot + 1, block.end_, slot);
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
    MoveAllTo(lower, 0);
    for (unsigned slot = upper.begin_; slot < upper.end_; ++slot) {
        lower.slots_->keys_[lower.end_] = upper.slots_->keys_[slot];
        lower.slots_->values_[lower.end_] = std::move(upper.slots_->values_[slot]);
        lower.marks_ |= (upper.marks_ & Bit(slot)) != 0 ? Bit(lower.end_) : 0;
        ++lower.end_;
    }
    RemoveBlock(at + 1);
}

template <typename Value>
void WindowMap<Value>::AddBlock(std::size_t at, unsigned begin) {
    if (blocks_.size() == blocks_.capacity()) {
        const std::size_t capacity = 2 * blocks_.size() + 1;
        blocks_.reserve(capacity);
        spares_.reserve(NbSparesFor(capacity) + 1);  // RemoveBlock adds before it counts
    }
    Block block;
    block.begin_ = static_cast<std::uint16_t>(begin);
    block.end_ = block.begin_;
    if (spares_.empty()) {
        block.slots_ = std::make_unique<Slots>();
    } else {
        block.slots_ = std::move(spares_.back());
        spares_.pop_back();
    }
    blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(at), std::move(block));
}

template <typename Value>
void WindowMap<Value>::RemoveBlock(std::size_t at) {
    spares_.push_back(std::move(blocks_[at].slots_));
    blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(at));
    while (spares_.size() > NbSparesFor(blocks_.size())) {
        spares_.pop_back();
    }
}

template <typename Value>
void WindowMap<Value>::Clear() {
    blocks_.clear();
    spares_.clear();
    size_ = 0;
}

/// Moves entries, with their marks, to other slots of the block.
template <typename Value>
void WindowMap<Value>::MoveWithin(Block& block, unsigned begin, unsigned end, unsigned target) {
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
    move(block.slots_->keys_);
    move(block.slots_->values_);
    const Marks moved = block.marks_ & BitsBefore(end) & ~BitsBefore(begin);
    const Marks arrived = target < begin ? moved >> (begin - target) : moved << (target - begin);
    block.marks_ = (block.marks_ & ~moved) | arrived;
}

template <typename Value>
void WindowMap<Value>::MoveAllTo(Block& block, unsigned target) {
    const unsigned size = block.Size();
    MoveWithin(block, block.begin_, block.end_, target);
    block.begin_ = static_cast<std::uint16_t>(target);
    block.end_ = static_cast<std::uint16_t>(target + size);
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::MarkedFrom(Iterator place) {
    std::size_t at = place.block_;
    if (at == blocks_.size()) {
        return end();
    }
    Marks marks = blocks_[at].marks_ & ~BitsBefore(place.slot_);
    while (marks == 0) {
        if (++at == blocks_.size()) {
            return end();
        }
        marks = blocks_[at].marks_;
    }
    return {this, at, static_cast<unsigned>(std::countr_zero(marks))};
}

template <typename Value>
typename WindowMap<Value>::Iterator WindowMap<Value>::MarkedBefore(Iterator place) {
    std::size_t at = place.block_;
    Marks marks = at == blocks_.size() ? 0 : blocks_[at].marks_ & BitsBefore(place.slot_);
    while (marks == 0) {
        if (at == 0) {
            return end();
        }
        marks = blocks_[--at].marks_;
    }
    return {this, at, kNbSlots - 1 - static_cast<unsigned>(std::countl_zero(marks))};
}

template <typename Value>
std::size_t WindowMap<Value>::NbMarkedFrom(Iterator place) const {
    std::size_t nb = 0;
    for (std::size_t at = place.block_; at < blocks_.size(); ++at) {
        const Marks counted = at == place.block_ ? ~BitsBefore(place.slot_) : ~Marks{0};
        nb += static_cast<std::size_t>(std::popcount(blocks_[at].marks_ & counted));
    }
    return nb;
}

}  // namespace Tavrin::Player
