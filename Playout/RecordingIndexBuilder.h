#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Playout/Ffmpeg.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

class Demuxer;
class PacketInspector;
struct CodedOrder;
struct PictureGrid;

/// What an index holds.
struct RecordingIndex::Content {
    std::string file;
    int stream = 0;
    RecordingDescription description;
    Ffmpeg::ParametersPointer parameters;
    Time::Ratio timeBase;
    Player::SampleRate rate;
    std::int64_t nbSamples = 0;
    std::vector<CodedPacket> packets;
    std::vector<IndexedPicture> pictures;
    std::vector<std::optional<std::size_t>> pictureOfPacket;
    std::vector<PictureGroup> groups;
    int reorderDepth = 0;
    std::size_t nbMissingPackets = 0;
    std::string readError;
};

/// Makes a RecordingIndex: demuxes, completes the time stamps, lays out groups and grid.
class RecordingIndexBuilder {
public:
    using Content = RecordingIndex::Content;

    RecordingIndexBuilder(const std::string& file, int stream);

    [[nodiscard]] std::shared_ptr<const RecordingIndex> Build();

    /// An index of what is in no file: for simulations.
    [[nodiscard]] static std::shared_ptr<const RecordingIndex> FromContent(
        std::unique_ptr<const Content> content);

private:
    void ReadPackets(Demuxer& demuxer);
    void AddPacket(const AVPacket& packet, PacketInspector& inspector);
    void CompleteTimeStamps(const std::vector<CodedOrder>& orders);
    void HideUndecodableBeginning();
    void CountMissingPackets(const Demuxer& demuxer);
    void Describe(const Demuxer& demuxer);
    void LayOutPictures();
    void LayOutTimes(const std::vector<Time::Ratio>& claimedRates);
    [[nodiscard]] std::int64_t LastDuration() const;
    [[nodiscard]] std::vector<std::int64_t> LengthsIn(const PictureGrid& grid) const;
    [[nodiscard]] Time::TimePoint TimeOf(std::int64_t units) const;
    [[noreturn]] void Fail(const std::string& what) const;

    std::string file_;
    int stream_;
    std::unique_ptr<RecordingIndex::Content> content_;
};

}  // namespace Tavrin::Playout
