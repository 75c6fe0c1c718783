#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Tavrin::Player::Bench {

/// "10,000": as the names of the cases have numbers.
inline std::string Grouped(std::int64_t number) {
    std::string text = std::to_string(number);
    for (auto i = static_cast<std::ptrdiff_t>(text.size()) - 3; i > 0; i -= 3) {
        text.insert(static_cast<std::size_t>(i), ",");
    }
    return text;
}

inline std::string Entries(std::int64_t number) {
    return Grouped(number) + " entries";
}

}  // namespace Tavrin::Player::Bench
