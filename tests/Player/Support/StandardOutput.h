#pragma once

#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace Tavrin::Player::Testing {

/// What `action` writes to the process's standard output. Only what has reached the operating system by the
/// end of `action` is seen: text that was left in a buffer is missing.
template <typename Action>
std::string WrittenToStandardOutput(Action action) {
    std::fflush(stdout);
    std::FILE* file = std::tmpfile();
    const int before = dup(STDOUT_FILENO);
    if (file == nullptr || before < 0 || dup2(fileno(file), STDOUT_FILENO) < 0) {
        throw std::runtime_error("standard output cannot be redirected to a temporary file");
    }
    action();
    dup2(before, STDOUT_FILENO);
    close(before);

    std::string text;
    std::array<char, 4096> part{};
    std::rewind(file);
    for (std::size_t nb = 0; (nb = std::fread(part.data(), 1, part.size(), file)) > 0;) {
        text.append(part.data(), nb);
    }
    std::fclose(file);
    return text;
}

}  // namespace Tavrin::Player::Testing
