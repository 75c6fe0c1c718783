#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Player/SampleRate.h"
#include "Playout/PlayoutExport.h"
#include "Time/TimePoint.h"

struct AVCodecParameters;

namespace Tavrin::Playout {

/// One coded packet of the chosen video stream, with all that is needed to find it again in the file.
struct CodedPacket {
    /// Presentation and decoding time stamps in units of the stream's time base; `kNone` when there is none.
    static constexpr std::int64_t kNone = INT64_MIN;
    std::int64_t pts = kNone;
    std::int64_t dts = kNone;
    std::int64_t duration = 0;   ///< In units of the stream's time base, 0 when the file does not say.
    std::int64_t position = -1;  ///< Byte offset in the file, -1 when the container does not tell.
    std::int32_t size = 0;       ///< Bytes.
    bool key = false;            ///< The container marks it as a key frame.
    bool entry = false;          ///< Decoding can begin here: a key frame that is really intra coded.
    bool hidden = false;         ///< Decoded (others may refer to it) but never shown: edit lists do that.
    bool secondField = false;    ///< Completes the picture that the packet before it began.
    bool damaged = false;        ///< The demuxer could not deliver it whole.
    bool disposable = false;     ///< Known to be a whole picture from which no other is predicted.
};

/// One shown picture. Pictures are numbered from 0 in presentation order.
struct IndexedPicture {
    Time::TimePoint start;     ///< Presentation time after the first shown picture, nearest nanosecond.
    Time::TimePoint duration;  ///< Until the next picture or a hole; for the last one what the file says.
    std::int64_t sample = 0;   ///< First sample of the grid on which this picture is on display.
    std::int64_t end = 0;      ///< First sample after it on which it is not: the next picture's, or a hole.
    std::size_t packet = 0;    ///< Its packet's number in decoding order.
    std::size_t group = 0;     ///< The display group that it belongs to.
    bool key = false;          ///< The container marks it as a key frame.
};

/// A display group: the pictures from one key frame up to the next in presentation order, and the run of
/// packets that decodes all of them without anything before it.
///
/// In an open group some pictures shown before the next key frame are coded after it; the run then reaches
/// into the next group, up to the last packet that any of its pictures needs:
///
///     decoding order   I0 P3 B1 B2 | I6 B4 B5 P9 B7 B8 ...
///     group 0          \__________________/              shows 0 1 2 3 4 5
///     group 1                        \_________________  shows 6 7 8 9 ... (passes over B4 B5)
struct PictureGroup {
    std::size_t firstPicture = 0;
    std::size_t nbPictures = 0;
    std::size_t firstPacket = 0;
    std::size_t nbPackets = 0;
    std::int64_t nbBytes = 0;  ///< Of all the packets of the run.

    [[nodiscard]] std::size_t EndPicture() const { return firstPicture + nbPictures; }
    [[nodiscard]] std::size_t EndPacket() const { return firstPacket + nbPackets; }
};

/// What a recording is, for a person to read.
struct RecordingDescription {
    std::string container;    ///< Short name of the file format.
    std::string codec;        ///< Short name of the codec, such as h264.
    std::string pixelFormat;  ///< Such as yuv420p; empty when the file does not tell.
    int width = 0;
    int height = 0;
    bool interlaced = false;
    bool topFieldFirst = false;      ///< Meaningful for interlaced material only.
    std::int64_t bitsPerSecond = 0;  ///< Mean over the recording, of the video packets alone.
};

/// All pictures of one video stream of a file, found by demuxing alone: what is on display when, and which
/// packets have to be read and decoded for it.
///
/// Time point 0 is the first shown picture, whatever its time stamp in the file. Samples are numbered on a
/// grid of Rate(); the sample at a time point is the picture on display then, so a picture that stays longer
/// than one period occupies several samples. A recording with constant rate has exactly one sample for each
/// picture and its exact rate (30000/1001, not its decimal neighbour), also when the time stamps of the file
/// are too coarse to say so. Otherwise the grid is the nominal rate or the smallest multiple of it, up to
/// kMaxVariableRate, that gives every picture a sample of its own; beyond that limit pictures that come
/// closer together than a sample hide one another, the later one being on display.
///
/// A recording of constant rate that was interrupted for more than a second has a hole there, without a
/// picture. In one of variable rate a picture stays however long it takes until the next one.
///
/// *Threads:* immutable. *Blocking:* Build reads the whole file once, everything else never.
/// *Ownership:* shared; readers, lanes and samples keep the index that they were made with alive.
/// *Errors:* Build throws std::runtime_error in one line that names the file and the reason: it does not
/// exist, is not a recording, has no video, no decoder, no usable time stamps.
class TAVRIN_PLAYOUT_EXPORT RecordingIndex final {
public:
    /// Lets Build take the file's first video stream (cover pictures are none).
    static constexpr int kFirstVideo = -1;

