#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "Playout/DecodedSample.h"
#include "Playout/Image.h"
#include "Playout/Picture.h"
#include "Playout/PictureConverter.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Width and height in pixels.
struct PixelSize {
    int width = 0;
    int height = 0;

    friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

/// Lays several pictures onto one image, in rows of equal cells from the top left, each picture as large as
/// fits its cell in its own proportions. One picture alone fills the image.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* as PictureConverter.
class TAVRIN_PLAYOUT_EXPORT Mosaic final {
public:
    /// Throws std::invalid_argument for no cells, and when cells would have no pixels.
    Mosaic(ImageFormat format, const PixelSize& size, std::size_t nbCells);

    /// A size for pictures of these sizes side by side: that of the picture if there is one, otherwise cells
    /// as large as the largest picture, made smaller where the whole would exceed \p limit.
    [[nodiscard]] static PixelSize SizeFor(const std::vector<PixelSize>& pictures, const PixelSize& limit);

    [[nodiscard]] std::size_t NbCells() const { return cells_.size(); }

    /// The image with these pictures, one for each cell; null ones leave their cell black, and so do cells
    /// without picture. Of each the lines of that field (FieldPicture); all where none is given. Valid until the
    /// next call.
    [[nodiscard]] const Image& Compose(const std::vector<std::shared_ptr<const Picture>>& pictures,
                                       const std::vector<PictureField>& fields = {});

private:
    /// What a cell shows, converted once for as long as it stays.
    struct Cell {
        std::shared_ptr<const Picture> picture;
        PictureField field = PictureField::Frame;
        std::optional<Image> image;
    };

    void Convert(Cell& cell, std::shared_ptr<const Picture> picture, PictureField field);
    void Place(const Image& image, std::size_t cell);
    [[nodiscard]] PixelSize Fitted(const Picture& picture) const;

    Image image_;
    std::size_t nbColumns_;
    PixelSize cellSize_;
    PictureConverter converter_;
    std::vector<Cell> cells_;
};

}  // namespace Tavrin::Playout
