#include "Playout/StraightDecoder.h"

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

}  // namespace

StraightDecoder::StraightDecoder(std::shared_ptr<const RecordingIndex> index, int nbThreads)
    : index_(std::move(index)), nbThreads_(nbThreads) {
}

StraightDecoder::Result StraightDecoder::Run(const Callback& callback) {
    PacketSource source(*index_);
    Decoder decoder(*index_, nbThreads_);
    Result result;
    std::string fileError;
    while (true) {
        const auto event = decoder.Receive();
        if (event == Decoder::Event::WantsPacket) {
            source.Feed(decoder, fileError);
            continue;
        }
        if (event == Decoder::Event::End) {
            break;
        }
        ++result.nbPictures;
        if (!callback(decoder.TakePicture())) {
            break;
        }
    }
    result.nbErrors = decoder.NbErrors();
    result.lastError = fileError.empty() ? decoder.LastError() : fileError;
    return result;
}

}  // namespace Tavrin::Playout
