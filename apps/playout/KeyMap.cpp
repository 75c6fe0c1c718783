#include "apps/playout/KeyMap.h"

namespace Tavrin::Playout::Program {

using Time::Ratio;
using Time::TimePoint;

namespace {

constexpr std::int64_t kHighestSpeed = 16;
constexpr std::int64_t kSlowDivisor = 4;

/// The next speed in that direction: at first 1, then the double each time.
Ratio Faster(const Ratio& speed, const Ratio& direction) {
    const Ratio along = speed * direction;
    if (along < Ratio(1, 1)) {
        return direction;
    }
    const Ratio doubled = along * Ratio(2, 1);
    return (doubled > Ratio(kHighestSpeed, 1) ? Ratio(kHighestSpeed, 1) : doubled) * direction;
}

}  // namespace

PlayCommand KeyMap::ChangeSpeed(const Ratio& speed) {
    speed_ = speed;
    return SetSpeed{speed};
}

PlayCommand KeyMap::Play(const Ratio& direction) {
    return ChangeSpeed(stopIsDown_ ? direction / Ratio(kSlowDivisor, 1) : Faster(speed_, direction));
}

std::optional<PlayCommand> KeyMap::Press(Key key, bool isRepeated) {
    if (isRepeated && key != Key::Left && key != Key::Right) {
        return std::nullopt;
    }
    switch (key) {
        case Key::J:
        case Key::L:
            slowKey_ = stopIsDown_ ? std::optional(key) : std::nullopt;
            return Play(Ratio(key == Key::L ? 1 : -1, 1));
        case Key::K:
            stopIsDown_ = true;
            return ChangeSpeed(Ratio());
        case Key::Space:
            return ChangeSpeed(speed_ == Ratio() ? Ratio(1, 1) : Ratio());
        case Key::Left:
        case Key::Right:
            speed_ = Ratio();
            return StepBy{key == Key::Left ? -1 : 1};
        case Key::Home:
            return JumpTo{};
        case Key::End:
            return JumpTo{end_ - TimePoint().FromNanoseconds(1)};
        case Key::Escape:
        case Key::Q:
            return Quit{};
    }
    return std::nullopt;
}

std::optional<PlayCommand> KeyMap::Release(Key key) {
    const bool endsSlow = slowKey_ && (key == Key::K || key == *slowKey_);
    if (key == Key::K) {
        stopIsDown_ = false;
    }
    if (!endsSlow) {
        return std::nullopt;
    }
    slowKey_.reset();
    return ChangeSpeed(Ratio());
}

}  // namespace Tavrin::Playout::Program
