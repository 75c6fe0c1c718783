#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "Player/SampleRate.h"
#include "Playout/IPictureSink.h"
#include "Playout/Mosaic.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

class OutputFile;

/// Writes the ticks as one uncompressed video file (YUV4MPEG2, 4:2:0 at 8 bits), which most players and tools
/// read. A track without picture is black.
///
/// *Threads:* externally synchronised. *Blocking:* on the disk. *Errors:* the constructor throws
/// std::runtime_error when the file cannot be made and std::invalid_argument for a rate of zero; Write and
/// Finish as IPictureSink says.
class TAVRIN_PLAYOUT_EXPORT Y4mWriter final : public IPictureSink {
public:
    /// \p rate is the ticks' rate.
    Y4mWriter(const std::string& file, const PixelSize& size, const Player::SampleRate& rate,
              std::size_t nbTracks);
    ~Y4mWriter() override;

    void Write(const ShownTick& tick) override;
    void Finish() override;

private:
    Mosaic mosaic_;
    std::unique_ptr<OutputFile> output_;
};

}  // namespace Tavrin::Playout
