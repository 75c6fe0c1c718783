#include "Playout/SimulatedRecording.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Playout/Ffmpeg.h"
#include "Playout/RecordingIndexBuilder.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace Tavrin::Playout {

namespace {

using Content = RecordingIndexBuilder::Content;

constexpr std::size_t kMostPictures = 10'000'000;
constexpr int kLargestSide = 16'384;
constexpr int kDeepestReorder = 16;
constexpr std::int64_t kBitsPerByte = 8;
constexpr std::int64_t kMostBitsPerSecond = 100'000'000'000;

[[noreturn]] void Refuse(const std::string& what, const std::string& rule) {
    throw std::invalid_argument(what + ": it must be " + rule);
}

template <typename Number>
void CheckRange(const std::string& name, Number value, Number lowest, Number highest) {
    if (value < lowest || value > highest) {
        Refuse(name + " of " + std::to_string(value),
               "from " + std::to_string(lowest) + " to " + std::to_string(highest));
    }
}

/// The bytes of the first pictures up to one, rounded down: what they add up to never drifts from the rate.
std::int64_t BytesUpTo(std::size_t picture, const RecordingModel& model) {
    const Time::TimePoint until =
        Time::TimePoint::StartOfSample(static_cast<std::int64_t>(picture), model.rate);
    const Time::Ratio bytesPerSecond(model.bitsPerSecond, kBitsPerByte);
    return until.SampleNumber(bytesPerSecond);
}

void AddPicture(Content& content, std::size_t number, std::size_t group, const RecordingModel& model) {
    const auto sample = static_cast<std::int64_t>(number);
    const bool isKey = number == content.groups[group].firstPicture;
    const std::int64_t begin = BytesUpTo(number, model);
    CodedPacket packet;
    packet.pts = sample;
    packet.dts = sample;
    packet.duration = 1;
    packet.position = begin;
    packet.size = static_cast<std::int32_t>(BytesUpTo(number + 1, model) - begin);
    packet.key = isKey;
    packet.entry = isKey;
    IndexedPicture picture;
    picture.start = Time::TimePoint::StartOfSample(sample, model.rate);
    picture.duration = Time::TimePoint::StartOfSample(sample + 1, model.rate) - picture.start;
    picture.sample = sample;
    picture.end = sample + 1;
    picture.packet = number;
    picture.group = group;
    picture.key = isKey;
    content.groups[group].nbBytes += packet.size;
    content.packets.push_back(packet);
    content.pictures.push_back(picture);
    content.pictureOfPacket.emplace_back(number);
}

void LayOut(Content& content, const RecordingModel& model) {
    std::size_t length = model.firstGroupLength == 0 ? model.groupLength : model.firstGroupLength;
    for (std::size_t first = 0; first < model.nbPictures; length = model.groupLength) {
        const std::size_t nb = std::min(length, model.nbPictures - first);
        content.groups.push_back({first, nb, first, nb, 0});
        for (std::size_t i = 0; i < nb; ++i) {
            AddPicture(content, first + i, content.groups.size() - 1, model);
        }
        first += nb;
    }
}

}  // namespace

void RecordingModel::Check() const {
    if (!rate.Positive()) {
        Refuse("a rate of " + rate.ToString() + " pictures a second", "above 0");
    }
    CheckRange("a recording", nbPictures, std::size_t{1}, kMostPictures);
    CheckRange("a group length", groupLength, std::size_t{1}, kMostPictures);
    CheckRange("a first group length", firstGroupLength, std::size_t{0}, groupLength);
    CheckRange("a bit rate", bitsPerSecond, std::int64_t{1}, kMostBitsPerSecond);
    CheckRange("a reorder depth", reorderDepth, 0, kDeepestReorder);
    CheckRange("a width", width, 1, kLargestSide);
    CheckRange("a height", height, 1, kLargestSide);
    const auto format = av_get_pix_fmt(pixelFormat.c_str());
    const auto* description = av_pix_fmt_desc_get(format);
    if (description == nullptr || (description->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0) {
        Refuse("a pixel format of '" + pixelFormat + "'", "one of FFmpeg's in main memory, such as yuv420p");
    }
}

std::shared_ptr<const RecordingIndex> MakeSimulatedRecording(const RecordingModel& model) {
    model.Check();
    auto content = std::make_unique<Content>();
    content->file = "simulated";
    content->description.container = "simulated";
    content->description.codec = "simulated";
    content->description.pixelFormat = model.pixelFormat;
    content->description.width = model.width;
    content->description.height = model.height;
    content->description.bitsPerSecond = model.bitsPerSecond;
    content->parameters.reset(avcodec_parameters_alloc());
    content->rate = model.rate;
    content->timeBase = Time::Ratio(1, 1) / model.rate;
    content->nbSamples = static_cast<std::int64_t>(model.nbPictures);
    content->reorderDepth = model.groupLength == 1 ? 0 : model.reorderDepth;
    LayOut(*content, model);
    return RecordingIndexBuilder::FromContent(std::move(content));
}

}  // namespace Tavrin::Playout
