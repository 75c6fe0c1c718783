#pragma once

#include <memory>

#include "Playout/DecodedSample.h"
#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// A field as a picture of full size, for displays that show whole pictures: its lines stay where they are, and
/// between them lie means of the line above and the one below. Repeating lines instead would move the picture up and
/// down by half a line at each field.
///
/// Where the pixel format does not allow for means (palettes, floating point, bytes in the other order), the line
/// above is repeated, for the first one that below. The whole picture is returned as it is. Its number and whether
/// it is damaged are the picture's.
///
/// \p picture must not be null. Throws std::runtime_error when memory runs out.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::shared_ptr<const Picture> FieldPicture(
    const std::shared_ptr<const Picture>& picture, PictureField field);

}  // namespace Tavrin::Playout
