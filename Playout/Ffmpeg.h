#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#include <memory>
#include <string>

/// FFmpeg's C interfaces with owners that free what they hold.
namespace Tavrin::Playout::Ffmpeg {

struct Deleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

using PacketPointer = std::unique_ptr<AVPacket, Deleter>;
using FramePointer = std::unique_ptr<AVFrame, Deleter>;
using CodecPointer = std::unique_ptr<AVCodecContext, Deleter>;
using ParametersPointer = std::unique_ptr<AVCodecParameters, Deleter>;
using ParserPointer = std::unique_ptr<AVCodecParserContext, Deleter>;

/// The three below throw std::bad_alloc instead of returning null.
[[nodiscard]] PacketPointer NewPacket();
[[nodiscard]] FramePointer NewFrame();
[[nodiscard]] CodecPointer NewCodecContext(const AVCodec* codec, const AVCodecParameters& parameters);

/// FFmpeg's text for one of its error codes.
[[nodiscard]] std::string ErrorText(int code);

/// Makes FFmpeg's own messages, which it writes to standard error, go to the logger "FFmpeg" instead, at
/// Level_Debug: what matters of them reaches our callers as exceptions and counters. Done once per process;
/// every class here that opens a file or a decoder calls it.
void RouteMessages();

}  // namespace Tavrin::Playout::Ffmpeg
