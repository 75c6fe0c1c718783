#include "Playout/NumberedRecording.h"

#include <stdexcept>
#include <utility>

#include "Playout/BarCode.h"
#include "Playout/StraightDecoder.h"

namespace Tavrin::Playout {

namespace {

std::shared_ptr<const Picture> FirstPicture(const std::shared_ptr<const RecordingIndex>& index) {
    std::shared_ptr<const Picture> first;
    StraightDecoder(index).Run([&first](const std::shared_ptr<const Picture>& picture) {
        first = picture;
        return false;
    });
    if (first == nullptr) {
        throw std::runtime_error(index->File() + ": none of its pictures can be decoded");
    }
    return first;
}

}  // namespace

NumberedRecording::NumberedRecording(std::shared_ptr<const RecordingIndex> index) : index_(std::move(index)) {
    const auto first = FirstPicture(index_);
    pictureBytes_ = first->ByteSize();
    if (const auto code = ReadBarCode(*first)) {
        firstCode_ = *code - static_cast<std::uint32_t>(first->Number());
    }
}

std::optional<std::int64_t> NumberedRecording::Distance(const Picture& shown, std::size_t expected) const {
    if (!firstCode_) {
        return static_cast<std::int64_t>(shown.Number()) - static_cast<std::int64_t>(expected);
    }
    const auto code = ReadBarCode(shown);
    if (!code) {
        return std::nullopt;
    }
    // Codes begin anew at 0, so the nearer way round is meant.
    const std::uint32_t ahead =
        (*code - *firstCode_ - static_cast<std::uint32_t>(expected)) & (kNbBarCodes - 1);
    return ahead < kNbBarCodes / 2 ? std::int64_t{ahead} : std::int64_t{ahead} - kNbBarCodes;
}

}  // namespace Tavrin::Playout
