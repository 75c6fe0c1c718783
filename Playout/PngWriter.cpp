#include "Playout/PngWriter.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Playout/Ffmpeg.h"
#include "Playout/OutputFile.h"

namespace Tavrin::Playout {

namespace {

Ffmpeg::CodecPointer OpenEncoder(const Image& image) {
    const auto* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    if (codec == nullptr) {
        throw std::runtime_error("there is no encoder for PNG");
    }
    Ffmpeg::CodecPointer context(avcodec_alloc_context3(codec));
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    context->width = image.Width();
    context->height = image.Height();
    context->pix_fmt = AV_PIX_FMT_RGB24;
    context->time_base = {1, 1};
    context->thread_count = 1;
    const int result = avcodec_open2(context.get(), codec, nullptr);
    if (result < 0) {
        throw std::runtime_error("the encoder for PNG cannot be opened: " + Ffmpeg::ErrorText(result));
    }
    return context;
}

/// A frame that borrows the image's pixels: the encoder reads them before its packet is there.
Ffmpeg::FramePointer Borrow(const Image& image) {
    auto frame = Ffmpeg::NewFrame();
    frame->width = image.Width();
    frame->height = image.Height();
    frame->format = AV_PIX_FMT_RGB24;
    frame->pts = 0;
    frame->data[0] = const_cast<std::uint8_t*>(image.Plane(0));
    frame->linesize[0] = static_cast<int>(image.RowBytes(0));
    return frame;
}

Ffmpeg::PacketPointer Encode(const Image& image) {
    const auto encoder = OpenEncoder(image);
    const auto frame = Borrow(image);
    auto packet = Ffmpeg::NewPacket();
    int result = avcodec_send_frame(encoder.get(), frame.get());
    if (result >= 0) {
        result = avcodec_receive_packet(encoder.get(), packet.get());
    }
    if (result < 0) {
        throw std::runtime_error("the picture cannot be encoded as PNG: " + Ffmpeg::ErrorText(result));
    }
    return packet;
}

std::string NameOf(std::uint64_t tick) {
    constexpr std::size_t kNbDigits = 8;
    const auto digits = std::to_string(tick);
    return std::string(kNbDigits - std::min(kNbDigits, digits.size()), '0') + digits + ".png";
}

}  // namespace

void WritePng(const std::string& file, const Image& image) {
    if (image.Format() != ImageFormat::Rgb24) {
        throw std::invalid_argument("a PNG file takes an image in RGB");
    }
    Ffmpeg::RouteMessages();
    const auto packet = Encode(image);
    OutputFile output(file);
    output.Write(packet->data, static_cast<std::size_t>(packet->size));
    output.Finish();
}

PngWriter::PngWriter(std::string folder, const PixelSize& size, std::size_t nbTracks)
    : folder_(std::move(folder)), mosaic_(ImageFormat::Rgb24, size, nbTracks) {
    std::error_code error;
    std::filesystem::create_directories(folder_, error);
    if (error) {
        throw std::runtime_error("\"" + folder_ + "\": the folder cannot be made: " + error.message());
    }
}

PngWriter::~PngWriter() = default;

void PngWriter::Write(const ShownTick& tick) {
    const auto file = std::filesystem::path(folder_) / NameOf(tick.tick);
    WritePng(file.string(), mosaic_.Compose(tick.pictures, tick.fields));
}

}  // namespace Tavrin::Playout
