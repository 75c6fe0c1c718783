#include "Playout/PictureStore.h"

#include <algorithm>
#include <utility>

namespace Tavrin::Playout {

namespace {

/// Turning round is rarer than going on.
constexpr std::uint64_t kBehindFactor = 3;

/// Beyond every distance within a recording.
constexpr std::uint64_t kNotShown = std::uint64_t{1} << 62U;

}  // namespace

void PictureStore::SetMaxBytes(std::size_t maxBytes) {
    const std::lock_guard lock(mutex_);
    maxBytes_ = maxBytes;
    while (pictures_.size() > 1 && bytes_ > maxBytes_) {
        Drop(Farthest(pictures_.begin()->first));
    }
}

void PictureStore::SetPlace(const PlayPlace& place) {
    const std::lock_guard lock(mutex_);
    place_ = place;
}

std::shared_ptr<const Picture> PictureStore::Find(std::size_t number) const {
    const std::lock_guard lock(mutex_);
    const auto found = pictures_.find(number);
    return found == pictures_.end() ? nullptr : found->second;
}

void PictureStore::Add(std::shared_ptr<const Picture> picture, std::size_t wanted) {
    const auto number = picture->Number();
    const std::lock_guard lock(mutex_);
    if (const auto same = pictures_.find(number); same != pictures_.end()) {
        Drop(same);
    }
    // Room is made first, so that the bound holds at every moment.
    while (!pictures_.empty() && bytes_ + picture->ByteSize() > maxBytes_) {
        const auto farthest = Farthest(wanted);
        if (number != wanted && Distance(number, wanted) > Distance(farthest->first, wanted)) {
            return;
        }
        Drop(farthest);
    }
    bytes_ += picture->ByteSize();
    maxBytesEver_ = std::max(maxBytesEver_, bytes_);
    pictures_.emplace(number, std::move(picture));
}

std::uint64_t PictureStore::Distance(std::size_t number, std::size_t wanted) const {
    const PlayPlace place = place_.value_or(PlayPlace{wanted, true, 1});
    const bool isAbove = number > place.picture;
    const std::uint64_t away = isAbove ? number - place.picture : place.picture - number;
    if (!place_) {
        // What comes after the wanted picture serves nobody who plays backward.
        return isAbove ? kNotShown + away : away;
    }
    const bool isBehind = away != 0 && isAbove == place.backward;
    const bool isShown = place.stride <= 1 || number % place.stride == 0;
    return (isShown ? 0 : kNotShown) + (isBehind ? away * kBehindFactor : away);
}

PictureStore::Pictures::const_iterator PictureStore::Farthest(std::size_t wanted) const {
    return std::max_element(pictures_.begin(), pictures_.end(), [&](const auto& left, const auto& right) {
        return Distance(left.first, wanted) < Distance(right.first, wanted);
    });
}

void PictureStore::Drop(Pictures::const_iterator which) {
    bytes_ -= which->second->ByteSize();
    pictures_.erase(which);
}

void PictureStore::Clear() {
    const std::lock_guard lock(mutex_);
    pictures_.clear();
    bytes_ = 0;
}

std::size_t PictureStore::Size() const {
    const std::lock_guard lock(mutex_);
    return pictures_.size();
}

std::size_t PictureStore::Bytes() const {
    const std::lock_guard lock(mutex_);
    return bytes_;
}

std::size_t PictureStore::MaxBytesEver() const {
    const std::lock_guard lock(mutex_);
    return maxBytesEver_;
}

}  // namespace Tavrin::Playout
