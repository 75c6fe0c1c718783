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

/// From construction on `units_` is odd, so that everybody else comes to the mutex, and the count is a plain
/// number; it is published again at the end, or before a wait.
class Semaphore::Exclusive {
public:
    explicit Exclusive(Semaphore& semaphore)
        : semaphore_(semaphore),
          lock_(semaphore.mutex_),
          value_(static_cast<int>(semaphore.units_.fetch_or(1) / 2)) {}
    Exclusive(const Exclusive&) = delete;
    Exclusive& operator=(const Exclusive&) = delete;
    ~Exclusive() {
        if (lock_.owns_lock()) {
            Publish();
        }
    }

    int Value() const { return value_; }
    void Set(int value) { value_ = value; }
    void Take(int count) { value_ -= count; }

    void Add(int count) {
        const int room = std::numeric_limits<int>::max() - value_;
        value_ += count < room ? count : room;
    }

    /// Waits, and leaves the count to others from then on: whoever served `waiter` has settled it.
    void WaitUntilServed(Waiter& waiter) {
        Publish();
        waiter.wake_.wait(lock_, [&waiter] { return waiter.granted_ || waiter.recalled_; });
        lock_.unlock();
    }

private:
    void Publish() {
        semaphore_.units_.store(std::int64_t{value_} * 2 + (semaphore_.first_ != nullptr ? 1 : 0));
    }

    Semaphore& semaphore_;
    std::unique_lock<std::mutex> lock_;
    int value_;
};

void Semaphore::Setup(int count) {
    RefuseNegative("Setup", count);
    Exclusive units(*this);
    units.Set(count);
    GrantInOrder(units);
}

void Semaphore::Wait() {
    Wait(1);
}

void Semaphore::Wait(int count) {
    RefuseNegative("Wait", count);
    if (count == 0 || TryTake(count)) {
        return;
    }
    Exclusive units(*this);
    Waiter self;
    self.needed_ = count;
    Block(units, self);
}

bool Semaphore::WaitUnlessRecalled(std::uint64_t nbRecallsSeen) {
    if (nbRecalls_.load() != nbRecallsSeen) {
        return false;
    }
    if (TryTake(1)) {
        return true;
    }
    Exclusive units(*this);
    // Looked at again now that `units_` is odd: a `Recall` counts first and then looks whether it is odd, so
    // either it finds this thread in the line or this thread finds its count.
    if (nbRecalls_.load() != nbRecallsSeen) {
        return false;
    }
    Waiter self;
    self.needed_ = 1;
    self.recallable_ = true;
    self.nbRecallsSeen_ = nbRecallsSeen;
    Block(units, self);
    return self.granted_;
}

/// Takes the units if they are there and nobody waits.
bool Semaphore::TryTake(int count) {
    std::int64_t units = units_.load();
    while (units % 2 == 0 && units / 2 >= count) {
        if (units_.compare_exchange_weak(units, units - std::int64_t{count} * 2)) {
            return true;
        }
    }
    return false;
}

/// Adds the units if nobody waits and the count does not reach its highest value.
bool Semaphore::TryAdd(int count) {
    std::int64_t units = units_.load();
    while (units % 2 == 0 && units / 2 < std::numeric_limits<int>::max() - count) {
        if (units_.compare_exchange_weak(units, units + std::int64_t{count} * 2)) {
            return true;
        }
    }
    return false;
}

void Semaphore::Block(Exclusive& units, Waiter& self) {
    if (first_ == nullptr && units.Value() >= self.needed_) {
        units.Take(self.needed_);
        self.granted_ = true;
        return;
    }
    Append(self);
    units.WaitUntilServed(self);
}

void Semaphore::Append(Waiter& waiter) {
    (last_ != nullptr ? last_->next_ : first_) = &waiter;
    last_ = &waiter;
}

void Semaphore::GrantInOrder(Exclusive& units) {
    while (first_ != nullptr && units.Value() >= first_->needed_) {
        Waiter& waiter = *first_;
        units.Take(waiter.needed_);
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
    if (TryAdd(count)) {
        return;
    }
    Exclusive units(*this);
    units.Add(count);
    GrantInOrder(units);
}

int Semaphore::GetValue() const {
    return static_cast<int>(units_.load() / 2);
}

std::uint64_t Semaphore::Recall() {
    const std::uint64_t nbRecalls = nbRecalls_.fetch_add(1) + 1;
    if (units_.load() % 2 == 0) {
        // Nobody waits, and who is about to will see the count: there is nobody to wake.
        return nbRecalls;
    }
    Exclusive units(*this);
    Waiter* waiter = first_;
    first_ = nullptr;
    last_ = nullptr;
    while (waiter != nullptr) {
        Waiter& current = *waiter;
        waiter = current.next_;
        current.next_ = nullptr;
        if (current.recallable_ && current.nbRecallsSeen_ != nbRecalls_.load()) {
            current.recalled_ = true;
            current.wake_.notify_one();
        } else {
            Append(current);
        }
    }
    // A waiter for many units may have stood before others that the free units can serve.
    GrantInOrder(units);
    return nbRecalls;
}

}  // namespace Tavrin::Tools
