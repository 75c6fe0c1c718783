#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "Playout/Mosaic.h"
#include "Playout/PlayCommand.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout::Program {

/// In pixels of the window, from its top left.
struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    [[nodiscard]] bool Holds(int column, int row) const {
        return column >= x && column < x + width && row >= y && row < y + height;
    }
    friend bool operator==(const Rectangle&, const Rectangle&) = default;
};

/// Where what stands in a window: the tracks as cells of a mosaic, in rows from the top left, each with its
/// picture above its timeline.
///
///     +-----------+-----------+
///     |  picture  |  picture  |     All timelines show the same time, from the origin to the end of the
///     |===|=======|===|=======|     longest recording, so that their play heads stand at the same place.
///     +-----------+-----------+
///     |  picture  |
///     |===|=======|
///     +-----------+
///
/// *Threads:* immutable. *Errors:* none; a window too small for anything has rectangles without pixels.
class WindowLayout final {
public:
    WindowLayout(const PixelSize& window, std::size_t nbTracks, const Time::TimePoint& end);

    /// A window that shows these pictures pixel by pixel, made smaller where it would exceed \p limit.
    [[nodiscard]] static PixelSize SizeFor(const std::vector<PixelSize>& pictures, const PixelSize& limit);

    /// The room for a track's picture, and the picture's place in it: as large as fits, in its proportions.
    [[nodiscard]] Rectangle PictureArea(std::size_t track) const;
    [[nodiscard]] Rectangle Picture(std::size_t track, const PixelSize& picture) const;
    [[nodiscard]] Rectangle Timeline(std::size_t track) const;

    /// The column of a time in a track's timeline; inside of it, whatever the time.
    [[nodiscard]] int ColumnOf(std::size_t track, const Time::TimePoint& time) const;

    /// The track whose timeline holds this point.
    [[nodiscard]] std::optional<std::size_t> TimelineAt(int column, int row) const;

    /// The time at a column of a track's timeline; that of the nearest one for a column outside of it.
    [[nodiscard]] Time::TimePoint TimeAt(std::size_t track, int column) const;

private:
    [[nodiscard]] Rectangle Cell(std::size_t track) const;

    PixelSize window_;
    std::size_t nbTracks_;
    Time::TimePoint end_;
};

/// The mouse on the timelines: what it takes hold of is dragged until the button is let go.
///
/// *Threads:* bound to one thread. *Errors:* none.
class TimelineGrip final {
public:
    /// The button goes down, the mouse moves, the button goes up.
    [[nodiscard]] std::optional<PlayCommand> Down(const WindowLayout& layout, int column, int row);
    [[nodiscard]] std::optional<PlayCommand> Move(const WindowLayout& layout, int column) const;
    [[nodiscard]] std::optional<PlayCommand> Up();

private:
    std::optional<std::size_t> track_;
};

}  // namespace Tavrin::Playout::Program
