#include "Playout/Percentiles.h"

#include <algorithm>
#include <cmath>

namespace Tavrin::Playout {

double Percentiles::At(double percent) const {
    if (values_.empty()) {
        return 0;
    }
    constexpr double kWhole = 100;
    std::vector<double> sorted = values_;
    std::sort(sorted.begin(), sorted.end());
    const auto rank =
        static_cast<std::size_t>(std::ceil(percent * static_cast<double>(sorted.size()) / kWhole));
    return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

}  // namespace Tavrin::Playout
