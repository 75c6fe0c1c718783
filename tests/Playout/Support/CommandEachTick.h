#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "Playout/PlayCommand.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout::Support {

/// Commands for the tick with their number, one tick after the other.
class CommandEachTick final : public ICommandSource {
public:
    explicit CommandEachTick(std::vector<std::vector<PlayCommand>> commands)
        : commands_(std::move(commands)) {}

    std::vector<PlayCommand> Take(const Time::TimePoint& /*at*/) override {
        return next_ < commands_.size() ? commands_[next_++] : std::vector<PlayCommand>();
    }
    [[nodiscard]] bool IsOpen() const override { return next_ < commands_.size(); }

private:
    std::vector<std::vector<PlayCommand>> commands_;
    std::size_t next_ = 0;
};

}  // namespace Tavrin::Playout::Support
