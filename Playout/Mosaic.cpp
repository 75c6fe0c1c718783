#include "Playout/Mosaic.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "Playout/FieldPicture.h"

namespace Tavrin::Playout {

namespace {

std::size_t NbColumns(std::size_t nbCells) {
    std::size_t columns = 1;
    while (columns * columns < nbCells) {
        ++columns;
    }
    return columns;
}

std::size_t NbRows(std::size_t nbCells) {
    const auto columns = NbColumns(nbCells);
    return (nbCells + columns - 1) / columns;
}

/// Downward; positions and sizes are even, so that the colours' half-size planes line up.
int Even(int size) {
    return size - size % 2;
}

int CellSide(int side, std::size_t nb) {
    return nb <= 1 ? side : Even(side / static_cast<int>(std::min<std::size_t>(nb, Image::kMaxSize)));
}

/// \p size times \p numerator / \p denominator, rounded to the nearest.
int Scaled(int size, int numerator, int denominator) {
    const auto product = std::int64_t{size} * numerator;
    return static_cast<int>((product + denominator / 2) / denominator);
}

}  // namespace

Mosaic::Mosaic(ImageFormat format, const PixelSize& size, std::size_t nbCells)
    : image_(format, size.width, size.height),
      nbColumns_(NbColumns(nbCells)),
      cellSize_{CellSide(size.width, NbColumns(nbCells)), CellSide(size.height, NbRows(nbCells))} {
    if (nbCells == 0 || cellSize_.width < 1 || cellSize_.height < 1) {
        throw std::invalid_argument("a mosaic of " + std::to_string(size.width) + "x" +
                                    std::to_string(size.height) + " has no room for " +
                                    std::to_string(nbCells) + " pictures");
    }
    cells_.resize(nbCells);
}

PixelSize Mosaic::SizeFor(const std::vector<PixelSize>& pictures, const PixelSize& limit) {
    if (pictures.size() == 1) {
        return pictures.front();
    }
    PixelSize cell{2, 2};
    for (const auto& picture : pictures) {
        cell.width = std::max(cell.width, picture.width);
        cell.height = std::max(cell.height, picture.height);
    }
    const auto room = PixelSize{CellSide(limit.width, NbColumns(pictures.size())),
                                CellSide(limit.height, NbRows(pictures.size()))};
    if (cell.width > room.width) {
        cell = {room.width, Scaled(cell.height, room.width, cell.width)};
    }
    if (cell.height > room.height) {
        cell = {Scaled(cell.width, room.height, cell.height), room.height};
    }
    return {std::max(Even(cell.width), 2) * static_cast<int>(NbColumns(pictures.size())),
            std::max(Even(cell.height), 2) * static_cast<int>(NbRows(pictures.size()))};
}

PixelSize Mosaic::Fitted(const Picture& picture) const {
    if (NbCells() == 1) {
        return cellSize_;
    }
    PixelSize fitted{cellSize_.width, Scaled(picture.Height(), cellSize_.width, picture.Width())};
    if (fitted.height > cellSize_.height) {
        fitted = {Scaled(picture.Width(), cellSize_.height, picture.Height()), cellSize_.height};
    }
    return {std::max(fitted.width, 1), std::max(fitted.height, 1)};
}

void Mosaic::Convert(Cell& cell, std::shared_ptr<const Picture> picture, PictureField field) {
    if (cell.picture == picture && cell.field == field) {
        return;
    }
    const auto size = Fitted(*picture);
    if (!cell.image || PixelSize{cell.image->Width(), cell.image->Height()} != size) {
        cell.image.emplace(image_.Format(), size.width, size.height);
    }
    converter_.Convert(*FieldPicture(picture, field), *cell.image);
    cell.picture = std::move(picture);
    cell.field = field;
}

void Mosaic::Place(const Image& image, std::size_t cell) {
    const auto middle = [](int room, int used) { return Even((room - used) / 2); };
    const int left = static_cast<int>(cell % nbColumns_) * cellSize_.width;
    const int top = static_cast<int>(cell / nbColumns_) * cellSize_.height;
    image_.Paste(image, left + middle(cellSize_.width, image.Width()),
                 top + middle(cellSize_.height, image.Height()));
}

const Image& Mosaic::Compose(const std::vector<std::shared_ptr<const Picture>>& pictures,
                             const std::vector<PictureField>& fields) {
    image_.FillBlack();
    for (std::size_t cell = 0; cell < std::min(pictures.size(), NbCells()); ++cell) {
        if (pictures[cell] != nullptr) {
            Convert(cells_[cell], pictures[cell], cell < fields.size() ? fields[cell] : PictureField::Frame);
            Place(*cells_[cell].image, cell);
        }
    }
    return image_;
}

}  // namespace Tavrin::Playout
