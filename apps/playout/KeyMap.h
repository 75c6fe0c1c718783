#pragma once

#include <optional>

#include "Playout/PlayCommand.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout::Program {

/// The keys that mean something.
enum class Key { J, K, L, Space, Left, Right, Home, End, Escape, Q };

/// What keys ask for, as editors know them.
///
/// | key           | what it does                                                                    |
/// |---------------|---------------------------------------------------------------------------------|
/// | L             | forward; again: 2, 4, 8, 16 times                                               |
/// | J             | the same backward                                                               |
/// | K             | stops; held together with J or L: a quarter of the speed, for as long as both are down |
/// | space         | stops what plays, plays forward what stands                                     |
/// | left, right   | a picture back or on                                                            |
/// | Home, End     | to the first or the last picture                                                |
/// | Escape, Q     | quits                                                                           |
///
/// It knows no window, only keys that go down and up and the speed that is played at.
///
/// *Threads:* bound to one thread. *Errors:* none.
class KeyMap final {
public:
    /// \p end is that of the longest recording.
    explicit KeyMap(const Time::TimePoint& end) : end_(end) {}

    /// The speed that is really played at, which keys build on. It changes by other means too.
    void Follow(const Time::Ratio& speed) { speed_ = speed; }

    /// A key goes down. \p isRepeated: it has been down and repeats itself, which only the arrows answer.
    [[nodiscard]] std::optional<PlayCommand> Press(Key key, bool isRepeated = false);

    /// A key goes up.
    [[nodiscard]] std::optional<PlayCommand> Release(Key key);

private:
    [[nodiscard]] PlayCommand Play(const Time::Ratio& direction);
    [[nodiscard]] PlayCommand ChangeSpeed(const Time::Ratio& speed);

    Time::TimePoint end_;
    Time::Ratio speed_;
    bool stopIsDown_ = false;
    std::optional<Key> slowKey_;  ///< The one held together with K.
};

}  // namespace Tavrin::Playout::Program
