#pragma once

#include <cstddef>
#include <vector>

#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Measured values, to be summed up by percentiles of nearest rank: the p-th is the smallest value that at
/// least p percent of the values do not exceed, so it is always one that was measured.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* none.
class TAVRIN_PLAYOUT_EXPORT Percentiles final {
public:
    void Add(double value) { values_.push_back(value); }
    [[nodiscard]] std::size_t Count() const { return values_.size(); }

    /// \p percent from above 0 to 100, where the largest value is. Zero without values.
    [[nodiscard]] double At(double percent) const;

private:
    std::vector<double> values_;
};

}  // namespace Tavrin::Playout
