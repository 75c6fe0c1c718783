#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Player/TrackId.h"
#include "Playout/Session.h"

namespace Tavrin::Soak {

/// Storage that is slow, stalls and fails, until it comes back. Which reads do depends on the seed, the track and
/// the group alone, so a group that cannot be read stays so until then.
///
/// *Threads:* thread-safe. *Ownership:* may go before the session; storage has come back then.
class UnsteadyStorage {
public:
    /// In percent of the groups.
    struct Manner {
        std::uint64_t slow_ = 0;     ///< Take up to 5 ms more.
        std::uint64_t stalled_ = 0;  ///< Take 150 ms more, or until storage comes back.
        std::uint64_t failing_ = 0;
    };

    /// Before the session's first tick.
    UnsteadyStorage(Playout::Session& session, std::uint64_t seed, const Manner& manner);
    UnsteadyStorage(const UnsteadyStorage&) = delete;
    UnsteadyStorage& operator=(const UnsteadyStorage&) = delete;
    ~UnsteadyStorage() { ComeBack(); }

    /// From now on every read is answered at once.
    void ComeBack();

private:
    class State;

    std::shared_ptr<State> state_;
};

}  // namespace Tavrin::Soak
