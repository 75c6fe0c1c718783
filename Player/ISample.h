#pragma once

#include <boost/thread/shared_mutex.hpp>
#include <cstdint>
#include <set>
#include <string>

#include "Player/PlayerExport.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {

/// One media sample, compressed or decoded, whose contents the engine does not know.
///
/// Clients implement it. Besides its content a sample carries a protection counter: while it is not zero, no
/// eviction pass of a `Cache` deletes the sample.
///
/// The implementer guarantees:
/// 1. `GetTimePoint` and `GetDuration` do not change during the sample's life;
/// 2. the content accessors may be called from any thread (immutable content needs no lock);
/// 3. the destructor may run on any thread that owns the sample at that moment.
///
/// The implementer may assume:
/// 1. the sample is destroyed exactly once, through this interface, by whoever owns it then: the producer,
///    the `CacheUpdateQueue` it waits in, or the `Cache` that filed it;
/// 2. the engine calls none of the content accessors but `GetDuration`.
///
/// *Threads:* the protection operations are thread-safe.
/// *Blocking:* the protection operations never block beyond their short lock.
class TAVRIN_PLAYER_EXPORT ISample {
public:
    ISample() = default;
    ISample(const ISample&) = delete;
    ISample& operator=(const ISample&) = delete;
    virtual ~ISample() = default;

    /// The start of the sample.
    virtual Time::TimePoint GetTimePoint() const = 0;

    /// The length of the sample, as a time point measured from the origin.
    virtual Time::TimePoint GetDuration() const = 0;

    /// The keys that `GetProperty` answers.
    virtual std::set<std::string> GetPropertyKeys() const = 0;

    /// The keys that `GetData` answers.
    virtual std::set<std::string> GetDataKeys() const = 0;

    /// The bytes of a property, with their number in `size`; they live as long as the sample.
    virtual const std::uint8_t* GetProperty(const std::string& key, std::uint64_t& size) const = 0;

    /// The bytes of a piece of content, with their number in `size`; they live as long as the sample.
    virtual const std::uint8_t* GetData(const std::string& key, std::uint64_t& size) const = 0;

    /// Adds `protection` to the counter and returns the new counter. Neither the sign of the argument nor
    /// the sum is checked.
    virtual std::int64_t Protect(std::int64_t protection);

    /// Takes `protection` off the counter and returns the new counter, which stops at zero: one release too
    /// many must not leave a debt that eats a later protection.
    virtual std::int64_t Unprotect(std::int64_t protection);

    /// The counter.
    virtual std::int64_t GetProtectionCounter();

private:
    boost::shared_mutex protectionAccess_;
    std::int64_t protectionCounter_ = 0;
};

}  // namespace Tavrin::Player