    /// Finest grid for a variable rate, samples per second. Above any display's rate; a grid costs planning.
    static constexpr std::int64_t kMaxVariableRate = 240;

    /// Demuxes a local file. \p stream is the number of a stream in the file, or kFirstVideo.
    [[nodiscard]] static std::shared_ptr<const RecordingIndex> Build(const std::string& file,
                                                                     int stream = kFirstVideo);

    ~RecordingIndex();
    RecordingIndex(const RecordingIndex&) = delete;
    RecordingIndex& operator=(const RecordingIndex&) = delete;

    [[nodiscard]] const std::string& File() const;
    [[nodiscard]] int Stream() const;  ///< The number of the stream in the file.
    [[nodiscard]] const RecordingDescription& Description() const;

    [[nodiscard]] const Player::SampleRate& Rate() const;
    [[nodiscard]] bool ConstantRate() const;         ///< One sample of the grid for each picture.
    [[nodiscard]] std::int64_t NbSamples() const;    ///< Length of the grid; at least the pictures' number
                                                     ///< unless some hide one another.
    [[nodiscard]] Time::TimePoint Begin() const;     ///< Always the origin.
    [[nodiscard]] Time::TimePoint End() const;       ///< Start of sample NbSamples(): just after the last.
    [[nodiscard]] Time::TimePoint Duration() const;  ///< End() minus Begin().
    [[nodiscard]] Time::TimePoint SampleStart(std::int64_t sample) const;  ///< First nanosecond, rounded up.

    [[nodiscard]] std::size_t NbPictures() const;
    [[nodiscard]] std::size_t NbPackets() const;
    [[nodiscard]] std::size_t NbGroups() const;

    /// The three below throw std::out_of_range for a number that does not exist.
    [[nodiscard]] const IndexedPicture& Picture(std::size_t picture) const;
    [[nodiscard]] const CodedPacket& Packet(std::size_t packet) const;
    [[nodiscard]] const PictureGroup& Group(std::size_t group) const;

    /// The picture on display at a sample of the grid; nothing outside the recording and in its holes.
    [[nodiscard]] std::optional<std::size_t> PictureAt(std::int64_t sample) const;
    /// The same for a time point, which need not be aligned.
    [[nodiscard]] std::optional<std::size_t> PictureAtTime(const Time::TimePoint& tp) const;
    /// The same, or the first one that begins after that; NbPictures() when there is none.
    [[nodiscard]] std::size_t PictureAtOrAfter(const Time::TimePoint& tp) const;
    /// The stretches without a picture between two pictures.
    [[nodiscard]] std::size_t NbHoles() const;
    /// The picture that a packet's decoding shows; nothing for hidden packets and second fields.
    [[nodiscard]] std::optional<std::size_t> PictureOfPacket(std::size_t packet) const;

    /// The last group whose run begins at that packet or before it; nothing before the first run.
    [[nodiscard]] std::optional<std::size_t> GroupAtPacket(std::size_t packet) const;

    /// Every picture can be decoded alone.
    [[nodiscard]] bool IntraOnly() const;
    /// Pictures at most that come before another in decoding order and after it on display.
    [[nodiscard]] int ReorderDepth() const;
    /// Packets that the container's own index lists beyond the end of the file: it was cut off.
    [[nodiscard]] std::size_t NbMissingPackets() const;
    /// Why demuxing ended before the end of the file; empty when it did not.
    [[nodiscard]] const std::string& ReadError() const;

    /// Time base of the packets' stamps, seconds per unit.
    [[nodiscard]] Time::Ratio TimeBase() const;
    /// What a decoder must be told. Valid as long as the index.
    [[nodiscard]] const AVCodecParameters& CodecParameters() const;

private:
    struct Content;
    friend class RecordingIndexBuilder;
    explicit RecordingIndex(std::unique_ptr<const Content> content);

    /// Of the pictures that are on display after that sample or at it.
    [[nodiscard]] std::size_t FirstShownAfter(std::int64_t sample) const;

    std::unique_ptr<const Content> content_;
};

}  // namespace Tavrin::Playout
