#pragma once

#include <cstdint>
#include <string>

#include "Playout/Ffmpeg.h"
#include "Playout/StopTime.h"

namespace Tavrin::Playout {

/// One open file and one of its video streams: delivers the packets of that stream in the file's order.
///
/// The format is told from the content alone: a name's ending must not turn any text into a recording, nor
/// a colon in a name into a protocol.
///
/// *Threads:* externally synchronised; the stop time may be set from any thread. *Blocking:* on the file.
/// *Errors:* the constructor and Next throw std::runtime_error in one line that names the file.
class Demuxer {
public:
    /// What is to be found out of the streams when the file is opened.
    enum class Probe {
        All,      ///< Everything, by decoding a picture where the header does not tell it.
        Nothing,  ///< For packets alone: only what finding them needs.
    };

    /// Opens the file. \p stream is a number in the file, or negative for the best one. Once \p stop (if not
    /// null) is over, every operation on the file fails; it must outlive the demuxer.
    Demuxer(const std::string& file, int stream, Probe probe = Probe::All, const StopTime* stop = nullptr);
    ~Demuxer();
    Demuxer(const Demuxer&) = delete;
    Demuxer& operator=(const Demuxer&) = delete;

    /// False at the end of the file. Damage in the container is skipped as far as the demuxer can.
    [[nodiscard]] bool Next(AVPacket& packet);

    /// Goes to a key frame at or before \p timeStamp (stream's time base), if the container can tell where
    /// that is: what Next delivers then decides. False when there is no such place.
    [[nodiscard]] bool SeekBackwardTo(std::int64_t timeStamp);

    /// Reading can begin at any place in the file: it is made for broadcast, without tables.
    [[nodiscard]] bool SeeksByPosition() const;
    /// Goes to a byte of the file; of use with such files, and with bare streams of pictures.
    [[nodiscard]] bool SeekToPosition(std::int64_t position);

    [[nodiscard]] const AVFormatContext& Format() const { return *format_; }
    [[nodiscard]] AVStream& Stream() const { return *format_->streams[stream_]; }
    [[nodiscard]] int StreamNumber() const { return stream_; }
    /// Bytes of the file; negative when unknown.
    [[nodiscard]] std::int64_t FileSize() const;
    /// Bytes taken from the file so far, also those that no packet came of.
    [[nodiscard]] std::uint64_t BytesRead() const;

private:
    void OpenFile();
    void OpenFormat();
    void ChooseStream(int wanted);
    [[nodiscard]] int FirstVideo() const;
    void Close();
    [[noreturn]] void Fail(const std::string& what) const;

    std::string file_;
    Probe probe_;
    const StopTime* stop_;
    AVIOContext* io_ = nullptr;
    AVFormatContext* format_ = nullptr;
    int stream_ = -1;
};

}  // namespace Tavrin::Playout
