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
    Trim();
}

/// Drops the farthest until the rest fits, or nothing more may go; one is always held.
void PictureStore::Trim() {
    while (pictures_.size() > 1 && Overflows(0)) {
        const auto farthest = Farthest(pictures_.begin()->first);
        if (farthest == pictures_.end()) {
            return;
        }
        Drop(farthest);
    }
}

bool PictureStore::Overflows(std::size_t nbMoreBytes) const {
    // What comes from the pool is counted there. Some decoders do not use it: they hand out memory of their own,
    // or the packet's.
    return bytes_ + nbMoreBytes > maxBytes_ || (pool_ != nullptr && pool_->UsedBytes() > maxBytes_);
}

bool PictureStore::MayDrop(const std::shared_ptr<const Picture>& picture) const {
    return pool_ == nullptr || picture.use_count() == 1;
}

void PictureStore::SetPlace(const PlayPlace& place) {
    const std::lock_guard lock(mutex_);
    place_ = place;
    Trim();
}

std::shared_ptr<const Picture> PictureStore::Find(std::size_t number) const {
    const std::lock_guard lock(mutex_);
    const auto found = pictures_.find(number);
    return found == pictures_.end() ? nullptr : found->second;
}

std::shared_ptr<const Picture> PictureStore::Nearest(std::size_t number, std::size_t first,
                                                     std::size_t end) const {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<const Picture> nearest;
    std::size_t distance = 0;
    for (auto held = pictures_.lower_bound(first); held != pictures_.end() && held->first < end; ++held) {
        const std::size_t away = held->first > number ? held->first - number : number - held->first;
        if (nearest == nullptr || away < distance) {
            nearest = held->second;
            distance = away;
        }
    }
    return nearest;
}

std::shared_ptr<const Picture> PictureStore::Newest() const {
    const std::lock_guard lock(mutex_);
    return newest_.lock();
}

bool PictureStore::Wants(std::size_t number) const {
    const std::lock_guard lock(mutex_);
    if (!place_) {
        return true;
    }
    const bool isAbove = number > place_->picture;
    const std::size_t away = isAbove ? number - place_->picture : place_->picture - number;
    const bool isBehind = away != 0 && isAbove == place_->backward;
    return (place_->stride <= 1 || number % place_->stride == 0) &&
           away <= (isBehind ? place_->behind : place_->ahead);
}

bool PictureStore::IsPassed(std::size_t number) const {
    const std::lock_guard lock(mutex_);
    return place_ && (place_->backward ? number > place_->picture : number < place_->picture);
}

void PictureStore::Add(std::shared_ptr<const Picture> picture, std::size_t wanted) {
    const auto number = picture->Number();
    const std::lock_guard lock(mutex_);
    if (const auto same = pictures_.find(number); same != pictures_.end()) {
        if (!same->second->Damaged() || picture->Damaged()) {
            // Decoded once more on the way to another one. Others may hold the first: the second would take more.
            newest_ = same->second;
            return;
        }
        Drop(same);
    }
    // Room is made first, so that the bound holds at every moment.
    while (!pictures_.empty() && Overflows(picture->ByteSize())) {
        const auto farthest = Farthest(wanted);
        const bool isFarther =
            farthest == pictures_.end() || Distance(number, wanted) > Distance(farthest->first, wanted);
        if (number != wanted && isFarther) {
            return;
        }
        if (farthest == pictures_.end()) {
            break;
        }
        Drop(farthest);
    }
    bytes_ += picture->ByteSize();
    maxBytesEver_ = std::max(maxBytesEver_, bytes_);
    newest_ = picture;
    pictures_.emplace(number, std::move(picture));
}

void PictureStore::MakeRoom(std::size_t nbBytes) {
    const std::lock_guard lock(mutex_);
    while (!pictures_.empty() && pool_ != nullptr && pool_->Overflows(nbBytes)) {
        const auto farthest = Farthest(pictures_.begin()->first);
        if (farthest == pictures_.end()) {
            return;
        }
        Drop(farthest);
    }
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

/// Of those that may be dropped; the end when there is none.
PictureStore::Pictures::const_iterator PictureStore::Farthest(std::size_t wanted) const {
    auto farthest = pictures_.end();
    std::uint64_t distance = 0;
    for (auto candidate = pictures_.begin(); candidate != pictures_.end(); ++candidate) {
        const std::uint64_t away = Distance(candidate->first, wanted);
        if (MayDrop(candidate->second) && (farthest == pictures_.end() || away > distance)) {
            farthest = candidate;
            distance = away;
        }
    }
    return farthest;
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
