#include "Playout/RecordingIndex.h"

#include <algorithm>
#include <utility>

#include "Playout/RecordingIndexBuilder.h"

namespace Tavrin::Playout {

std::shared_ptr<const RecordingIndex> RecordingIndex::Build(const std::string& file, int stream) {
    return RecordingIndexBuilder(file, stream).Build();
}

RecordingIndex::RecordingIndex(std::unique_ptr<const Content> content) : content_(std::move(content)) {
}

RecordingIndex::~RecordingIndex() = default;

const std::string& RecordingIndex::File() const {
    return content_->file;
}

int RecordingIndex::Stream() const {
    return content_->stream;
}

const RecordingDescription& RecordingIndex::Description() const {
    return content_->description;
}

const Player::SampleRate& RecordingIndex::Rate() const {
    return content_->rate;
}

bool RecordingIndex::ConstantRate() const {
    return content_->pictures.back().sample + 1 == static_cast<std::int64_t>(NbPictures()) &&
           content_->nbSamples == static_cast<std::int64_t>(NbPictures());
}

std::int64_t RecordingIndex::NbSamples() const {
    return content_->nbSamples;
}

Time::TimePoint RecordingIndex::Begin() const {
    return {};
}

Time::TimePoint RecordingIndex::End() const {
    return SampleStart(content_->nbSamples);
}

Time::TimePoint RecordingIndex::Duration() const {
    return End() - Begin();
}

Time::TimePoint RecordingIndex::SampleStart(std::int64_t sample) const {
    return Time::TimePoint::StartOfSample(sample, content_->rate);
}

std::size_t RecordingIndex::NbPictures() const {
    return content_->pictures.size();
}

std::size_t RecordingIndex::NbPackets() const {
    return content_->packets.size();
}

std::size_t RecordingIndex::NbGroups() const {
    return content_->groups.size();
}

const IndexedPicture& RecordingIndex::Picture(std::size_t picture) const {
    return content_->pictures.at(picture);
}

const CodedPacket& RecordingIndex::Packet(std::size_t packet) const {
    return content_->packets.at(packet);
}

const PictureGroup& RecordingIndex::Group(std::size_t group) const {
    return content_->groups.at(group);
}

std::size_t RecordingIndex::FirstShownAfter(std::int64_t sample) const {
    const auto& pictures = content_->pictures;
    const auto next =
        std::partition_point(pictures.begin(), pictures.end(),
                             [&](const IndexedPicture& picture) { return picture.end <= sample; });
    return static_cast<std::size_t>(next - pictures.begin());
}

std::optional<std::size_t> RecordingIndex::PictureAt(std::int64_t sample) const {
    const std::size_t picture = FirstShownAfter(sample);
    const bool isShown = picture < NbPictures() && Picture(picture).sample <= sample;
    return isShown ? std::optional(picture) : std::nullopt;
}

std::size_t RecordingIndex::PictureAtOrAfter(const Time::TimePoint& tp) const {
    return FirstShownAfter(tp.SampleNumber(content_->rate));
}

std::size_t RecordingIndex::NbHoles() const {
    std::size_t nb = 0;
    for (std::size_t i = 1; i < NbPictures(); ++i) {
        nb += Picture(i - 1).end < Picture(i).sample ? 1 : 0;
    }
    return nb;
}

std::optional<std::size_t> RecordingIndex::PictureAtTime(const Time::TimePoint& tp) const {
    return PictureAt(tp.SampleNumber(content_->rate));
}

std::optional<std::size_t> RecordingIndex::PictureOfPacket(std::size_t packet) const {
    return content_->pictureOfPacket.at(packet);
}

std::optional<std::size_t> RecordingIndex::GroupAtPacket(std::size_t packet) const {
    const auto& groups = content_->groups;
    const auto next = std::partition_point(
        groups.begin(), groups.end(), [&](const PictureGroup& group) { return group.firstPacket <= packet; });
    if (next == groups.begin()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(next - groups.begin()) - 1;
}

bool RecordingIndex::IntraOnly() const {
    const auto& groups = content_->groups;
    return std::all_of(groups.begin(), groups.end(),
                       [](const PictureGroup& group) { return group.nbPictures == 1; });
}

int RecordingIndex::ReorderDepth() const {
    return content_->reorderDepth;
}

std::size_t RecordingIndex::NbMissingPackets() const {
    return content_->nbMissingPackets;
}

const std::string& RecordingIndex::ReadError() const {
    return content_->readError;
}

Time::Ratio RecordingIndex::TimeBase() const {
    return content_->timeBase;
}

const AVCodecParameters& RecordingIndex::CodecParameters() const {
    return *content_->parameters;
}

}  // namespace Tavrin::Playout
