#include "Tools/Semaphore.h"

#include <limits>
#include <stdexcept>
#include <string>

namespace Tavrin::Tools {

namespace {

void RefuseNegative(const char* operation, int count) {
    if (count < 0) {
        throw std::invalid_argument(std::string("Semaphore::") + operation + ": count is " +
                                    std::to_string(count) + ", it must not be negative");
    }
}

}  // namespace

void Semaphore::Setup(int count) {
    RefuseNegative("Setup", count);
    const std::lock_guard<std::mutex> lock(mutex_);
    value_ = count;
    GrantInOrder();
}

void Semaphore::Wait() {
    Wait(1);
}

void Semaphore::Wait(int count) {
    RefuseNegative("Wait", count);
    std::unique_lock<std::mutex> lock(mutex_);
    Block(lock, count, false);
}

bool Semaphore::WaitUnlessRecalled(std::uint64_t nbRecallsSeen) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (nbRecalls_.load() != nbRecallsSeen) {
        return false;
    }
    return Block(lock, 1, true);
}

bool Semaphore::Block(std::unique_lock<std::mutex>& lock, int count, bool recallable) {
    if (first_ == nullptr && value_ >= count) {
        value_ -= count;
        return true;
    }
    if (count == 0) {
        return true;
    }
    Waiter self;
    self.needed_ = count;
    self.recallable_ = recallable;
    Append(self);
    self.wake_.wait(lock, [&self] { return self.granted_ || self.recalled_; });
    return self.granted_;
}

void Semaphore::Append(Waiter& waiter) {
    (last_ != nullptr ? last_->next_ : first_) = &waiter;
    last_ = &waiter;
}

void Semaphore::GrantInOrder() {
    while (first_ != nullptr && value_ >= first_->needed_) {
        Waiter& waiter = *first_;
        value_ -= waiter.needed_;
        first_ = waiter.next_;
        if (first_ == nullptr) {
            last_ = nullptr;
        }
        waiter.granted_ = true;
        // Under the lock: once it is released, the waiter may be gone with its condition variable.
        waiter.wake_.notify_one();
    }
}

void Semaphore::Signal() {
    Signal(1);
}

void Semaphore::Signal(int count) {
    RefuseNegative("Signal", count);
    const std::lock_guard<std::mutex> lock(mutex_);
    const int room = std::numeric_limits<int>::max() - value_;
    value_ += count < room ? count : room;
    GrantInOrder();
}

int Semaphore::GetValue() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return value_;
}

std::uint64_t Semaphore::Recall() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::uint64_t nbRecalls = nbRecalls_.fetch_add(1) + 1;
    Waiter* waiter = first_;
    first_ = nullptr;
    last_ = nullptr;
    while (waiter != nullptr) {
        Waiter& current = *waiter;
        waiter = current.next_;
        current.next_ = nullptr;
        if (current.recallable_) {
            current.recalled_ = true;
            current.wake_.notify_one();
        } else {
            Append(current);
        }
    }
    // A waiter for many units may have stood before others that the free units can serve.
    GrantInOrder();
    return nbRecalls;
}

}  // namespace Tavrin::Tools
