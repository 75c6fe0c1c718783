#include "Playout/RecordingIndexBuilder.h"

extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "Playout/Demuxer.h"
#include "Playout/GroupLayout.h"
#include "Playout/PacketInspector.h"
#include "Playout/PictureGrid.h"
#include "Playout/PictureHoles.h"
#include "Playout/StampCompletion.h"

namespace Tavrin::Playout {

namespace {

constexpr AVRational kNanoseconds{1, 1'000'000'000};

/// Damaged files have stamps of any size. Beyond these, which no recording reaches in any time base, they are
/// taken for missing, so that sums of them fit.
constexpr auto kFarthestStamp = std::int64_t{1} << 60;
constexpr auto kLongestDuration = std::int64_t{1} << 38;

std::int64_t Stamp(std::int64_t value) {
    const bool known = value != AV_NOPTS_VALUE && value > -kFarthestStamp && value < kFarthestStamp;
    return known ? value : CodedPacket::kNone;
}

Time::Ratio ToRatio(const AVRational& value) {
    return value.num <= 0 || value.den <= 0 ? Time::Ratio() : Time::Ratio(value.num, value.den);
}

std::string NameOrEmpty(const char* name) {
    return name == nullptr ? "" : name;
}

bool IsInterlaced(AVFieldOrder order) {
    return order != AV_FIELD_UNKNOWN && order != AV_FIELD_PROGRESSIVE;
}

bool IsTopFieldFirst(AVFieldOrder order) {
    return order == AV_FIELD_TT || order == AV_FIELD_TB;
}

}  // namespace

RecordingIndexBuilder::RecordingIndexBuilder(const std::string& file, int stream)
    : file_(file), stream_(stream), content_(std::make_unique<RecordingIndex::Content>()) {
}

void RecordingIndexBuilder::Fail(const std::string& what) const {
    throw std::runtime_error("\"" + file_ + "\": " + what);
}

std::shared_ptr<const RecordingIndex> RecordingIndexBuilder::Build() {
    Demuxer demuxer(file_, stream_);
    const auto& stream = demuxer.Stream();
    content_->file = file_;
    content_->stream = demuxer.StreamNumber();
    content_->timeBase = ToRatio(stream.time_base);
    content_->parameters.reset(avcodec_parameters_alloc());
    if (content_->parameters == nullptr ||
        avcodec_parameters_copy(content_->parameters.get(), stream.codecpar) < 0) {
        throw std::bad_alloc();
    }
    if (stream.codecpar->codec_id == AV_CODEC_ID_NONE) {
        Fail("its video is in a codec that is not known");
    }
    if (avcodec_find_decoder(stream.codecpar->codec_id) == nullptr) {
        Fail(std::string("there is no decoder for ") + avcodec_get_name(stream.codecpar->codec_id));
    }
    if (stream.codecpar->width <= 0 || stream.codecpar->height <= 0) {
        Fail("its video cannot be decoded: nothing in it tells the size of its pictures");
    }
    ReadPackets(demuxer);
    CountMissingPackets(demuxer);
    LayOutPictures();
    LayOutTimes({ToRatio(stream.r_frame_rate), ToRatio(stream.avg_frame_rate)});
    Describe(demuxer);
    return std::shared_ptr<const RecordingIndex>(new RecordingIndex(std::move(content_)));
}

std::shared_ptr<const RecordingIndex> RecordingIndexBuilder::FromContent(
    std::unique_ptr<const Content> content) {
    return std::shared_ptr<const RecordingIndex>(new RecordingIndex(std::move(content)));
}

void RecordingIndexBuilder::ReadPackets(Demuxer& demuxer) {
    PacketInspector inspector(*content_->parameters);
    const auto packet = Ffmpeg::NewPacket();
    try {
        while (demuxer.Next(*packet)) {
            AddPacket(*packet, inspector);
            av_packet_unref(packet.get());
        }
    } catch (const std::runtime_error& error) {
        // What was read so far can be played; without any of it there is nothing to play.
        if (content_->packets.empty()) {
            throw;
        }
        content_->readError = error.what();
    }
    if (content_->packets.empty()) {
        Fail("holds no pictures");
    }
    CompleteTimeStamps(inspector.Orders());
    if (inspector.BeginsInMidGroup()) {
        HideUndecodableBeginning();
    }
}

void RecordingIndexBuilder::AddPacket(const AVPacket& packet, PacketInspector& inspector) {
    CodedPacket coded;
    coded.pts = Stamp(packet.pts);
    coded.dts = Stamp(packet.dts);
    coded.duration = std::clamp<std::int64_t>(packet.duration, 0, kLongestDuration);
    coded.position = packet.pos;
    coded.size = packet.size;
    coded.key = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    coded.hidden = (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
    coded.damaged = (packet.flags & AV_PKT_FLAG_CORRUPT) != 0;
    inspector.Inspect(packet, coded);
    content_->packets.push_back(coded);
}

void RecordingIndexBuilder::CompleteTimeStamps(const std::vector<CodedOrder>& orders) {
    auto& packets = content_->packets;
    if (CompleteStamps(packets, orders, content_->parameters->video_delay > 0)) {
        return;
    }
    const auto nbMissing = std::count_if(packets.begin(), packets.end(), [](const CodedPacket& packet) {
        return packet.pts == CodedPacket::kNone;
    });
    Fail("cannot be played: " + std::to_string(nbMissing) + " of its " + std::to_string(packets.size()) +
         " video packets have no time stamp that tells when they are shown");
}

/// A recording cut out of a longer one may begin with pictures predicted from what was cut away: those before
/// the first key frame, in either order. Nothing can decode them, and time begins with the first that can be.
void RecordingIndexBuilder::HideUndecodableBeginning() {
    auto& packets = content_->packets;
    const auto first =
        std::find_if(packets.begin(), packets.end(), [](const CodedPacket& packet) { return packet.entry; });
    if (first == packets.end()) {
        return;
    }
    for (auto packet = packets.begin(); packet != packets.end(); ++packet) {
        packet->hidden = packet->hidden || packet < first || packet->pts < first->pts;
    }
}

void RecordingIndexBuilder::CountMissingPackets(const Demuxer& demuxer) {
    const auto fileSize = demuxer.FileSize();
    auto& stream = demuxer.Stream();
    if (fileSize < 0) {
        return;
    }
    for (int i = 0; i < avformat_index_get_entries_count(&stream); ++i) {
        const auto* entry = avformat_index_get_entry(&stream, i);
        if (entry->pos >= fileSize) {
            ++content_->nbMissingPackets;
        }
    }
}

void RecordingIndexBuilder::LayOutPictures() {
    auto layout = LayOutGroups(content_->packets);
    if (layout.packetOfPicture.empty()) {
        Fail("holds no pictures that are shown");
    }
    content_->pictures.resize(layout.packetOfPicture.size());
    for (std::size_t i = 0; i < content_->pictures.size(); ++i) {
        auto& picture = content_->pictures[i];
        picture.packet = layout.packetOfPicture[i];
        picture.group = layout.groupOfPicture[i];
        picture.key = content_->packets[picture.packet].key;
    }
    content_->pictureOfPacket = std::move(layout.pictureOfPacket);
    content_->groups = std::move(layout.groups);
    content_->reorderDepth = layout.reorderDepth;
}

std::int64_t RecordingIndexBuilder::LastDuration() const {
    const auto& packets = content_->packets;
    const auto& pictures = content_->pictures;
    const auto number = pictures.back().packet;
    const auto& last = packets[number];
    if (last.duration > 0 || pictures.size() < 2) {
        const bool twoFields = number + 1 < packets.size() && packets[number + 1].secondField;
        return last.duration + (twoFields ? packets[number + 1].duration : 0);
    }
    return last.pts - packets[pictures[pictures.size() - 2].packet].pts;
}

Time::TimePoint RecordingIndexBuilder::TimeOf(std::int64_t units) const {
    const AVRational timeBase{static_cast<int>(content_->timeBase.Numerator()),
                              static_cast<int>(content_->timeBase.Denominator())};
    const auto nanoseconds = av_rescale_q(units, timeBase, kNanoseconds);
    return nanoseconds == std::numeric_limits<std::int64_t>::min()
               ? Time::TimePoint::GetHighestTimePoint()
               : Time::TimePoint().FromNanoseconds(nanoseconds);
}

/// What the file says of how long each picture lasts, in samples.
std::vector<std::int64_t> RecordingIndexBuilder::LengthsIn(const PictureGrid& grid) const {
    std::vector<std::int64_t> lengths;
    lengths.reserve(content_->pictures.size());
    for (const auto& picture : content_->pictures) {
        const auto duration = TimeOf(content_->packets[picture.packet].duration);
        lengths.push_back(duration.RoundWith(grid.rate).SampleNumber(grid.rate));
    }
    return lengths;
}

void RecordingIndexBuilder::LayOutTimes(const std::vector<Time::Ratio>& claimedRates) {
    auto& pictures = content_->pictures;
    PictureTimes times{{}, LastDuration(), content_->timeBase, claimedRates};
    const auto origin = content_->packets[pictures.front().packet].pts;
    for (const auto& picture : pictures) {
        times.times.push_back(content_->packets[picture.packet].pts - origin);
    }
    const auto grid = LayOutGrid(times, RecordingIndex::kMaxVariableRate);
    content_->rate = grid.rate;
    content_->nbSamples = grid.nbSamples;
    const auto ends = EndsOnDisplay(grid, LengthsIn(grid));
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        const bool last = i + 1 == pictures.size();
        const auto next = last ? times.times[i] + times.lastDuration : times.times[i + 1];
        const bool isBeforeHole = !last && ends[i] < grid.starts[i + 1];
        pictures[i].sample = grid.starts[i];
        pictures[i].end = ends[i];
        pictures[i].start = TimeOf(times.times[i]);
        const auto end = isBeforeHole ? Time::TimePoint::StartOfSample(ends[i], grid.rate) : TimeOf(next);
        pictures[i].duration = end - pictures[i].start;
    }
}

void RecordingIndexBuilder::Describe(const Demuxer& demuxer) {
    auto& description = content_->description;
    const auto& parameters = *content_->parameters;
    description.container = NameOrEmpty(demuxer.Format().iformat->name);
    description.codec = NameOrEmpty(avcodec_get_name(parameters.codec_id));
    description.pixelFormat = NameOrEmpty(av_get_pix_fmt_name(static_cast<AVPixelFormat>(parameters.format)));
    description.width = parameters.width;
    description.height = parameters.height;
    description.interlaced = IsInterlaced(parameters.field_order);
    description.topFieldFirst = IsTopFieldFirst(parameters.field_order);
    std::int64_t nbBytes = 0;
    for (const auto& packet : content_->packets) {
        nbBytes += packet.size;
    }
    const auto end = Time::TimePoint::StartOfSample(content_->nbSamples, content_->rate);
    if (const auto milliseconds = end.Milliseconds(); milliseconds > 0) {
        description.bitsPerSecond = nbBytes * 8 * 1000 / milliseconds;
    }
}

}  // namespace Tavrin::Playout
