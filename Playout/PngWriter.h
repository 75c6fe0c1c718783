#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Playout/IPictureSink.h"
#include "Playout/Image.h"
#include "Playout/Mosaic.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Writes an Rgb24 image as a PNG file, replacing what is there. Throws std::runtime_error naming the file.
TAVRIN_PLAYOUT_EXPORT void WritePng(const std::string& file, const Image& image);

/// Writes each tick as a PNG file into a folder, named by the tick's number in eight digits: 00000042.png.
///
/// *Threads:* externally synchronised. *Blocking:* on the disk. *Errors:* the constructor throws
/// std::runtime_error when the folder cannot be made; Write as IPictureSink says.
class TAVRIN_PLAYOUT_EXPORT PngWriter final : public IPictureSink {
public:
    /// Makes the folder, unless it exists; files in it with the names of ticks are replaced.
    PngWriter(std::string folder, const PixelSize& size, std::size_t nbTracks);
    ~PngWriter() override;

    void Write(const ShownTick& tick) override;
    void Finish() override {}

private:
    std::string folder_;
    Mosaic mosaic_;
};

}  // namespace Tavrin::Playout
