#pragma once

#include <cstddef>
#include <string>

namespace Tavrin::Playout::Support::Clips {

/// H.264 whose pictures are coded as two fields, each a packet of its own, as interlaced broadcasts are; the
/// encoders at hand do not make that. Bare, without container. 160x128 pixels, eight pictures in two groups.
///
/// The top fields hold plain samples, a shade for each picture; the bottom fields repeat the top ones.
std::string Fields();
constexpr std::size_t kNbFieldPictures = 8;

}  // namespace Tavrin::Playout::Support::Clips
