#include "apps/playout/WindowLayout.h"

#include <algorithm>
#include <cstdint>

#include "Player/SampleRate.h"

namespace Tavrin::Playout::Program {

using Player::SampleRate;
using Time::TimePoint;

namespace {

/// High enough to hit with a mouse, the gap to the picture included.
constexpr int kTimelineHeight = 18;
constexpr int kGap = 2;

int NbColumns(std::size_t nbTracks) {
    int columns = 1;
    while (static_cast<std::size_t>(columns) * static_cast<std::size_t>(columns) < nbTracks) {
        ++columns;
    }
    return columns;
}

int NbRows(std::size_t nbTracks) {
    const auto columns = static_cast<std::size_t>(NbColumns(nbTracks));
    return static_cast<int>((nbTracks + columns - 1) / columns);
}

/// \p size times \p numerator / \p denominator, rounded to the nearest.
int Scaled(int size, int numerator, int denominator) {
    const auto product = std::int64_t{size} * numerator;
    return static_cast<int>((product + denominator / 2) / denominator);
}

/// As large as fits the room, in its proportions.
PixelSize Fitted(const PixelSize& size, const PixelSize& room) {
    if (size.width <= 0 || size.height <= 0) {
        return {0, 0};
    }
    const int height = Scaled(size.height, room.width, size.width);
    return height <= room.height ? PixelSize{room.width, height}
                                 : PixelSize{Scaled(size.width, room.height, size.height), room.height};
}

/// The columns of a timeline, as the samples of a rate at which there are so many of them up to the end.
SampleRate ColumnRate(const Rectangle& timeline, const TimePoint& end) {
    return {static_cast<std::int64_t>(timeline.width) * TimePoint().FromSeconds(1).Nanoseconds(),
            end.Nanoseconds()};
}

}  // namespace

WindowLayout::WindowLayout(const PixelSize& window, std::size_t nbTracks, const TimePoint& end)
    : window_{std::max(window.width, 0), std::max(window.height, 0)},
      nbTracks_(std::max<std::size_t>(nbTracks, 1)),
      end_(std::max(end, TimePoint().FromNanoseconds(1))) {
}

PixelSize WindowLayout::SizeFor(const std::vector<PixelSize>& pictures, const PixelSize& limit) {
    PixelSize cell{1, 1};
    for (const PixelSize& picture : pictures) {
        cell = {std::max(cell.width, picture.width), std::max(cell.height, picture.height)};
    }
    const int columns = NbColumns(pictures.size());
    const int rows = NbRows(pictures.size());
    const PixelSize room{std::max(limit.width / columns, 1),
                         std::max(limit.height / rows - kTimelineHeight, 1)};
    if (cell.width > room.width || cell.height > room.height) {
        cell = Fitted(cell, room);
    }
    return {cell.width * columns, (cell.height + kTimelineHeight) * rows};
}

Rectangle WindowLayout::Cell(std::size_t track) const {
    const int columns = NbColumns(nbTracks_);
    const int width = window_.width / columns;
    const int height = window_.height / NbRows(nbTracks_);
    const int number = static_cast<int>(track);
    return {number % columns * width, number / columns * height, width, height};
}

Rectangle WindowLayout::PictureArea(std::size_t track) const {
    Rectangle area = Cell(track);
    area.height = std::max(area.height - kTimelineHeight, 0);
    return area;
}

Rectangle WindowLayout::Picture(std::size_t track, const PixelSize& picture) const {
    const Rectangle area = PictureArea(track);
    const PixelSize size = Fitted(picture, {area.width, area.height});
    return {area.x + (area.width - size.width) / 2, area.y + (area.height - size.height) / 2, size.width,
            size.height};
}

Rectangle WindowLayout::Timeline(std::size_t track) const {
    const Rectangle cell = Cell(track);
    const int height = std::min(kTimelineHeight, cell.height);
    return {cell.x, cell.y + cell.height - height + kGap, cell.width, std::max(height - kGap, 0)};
}

int WindowLayout::ColumnOf(std::size_t track, const TimePoint& time) const {
    const Rectangle timeline = Timeline(track);
    const std::int64_t column = time.SampleNumber(ColumnRate(timeline, end_));
    const auto last = std::max<std::int64_t>(timeline.width - 1, 0);
    return timeline.x + static_cast<int>(std::clamp<std::int64_t>(column, 0, last));
}

std::optional<std::size_t> WindowLayout::TimelineAt(int column, int row) const {
    for (std::size_t track = 0; track < nbTracks_; ++track) {
        if (Timeline(track).Holds(column, row)) {
            return track;
        }
    }
    return std::nullopt;
}

TimePoint WindowLayout::TimeAt(std::size_t track, int column) const {
    const Rectangle timeline = Timeline(track);
    const int inside = std::clamp(column - timeline.x, 0, std::max(timeline.width - 1, 0));
    return TimePoint::StartOfSample(inside, ColumnRate(timeline, end_));
}

std::optional<PlayCommand> TimelineGrip::Down(const WindowLayout& layout, int column, int row) {
    track_ = layout.TimelineAt(column, row);
    return Move(layout, column);
}

std::optional<PlayCommand> TimelineGrip::Move(const WindowLayout& layout, int column) const {
    return track_ ? std::optional<PlayCommand>(DragTo{layout.TimeAt(*track_, column)}) : std::nullopt;
}

std::optional<PlayCommand> TimelineGrip::Up() {
    const bool held = track_.has_value();
    track_.reset();
    return held ? std::optional<PlayCommand>(Release{}) : std::nullopt;
}

}  // namespace Tavrin::Playout::Program
