#pragma once

#include <memory>

#include "Playout/Image.h"
#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Converts decoded pictures of any pixel format and size to images.
///
/// The same picture gives the same bytes on every machine. A picture that has the image's size and layout
/// already is copied as it is; otherwise it is scaled and its colours are converted by what the stream says
/// of them, or by what is usual for its size.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Errors:* Convert throws std::runtime_error for a
/// pixel format that cannot be converted.
class TAVRIN_PLAYOUT_EXPORT PictureConverter final {
public:
    PictureConverter();
    ~PictureConverter();
    PictureConverter(const PictureConverter&) = delete;
    PictureConverter& operator=(const PictureConverter&) = delete;

    /// Fills the whole of \p image, whatever the picture's proportions.
    void Convert(const Picture& picture, Image& image);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Tavrin::Playout
