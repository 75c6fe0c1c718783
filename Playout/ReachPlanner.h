#pragma once

#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Decides what part of the pictures there is time to decode, from how fast they are decoded. Once pictures are left
/// out, it takes clearly more speed to go back to all of them, so that it does not go to and fro.
///
/// *Threads:* externally synchronised. *Errors:* none.
class TAVRIN_PLAYOUT_EXPORT ReachPlanner final {
public:
    /// `wanted`: decoded bytes per second that showing everything takes, zero where nothing may be left out.
    /// `measured`: what decoding has managed; zero where nothing has been measured yet.
    void Plan(double wanted, double measured);

    /// Not everything can be decoded in time.
    [[nodiscard]] bool LeavesOut() const { return leavesOut_; }

    /// What part can, between 0 and 1.
    [[nodiscard]] double Share() const { return share_; }

private:
    bool leavesOut_ = false;
    double share_ = 1;
};

}  // namespace Tavrin::Playout
