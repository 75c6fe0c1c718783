#include "Playout/Ffmpeg.h"

extern "C" {
#include <libavutil/log.h>
}

#include <array>
#include <cstdarg>
#include <mutex>
#include <new>

#include "Logging/LoggingManager.h"

namespace Tavrin::Playout::Ffmpeg {

namespace {

namespace Logging = qor::kp::logging;

template <typename Pointer>
Pointer NotNull(typename Pointer::pointer raw) {
    if (raw == nullptr) {
        throw std::bad_alloc();
    }
    return Pointer(raw);
}

void ForwardMessage(void* object, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING) {
        return;
    }
    auto* logger = Logging::LoggingManager::GetLoggerPtr("FFmpeg");
    if (logger == nullptr || logger->GetLevel() > Logging::Level_Debug) {
        return;
    }
    std::array<char, 512> line{};
    int prefix = 1;
    av_log_format_line2(object, level, format, arguments, line.data(), static_cast<int>(line.size()),
                        &prefix);
    std::string text(line.data());
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    logger->Log(Logging::Level_Debug, text, "Playout/Ffmpeg", __LINE__);
}

}  // namespace

PacketPointer NewPacket() {
    return NotNull<PacketPointer>(av_packet_alloc());
}

FramePointer NewFrame() {
    return NotNull<FramePointer>(av_frame_alloc());
}

CodecPointer NewCodecContext(const AVCodec* codec, const AVCodecParameters& parameters) {
    auto context = NotNull<CodecPointer>(avcodec_alloc_context3(codec));
    if (avcodec_parameters_to_context(context.get(), &parameters) < 0) {
        throw std::bad_alloc();
    }
    return context;
}

std::string ErrorText(int code) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

void RouteMessages() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(ForwardMessage); });
}

}  // namespace Tavrin::Playout::Ffmpeg
