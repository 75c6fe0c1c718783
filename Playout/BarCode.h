#pragma once

#include <cstdint>
#include <optional>

#include "Playout/DecodedSample.h"
#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Reads the number that a test clip carries in its pixels (scripts/bar-code says how it is drawn): the proof,
/// independent of time stamps and of all that a player believes, of which picture is on show.
///
/// A strip along the upper edge, an 18th of the picture high, is divided into 40 cells of equal width. Each
/// pair of cells is a bit: white and black is 1, black and white is 0. The first 16 bits are the number, most
/// significant first; the last four are its remainder by 13, plus one. What is no such strip, or an unclear
/// one, or a mixture of two, gives nothing rather than a wrong number: the two cells of each bit must differ,
/// all the white ones must be clearly brighter than all the black ones, and the remainder must fit.
///
/// It reads any pixel format whose first component tells black from white (brightness, or a colour), with up
/// to 16 bits, in pictures of 160x72 pixels and more. Clips longer than kNbBarCodes pictures begin anew at 0.
///
/// With PictureField::Frame both fields are read and must agree; with Top or Bottom only that field's lines
/// are, for clips whose fields are numbered one by one.
///
/// *Threads:* thread-safe. *Blocking:* never; it takes a few microseconds. *Errors:* none.
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::optional<std::uint32_t> ReadBarCode(
    const Picture& picture, PictureField field = PictureField::Frame);

/// Numbers that a bar code can tell apart.
constexpr std::uint32_t kNbBarCodes = 1U << 16U;

}  // namespace Tavrin::Playout
