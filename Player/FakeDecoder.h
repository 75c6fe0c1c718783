#pragma once

#include "Player/ISampleDecoder.h"
#include "Player/PlayerExport.h"

namespace Tavrin::Player {

/// Stands in for a decoder: fabricates a `FakeSample` with the time point and duration that the order yields.
///
/// Unlike a real decoder it releases one protection of the compressed sample itself. The decode worker
/// releases one as well, so a client that drives the fake protects each order's sample twice; with a single
/// order the floor at zero makes the difference harmless.
///
/// *Threads:* thread-safe.
/// *Blocking:* never.
/// *Errors:* never fails.
class TAVRIN_PLAYER_EXPORT FakeDecoder : public ISampleDecoder {
public:
    ISample* Decode(const DecodeOrder& order) override;
};

}  // namespace Tavrin::Player
