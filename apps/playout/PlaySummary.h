#pragma once

#include <cstddef>
#include <iosfwd>
#include <set>
#include <vector>

#include "Playout/PlayReport.h"
#include "Playout/Session.h"
#include "apps/playout/SpeedNotice.h"

namespace Tavrin::Playout::Program {

/// Which pictures of each track were missing.
class MissingPictures final {
public:
    explicit MissingPictures(const Session& session);

    /// Notes what is missing at a tick.
    void Note(const TickReport& tick);

    [[nodiscard]] const std::set<std::size_t>& Of(std::size_t track) const { return pictures_.at(track); }

private:
    const Session& session_;
    std::vector<std::set<std::size_t>> pictures_;
};

/// Prints what playing came to, as plain text.
void PrintSummary(std::ostream& out, const Session& session, const PlayReport& report,
                  const MissingPictures& missing, const SpeedNotice& speed);

}  // namespace Tavrin::Playout::Program
