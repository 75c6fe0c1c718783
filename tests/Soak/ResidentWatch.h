#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "Soak/Failure.h"

namespace Tavrin::Soak {

/// Resident memory at equal points of a run, after each phase: once the warm-up is over it may not grow any more.
///
/// *Threads:* externally synchronised.
class ResidentWatch {
public:
    /// As long as the warm-up lasts.
    void NoteWarmUp(std::uint64_t bytes) { begin_ = std::max(begin_, bytes); }

    /// After it. Throws Failure when memory has grown.
    void Note(std::uint64_t bytes) {
        end_ = bytes;
        if (bytes > Limit()) {
            throw Failure("resident memory has grown from " + InMebibytes(begin_) + " to " +
                          InMebibytes(bytes) + ", more than " + InMebibytes(Limit()));
        }
    }

    /// The most at the end of a phase of the warm-up.
    [[nodiscard]] std::uint64_t Begin() const { return begin_; }
    [[nodiscard]] std::uint64_t End() const { return end_; }
    [[nodiscard]] bool HasJudged() const { return end_ > 0; }
    [[nodiscard]] std::uint64_t Limit() const { return begin_ + begin_ / 50; }

    static std::string InMebibytes(std::uint64_t bytes) {
        const std::uint64_t tenths = bytes * 10 >> 20U;
        return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " MiB";
    }

private:
    std::uint64_t begin_ = 0;
    std::uint64_t end_ = 0;
};

}  // namespace Tavrin::Soak
