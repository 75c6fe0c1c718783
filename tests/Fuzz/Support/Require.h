#pragma once

#include <cstdlib>
#include <iostream>
#include <string_view>

namespace Tavrin::Fuzz {

/// Ends the process unless a promise was kept: that is what the fuzzer takes for a finding, and it then keeps the
/// input. `promise` says what ought to hold, `about` of what.
inline void Require(bool isKept, std::string_view promise, std::string_view about = {}) {
    if (!isKept) {
        std::cerr << "Broken: " << promise << (about.empty() ? "" : ": \"") << about
                  << (about.empty() ? "" : "\"") << std::endl;
        std::abort();
    }
}

}  // namespace Tavrin::Fuzz
