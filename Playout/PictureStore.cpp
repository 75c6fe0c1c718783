#include "Playout/PictureStore.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Tavrin::Playout {

std::shared_ptr<const Picture> PictureStore::Find(std::size_t number) const {
    const auto found = pictures_.find(number);
    return found == pictures_.end() ? nullptr : found->second;
}

void PictureStore::Add(std::shared_ptr<const Picture> picture, std::size_t wanted) {
    const auto number = picture->Number();
    if (const auto same = pictures_.find(number); same != pictures_.end()) {
        Drop(same);
    }
    // Room is made first, so that the bound holds at every moment.
    while (!pictures_.empty() && bytes_ + picture->ByteSize() > maxBytes_) {
        const auto last = std::prev(pictures_.end());
        Drop(last->first > std::max(number, wanted) ? last : pictures_.begin());
    }
    bytes_ += picture->ByteSize();
    maxBytesEver_ = std::max(maxBytesEver_, bytes_);
    pictures_.emplace(number, std::move(picture));
}

void PictureStore::Drop(Pictures::const_iterator which) {
    bytes_ -= which->second->ByteSize();
    pictures_.erase(which);
}

void PictureStore::Clear() {
    pictures_.clear();
    bytes_ = 0;
}

}  // namespace Tavrin::Playout
