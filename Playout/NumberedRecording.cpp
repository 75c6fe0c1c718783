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

std::optional<std::uint64_t> NumberedRecording::NumberOf(const Picture& shown) const {
    if (!firstCode_) {
        return shown.Number();
    }
    const auto code = ReadBarCode(shown);
    return code ? std::optional<std::uint64_t>((*code - *firstCode_) & (kNbBarCodes - 1)) : std::nullopt;
}

std::int64_t NumberedRecording::Distance(std::uint64_t number, std::size_t expected) const {
    const auto ahead = static_cast<std::int64_t>(number) - static_cast<std::int64_t>(expected);
    if (!firstCode_) {
        return ahead;
    }
    constexpr std::int64_t kHalf = kNbBarCodes / 2;
    const std::int64_t around = (ahead + kHalf) & (std::int64_t{kNbBarCodes} - 1);
    return around - kHalf;
}

bool NumberedRecording::Shows(const Picture& shown, std::size_t expected) const {
    const auto number = NumberOf(shown);
    return number && Distance(*number, expected) == 0;
}

}  // namespace Tavrin::Playout
