#include "Playout/Y4mWriter.h"

#include <stdexcept>

#include "Playout/OutputFile.h"

namespace Tavrin::Playout {

Y4mWriter::Y4mWriter(const std::string& file, const PixelSize& size, const Player::SampleRate& rate,
                     std::size_t nbTracks)
    : mosaic_(ImageFormat::Yuv420p, size, nbTracks) {
    if (!rate.Positive()) {
        throw std::invalid_argument("\"" + file + "\": video needs a rate above zero");
    }
    output_ = std::make_unique<OutputFile>(file);
    output_->Write("YUV4MPEG2 W" + std::to_string(size.width) + " H" + std::to_string(size.height) + " F" +
                   std::to_string(rate.Numerator()) + ":" + std::to_string(rate.Denominator()) +
                   " Ip A1:1 C420mpeg2\n");
}

Y4mWriter::~Y4mWriter() = default;

void Y4mWriter::Write(const ShownTick& tick) {
    const auto& image = mosaic_.Compose(tick.pictures, tick.fields);
    output_->Write("FRAME\n");
    output_->Write(image.Bytes().data(), image.Bytes().size());
}

void Y4mWriter::Finish() {
    output_->Finish();
}

}  // namespace Tavrin::Playout
