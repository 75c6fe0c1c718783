#include "Playout/StraightDecoder.h"

#include <algorithm>
#include <deque>
#include <stdexcept>
#include <utility>

#include "Playout/Decoder.h"
#include "Playout/Demuxer.h"

namespace Tavrin::Playout {

namespace {

/// The packets of the stream in the order of the file, numbered as the index numbers them.
class PacketSource {
public:
    explicit PacketSource(const RecordingIndex& index)
        : demuxer_(index.File(), index.Stream()),
          packet_(Ffmpeg::NewPacket()),
          nbPackets_(index.NbPackets()) {}

    /// Gives the decoder the next packet, or the end. A file that cannot be read further ends there.
    void Feed(Decoder& decoder, std::string& error) {
        if (number_ == nbPackets_ || !ReadOne(error)) {
            decoder.SendEnd();
            return;
        }
        decoder.Send(*packet_, number_++);
        av_packet_unref(packet_.get());
    }

private:
    bool ReadOne(std::string& error) {
        try {
            return demuxer_.Next(*packet_);
        } catch (const std::runtime_error& failure) {
            error = failure.what();
            return false;
        }
    }

    Demuxer demuxer_;
    Ffmpeg::PacketPointer packet_;
    std::size_t nbPackets_;
    std::size_t number_ = 0;
};

/// How many places before another a picture is shown at most that is decoded after it.
std::size_t PlacesBefore(const RecordingIndex& index) {
    constexpr std::size_t kMostPlaces = 32;  // twice what any codec allows to reorder
    std::size_t most = 0;
    for (std::size_t picture = 1; picture < index.NbPictures(); ++picture) {
        for (auto place = std::min(picture, kMostPlaces); place > most; --place) {
            if (index.Picture(picture - place).packet > index.Picture(picture).packet) {
                most = place;
            }
        }
    }
    return most;
}

/// Holds pictures back until the damage in what they are predicted from has been seen, which may be shown
/// after them.
class HoldBack {
public:
    HoldBack(const Decoder& decoder, std::size_t nb) : decoder_(decoder), nb_(nb) {}

    void Add(std::shared_ptr<const Picture> picture) { held_.push_back(std::move(picture)); }
    bool IsOverdue() const { return held_.size() > nb_; }
    bool IsEmpty() const { return held_.empty(); }

    std::shared_ptr<const Picture> Take() {
        auto picture = std::move(held_.front());
        held_.pop_front();
        if (decoder_.IsDamaged(picture->Number()) && !picture->Damaged()) {
            return std::make_shared<const Picture>(picture->Number(), picture->Native(), true);
        }
        return picture;
    }

private:
    const Decoder& decoder_;
    std::size_t nb_;
    std::deque<std::shared_ptr<const Picture>> held_;
};

}  // namespace

StraightDecoder::StraightDecoder(std::shared_ptr<const RecordingIndex> index, int nbThreads)
    : index_(std::move(index)), nbThreads_(nbThreads) {
}

StraightDecoder::Result StraightDecoder::Run(const Callback& callback) {
    PacketSource source(*index_);
    Decoder decoder(*index_, nbThreads_);
    Result result;
    std::string fileError;
    HoldBack held(decoder, PlacesBefore(*index_));
    const auto handOver = [&] {
        ++result.nbPictures;
        return callback(held.Take());
    };
    for (bool wanted = true; wanted;) {
        const auto event = decoder.Receive();
        if (event == Decoder::Event::WantsPacket) {
            source.Feed(decoder, fileError);
        } else if (event == Decoder::Event::Picture) {
            held.Add(decoder.TakePicture());
            wanted = !held.IsOverdue() || handOver();
        } else {
            while (!held.IsEmpty() && handOver()) {
            }
            wanted = false;
        }
    }
    result.nbErrors = decoder.NbErrors();
    result.lastError = fileError.empty() ? decoder.LastError() : fileError;
    return result;
}

}  // namespace Tavrin::Playout
