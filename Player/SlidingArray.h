#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace Tavrin::Player {

/// Small values side by side, in order, with room at both ends: adding and removing at an end moves nothing,
/// and in between the shorter side. For what belongs to a window that slides in either direction.
///
///     [ . . . v v v v v v v . . ]
///
/// *Threads:* externally synchronised.
/// *Memory:* doubles when there is no room; `GiveBack` takes it back.
/// *Errors:* when memory runs out, the array is unchanged. After `Reserve`, nothing throws up to that size.
template <typename Value>
class SlidingArray {
    static_assert(std::is_trivially_copyable_v<Value>, "values are moved as bytes");

public:
    SlidingArray() = default;
    SlidingArray(const SlidingArray& other) { *this = other; }
    SlidingArray& operator=(const SlidingArray& other) {
        if (this != &other) {
            Reserve(other.size());
            Place(other.begin(), other.end(), Middle(other.size()));
        }
        return *this;
    }
    ~SlidingArray() = default;

    [[nodiscard]] std::size_t size() const { return end_ - begin_; }
    [[nodiscard]] bool empty() const { return begin_ == end_; }
    [[nodiscard]] std::size_t Capacity() const { return capacity_; }

    [[nodiscard]] Value* begin() { return values_.get() + begin_; }
    [[nodiscard]] Value* end() { return values_.get() + end_; }
    [[nodiscard]] const Value* begin() const { return values_.get() + begin_; }
    [[nodiscard]] const Value* end() const { return values_.get() + end_; }
    Value& operator[](std::size_t at) { return values_[begin_ + at]; }
    const Value& operator[](std::size_t at) const { return values_[begin_ + at]; }
    [[nodiscard]] const Value& Front() const { return values_[begin_]; }
    [[nodiscard]] const Value& Back() const { return values_[end_ - 1]; }

    void Reserve(std::size_t size) {
        if (size > capacity_) {
            Reallocate(size);
        }
    }

    /// Adds a value before the one at `at`, which may be the size.
    void Insert(std::size_t at, const Value& value) {
        const Value added = value;  // it may be one of these
        const bool isNearEnd = at >= size() / 2;
        if (isNearEnd ? end_ == capacity_ : begin_ == 0) {
            MakeRoom();
        }
        // In a nearly full array even the middle may touch one of the ends.
        if (end_ < capacity_ && (isNearEnd || begin_ == 0)) {
            std::copy_backward(begin() + at, end(), end() + 1);
            ++end_;
        } else {
            std::copy(begin(), begin() + at, begin() - 1);
            --begin_;
        }
        values_[begin_ + at] = added;
    }

    /// Removes the value at `at`.
    void Erase(std::size_t at) { Erase(at, at + 1); }

    /// Removes the values from `from` to before `to`.
    void Erase(std::size_t from, std::size_t to) {
        if (from < size() - to) {
            std::copy_backward(begin(), begin() + from, begin() + to);
            begin_ += to - from;
        } else {
            std::copy(begin() + to, end(), begin() + from);
            end_ -= to - from;
        }
    }

    void Clear() { begin_ = end_ = capacity_ / 2; }

    /// Gives memory back when more than four times what is needed is held, and more than for `fewest` values.
    /// Keeps twice what is needed, so that a window that goes up and down a little does not come here each
    /// time. Throws nothing: without memory for the smaller copy, all stays as it is.
    void GiveBack(std::size_t fewest) noexcept {
        constexpr std::size_t farMore = 4;
        if (capacity_ <= std::max(fewest, farMore * size())) {
            return;
        }
        try {
            Reallocate(std::max(fewest, 2 * size()));
        } catch (const std::bad_alloc&) {
            return;
        }
    }

private:
    static constexpr std::size_t kFewest = 8;

    [[nodiscard]] std::size_t Middle(std::size_t size) const { return (capacity_ - size) / 2; }

    /// Moves the values to where there is as much room on either side; to more memory when there is so little
    /// room that this would happen often.
    void MakeRoom() {
        constexpr std::size_t often = 4;
        if (capacity_ - size() <= size() / often) {
            try {
                Reallocate(kFewest + 2 * size());
                return;
            } catch (const std::bad_alloc&) {
                if (size() == capacity_) {
                    throw;
                }
            }
        }
        Place(begin(), end(), Middle(size()));
    }

    void Place(const Value* from, const Value* to, std::size_t target) {
        const auto size = static_cast<std::size_t>(to - from);
        Value* const destination = values_.get() + target;
        if (destination < from || destination >= to) {
            std::copy(from, to, destination);
        } else {
            std::copy_backward(from, to, destination + size);
        }
        begin_ = target;
        end_ = target + size;
    }

    void Reallocate(std::size_t capacity) {
        auto values = std::make_unique_for_overwrite<Value[]>(capacity);
        const std::size_t target = (capacity - size()) / 2;
        std::copy(begin(), end(), values.get() + target);
        end_ = target + size();
        begin_ = target;
        values_ = std::move(values);
        capacity_ = capacity;
    }

    std::unique_ptr<Value[]> values_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

}  // namespace Tavrin::Player
