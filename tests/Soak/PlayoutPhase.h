#pragma once

#include <memory>
#include <vector>

#include "Soak/Phase.h"
#include "Soak/PlayedSession.h"

namespace Tavrin::Soak {

/// The recordings that sessions play: small clips of several kinds, made when they are first asked for. Throws
/// std::runtime_error when that cannot be done.
[[nodiscard]] Recordings SmallRecordings();

/// A few sessions on real recordings, side by side on one thread, operated at random for a second or so, closed and
/// opened again.
///
/// *Threads:* bound to one thread. *Errors:* Failure when something does not hold.
class PlayoutPhase {
public:
    PlayoutPhase(const PhaseMeans& means, const Recordings& recordings);

    void Run();

private:
    void Step();

    PhaseMeans means_;
    Recordings recordings_;
    std::vector<std::unique_ptr<PlayedSession>> sessions_;
};

}  // namespace Tavrin::Soak
