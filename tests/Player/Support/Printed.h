#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace Tavrin::Player::Testing {

/// What `action` writes to `std::cout`, flushed or not: cheap enough to be asked thousands of times.
template <typename Action>
std::string Printed(Action action) {
    class Redirection {
    public:
        explicit Redirection(std::ostream& target) : before_(std::cout.rdbuf(target.rdbuf())) {}
        Redirection(const Redirection&) = delete;
        Redirection& operator=(const Redirection&) = delete;
        ~Redirection() { std::cout.rdbuf(before_); }

    private:
        std::streambuf* before_;
    };
    std::ostringstream text;
    const Redirection redirection(text);
    action();
    return text.str();
}

}  // namespace Tavrin::Player::Testing
