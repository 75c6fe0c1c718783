#include "Playout/Demuxer.h"

#include <filesystem>
#include <new>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace Tavrin::Playout {

namespace {

/// In a row, before the rest of the file is given up: a demuxer that finds its way again does so sooner.
constexpr int kMaxDamagedPackets = 100;

int IsStopped(void* stop) {
    return static_cast<const StopTime*>(stop)->IsOver() ? 1 : 0;
}

/// Whether the header tells the streams, and where each packet is and what time stamps it has.
bool DescribesItself(const AVInputFormat& format) {
    return std::string_view(format.name).substr(0, 4) == "mov,";
}

bool IsPicture(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
           (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
}

std::string WhyNotAFile(const std::string& file) {
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        return "no such file";
    }
    if (error) {
        return error.message();
    }
    if (std::filesystem::is_directory(status)) {
        return "it is a folder";
    }
    return std::filesystem::is_regular_file(status) ? "" : "it is not a regular file";
}

}  // namespace

Demuxer::Demuxer(const std::string& file, int stream, Probe probe, const StopTime* stop)
    : file_(file), probe_(probe), stop_(stop) {
    Ffmpeg::RouteMessages();
    try {
        OpenFile();
        OpenFormat();
        ChooseStream(stream);
    } catch (...) {
        Close();
        throw;
    }
}

Demuxer::~Demuxer() {
    Close();
}

void Demuxer::Fail(const std::string& what) const {
    throw std::runtime_error("\"" + file_ + "\": " + what);
}

void Demuxer::OpenFile() {
    if (const auto reason = WhyNotAFile(file_); !reason.empty()) {
        Fail("cannot be opened: " + reason);
    }
    AVIOInterruptCB interrupt{};
    if (stop_ != nullptr) {
        interrupt = {IsStopped, const_cast<StopTime*>(stop_)};
    }
    const int result = avio_open2(&io_, ("file:" + file_).c_str(), AVIO_FLAG_READ, &interrupt, nullptr);
    if (result < 0) {
        Fail("cannot be opened: " + Ffmpeg::ErrorText(result));
    }
    if (avio_size(io_) == 0) {
        Fail("is empty");
    }
    format_ = avformat_alloc_context();
    if (format_ == nullptr) {
        throw std::bad_alloc();
    }
    format_->pb = io_;
    format_->interrupt_callback = interrupt;
}

void Demuxer::OpenFormat() {
    int result = avformat_open_input(&format_, nullptr, nullptr, nullptr);
    if (result < 0) {
        Fail("is not a recording that can be read: " + Ffmpeg::ErrorText(result));
    }
    if (probe_ == Probe::Nothing && DescribesItself(*format_->iformat)) {
        return;
    }
    result = avformat_find_stream_info(format_, nullptr);
    if (result < 0) {
        Fail("its streams cannot be told: " + Ffmpeg::ErrorText(result));
    }
}

int Demuxer::FirstVideo() const {
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        if (IsPicture(*format_->streams[i])) {
            return static_cast<int>(i);
        }
    }
    Fail("has no video stream");
}

void Demuxer::ChooseStream(int wanted) {
    stream_ = wanted < 0 ? FirstVideo() : wanted;
    if (stream_ >= static_cast<int>(format_->nb_streams) || !IsPicture(*format_->streams[stream_])) {
        Fail("its stream " + std::to_string(wanted) + " is not a video stream");
    }
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        if (static_cast<int>(i) != stream_) {
            format_->streams[i]->discard = AVDISCARD_ALL;
        }
    }
}

bool Demuxer::Next(AVPacket& packet) {
    int nbDamaged = 0;
    while (true) {
        const int result = av_read_frame(format_, &packet);
        if (result >= 0 && packet.stream_index == stream_) {
            return true;
        }
        if (result >= 0) {
            av_packet_unref(&packet);
        } else if (result == AVERROR_EOF && (io_->error >= 0 || io_->error == AVERROR_EOF)) {
            return false;
        } else if (result == AVERROR_EOF) {
            // Several demuxers report a failed read as the end of the file.
            Fail("cannot be read: " + Ffmpeg::ErrorText(io_->error));
        } else if (result != AVERROR_INVALIDDATA || ++nbDamaged > kMaxDamagedPackets) {
            Fail("cannot be read: " + Ffmpeg::ErrorText(result));
        }
    }
}

bool Demuxer::SeekBackwardTo(std::int64_t timeStamp) {
    return av_seek_frame(format_, stream_, timeStamp, AVSEEK_FLAG_BACKWARD) >= 0;
}

bool Demuxer::SeeksByPosition() const {
    const int flags = format_->iformat->flags;
    return (flags & AVFMT_NO_BYTE_SEEK) == 0 && (flags & AVFMT_TS_DISCONT) != 0;
}

bool Demuxer::SeekToPosition(std::int64_t position) {
    return av_seek_frame(format_, stream_, position, AVSEEK_FLAG_BYTE) >= 0;
}

std::int64_t Demuxer::FileSize() const {
    return avio_size(io_);
}

std::uint64_t Demuxer::BytesRead() const {
    return static_cast<std::uint64_t>(io_->bytes_read);
}

void Demuxer::Close() {
    if (format_ != nullptr) {
        avformat_close_input(&format_);
    }
    if (io_ != nullptr) {
        avio_closep(&io_);
    }
}

}  // namespace Tavrin::Playout
