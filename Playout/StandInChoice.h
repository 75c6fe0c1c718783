#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Chooses what a track shows while the picture that belongs there is still on its way: the nearest there is. A hand
/// that drags and has seen the same one for too long gets the one that has come out last instead, so that it sees
/// something move.
///
/// It reads no clock: what time it is is told to it.
///
/// *Threads:* externally synchronised. *Ownership:* shares the picture that was nearest last. *Errors:* none.
class TAVRIN_PLAYOUT_EXPORT StandInChoice final {
public:
    using Clock = std::chrono::steady_clock;
    using PicturePointer = std::shared_ptr<const Picture>;

    /// `newest` is asked only where it matters; nothing is stood in by where `nearest` is null.
    [[nodiscard]] PicturePointer Choose(PicturePointer nearest, bool dragged,
                                        const std::function<PicturePointer()>& newest, Clock::time_point now);

    /// What belongs there is on show again.
    void Forget() { nearest_.reset(); }

private:
    PicturePointer nearest_;
    Clock::time_point since_;
};

}  // namespace Tavrin::Playout
