#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "Playout/Ffmpeg.h"
#include "Playout/FramePool.h"
#include "Playout/Picture.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// A codec's decoder that works in the numbers of an index: packets go in by number, pictures come out by
/// number.
///
/// Take pictures with Receive until it wants a packet, then Send one; after the last one SendEnd, and Receive
/// until the end. Flush begins anew, at a key frame.
///
/// Damage is followed: a picture counts as damaged when it, or one decoded before it in the same group, had
/// to be made up by the decoder or could not be decoded at all.
///
/// *Threads:* externally synchronised. *Errors:* the constructor throws std::runtime_error when the decoder
/// cannot be opened, all throw std::bad_alloc. Errors in the recording are counted.
class Decoder {
public:
    enum class Event { Picture, WantsPacket, End };

    /// Where decoding begins, at first and after each Flush.
    enum class Begins { Anywhere, AtKeyFrames };

    /// Borrows the index for the decoder's life. The pictures' memory comes from \p pool, when there is one.
    Decoder(const RecordingIndex& index, int nbThreads, Begins begins = Begins::Anywhere,
            std::shared_ptr<FramePool> pool = nullptr);

    /// \p wanted false: its picture is not of interest, nor are errors in it, because what it is predicted
    /// from was not decoded.
    void Send(const AVPacket& packet, std::size_t number, bool wanted = true);
    void SendEnd();
    /// A packet that is not there: what is predicted from it comes out damaged.
    void SkipPacket(std::size_t number) { MarkDamage(number); }

    /// After Event::Picture, PictureNumber tells which one came out; pictures that are never shown are left
    /// out.
    [[nodiscard]] Event Receive();
    [[nodiscard]] std::size_t PictureNumber() const { return pictureNumber_; }
    /// The picture itself, to be taken before the next Receive.
    [[nodiscard]] std::shared_ptr<const Picture> TakePicture() const;
    /// By what is known now: a picture that is shown before the damaged one from which it is predicted comes
    /// out before that is seen.
    [[nodiscard]] bool IsDamaged(std::size_t picture) const;

    void Flush();

    [[nodiscard]] std::uint64_t NbPacketsDecoded() const { return nbPacketsDecoded_; }
    [[nodiscard]] std::uint64_t NbErrors() const { return nbErrors_; }
    [[nodiscard]] const std::string& LastError() const { return lastError_; }

private:
    void CountError(int code);
    void MarkDamage(std::size_t packet);
    void MarkDamage(std::size_t group, std::size_t packet);
    [[nodiscard]] bool IsShown();

    const RecordingIndex& index_;
    std::shared_ptr<FramePool> pool_;
    Ffmpeg::CodecPointer context_;
    Ffmpeg::PacketPointer packet_;
    Ffmpeg::FramePointer frame_;
    std::size_t pictureNumber_ = 0;
    std::size_t sent_ = 0;  ///< The packet sent last.
    bool wanted_ = true;    ///< And whether it was.
    /// For each damaged group since the last Flush, the first damaged packet.
    std::map<std::size_t, std::size_t> damage_;
    int nbErrorsInARow_ = 0;
    std::uint64_t nbPacketsDecoded_ = 0;
    std::uint64_t nbErrors_ = 0;
    std::string lastError_;
};

}  // namespace Tavrin::Playout
