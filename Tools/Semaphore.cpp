#include "Tools/Semaphore.h"

#include <limits>
#include <stdexcept>
#include <string>

#include "Tools/LateWakeUps.h"

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
/// number; it is published again at the end.
class Semaphore::Exclusive {
public:
    explicit Exclusive(Semaphore& semaphore)
        : semaphore_(semaphore), lock_(semaphore.mutex_), units_(semaphore.units_.fetch_or(1)) {}
    Exclusive(const Exclusive&) = delete;
    Exclusive& operator=(const Exclusive&) = delete;
    ~Exclusive() {
        const std::uint64_t even = units_ / 2 * 2;
        semaphore_.units_.store(even + (semaphore_.first_ != nullptr ? 1 : 0));
    }

    int Value() const { return NbUnits(units_); }
    void Set(int value) { units_ = units_ / kOneTake * kOneTake + 2 * static_cast<std::uint64_t>(value); }

    void Take(int count) {
        Set(Value() - count);
        units_ += kOneTake;
    }

    void Add(int count) {
        const int room = std::numeric_limits<int>::max() - Value();
        Set(Value() + (count < room ? count : room));
    }

private:
    Semaphore& semaphore_;
    std::lock_guard<std::mutex> lock_;
    std::uint64_t units_;
};

void Semaphore::Setup(int count) {
    RefuseNegative("Setup", count);
    const LateWakeUps afterTheLock;
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
    Waiter self;
    self.needed_ = count;
    Block(self);
}

bool Semaphore::WaitUnlessRecalled(std::uint64_t nbRecallsSeen) {
    if (nbRecalls_.load() != nbRecallsSeen) {
        return false;
    }
    if (TryTake(1)) {
        if (nbRecalls_.load() == nbRecallsSeen) {
            return true;
        }
        // Called between the look at the count and the taking of the unit.
        Signal(1);
        return false;
    }
    Waiter self;
    self.needed_ = 1;
    self.recallable_ = true;
    self.nbRecallsSeen_ = nbRecallsSeen;
    return Block(self);
}

/// Takes the units if they are there and nobody waits.
bool Semaphore::TryTake(int count) {
    std::uint64_t units = units_.load();
    while (units % 2 == 0 && NbUnits(units) >= count) {
        if (units_.compare_exchange_weak(units, units - 2 * static_cast<std::uint64_t>(count) + kOneTake)) {
            return true;
        }
    }
    return false;
}

/// Adds the units if nobody waits and the count does not reach its highest value.
bool Semaphore::TryAdd(int count) {
    std::uint64_t units = units_.load();
    while (units % 2 == 0 && NbUnits(units) < std::numeric_limits<int>::max() - count) {
        if (units_.compare_exchange_weak(units, units + 2 * static_cast<std::uint64_t>(count))) {
            return true;
        }
    }
    return false;
}

/// Stands in line until served; whether with units.
bool Semaphore::Block(Waiter& self) {
    {
        Exclusive units(*this);
        // Looked at again now that `units_` is odd: a `Recall` counts first and then looks whether it is odd,
        // so either it finds this thread in the line or this thread finds its count.
        if (self.recallable_ && nbRecalls_.load() != self.nbRecallsSeen_) {
            return false;
        }
        if (first_ == nullptr && units.Value() >= self.needed_) {
            units.Take(self.needed_);
            return true;
        }
        Append(self);
    }
    while (self.state_.load() == Waiter::Waiting) {
        self.state_.wait(Waiter::Waiting);
    }
    // Whoever served this thread may still hold the lock: once it is free, neither the semaphore nor the
    // waiter is touched by that thread any more.
    const std::lock_guard<std::mutex> lock(mutex_);
    return self.state_.load() == Waiter::Granted;
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
        Serve(waiter, Waiter::Granted);
    }
}

void Semaphore::Serve(Waiter& waiter, Waiter::State state) {
    waiter.state_.store(state);
    LateWakeUps::Wake(&waiter.state_);
}

void Semaphore::Signal() {
    Signal(1);
}

void Semaphore::Signal(int count) {
    RefuseNegative("Signal", count);
    if (TryAdd(count)) {
        return;
    }
    const LateWakeUps afterTheLock;
    Exclusive units(*this);
    units.Add(count);
    GrantInOrder(units);
}

int Semaphore::GetValue() const {
    return NbUnits(units_.load());
}

std::uint64_t Semaphore::Recall() {
    const std::uint64_t nbRecalls = nbRecalls_.fetch_add(1) + 1;
    if (units_.load() % 2 == 0) {
        // Nobody waits, and who is about to will see the count: there is nobody to wake.
        return nbRecalls;
    }
    const LateWakeUps afterTheLock;
    Exclusive units(*this);
    Waiter* waiter = first_;
    first_ = nullptr;
    last_ = nullptr;
    while (waiter != nullptr) {
        Waiter& current = *waiter;
        waiter = current.next_;
        current.next_ = nullptr;
        if (current.recallable_ && current.nbRecallsSeen_ != nbRecalls_.load()) {
            Serve(current, Waiter::Recalled);
        } else {
            Append(current);
        }
    }
    // A waiter for many units may have stood before others that the free units can serve.
    GrantInOrder(units);
    return nbRecalls;
}

}  // namespace Tavrin::Tools
