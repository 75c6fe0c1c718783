#pragma once

#include <stdexcept>
#include <string>

namespace Tavrin::Soak {

/// Something does not hold that must hold; the text says what, where and by how much.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// For checks at the end of a phase: the message is made whether or not it is needed.
inline void Require(bool holds, const std::string& otherwise) {
    if (!holds) {
        throw Failure(otherwise);
    }
}

/// "what: found instead of expected" unless they are equal.
template <typename Number>
void RequireEqual(Number found, Number expected, const std::string& what) {
    if (found != expected) {
        throw Failure(what + ": " + std::to_string(found) + " instead of " + std::to_string(expected));
    }
}

}  // namespace Tavrin::Soak
