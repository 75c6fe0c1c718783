#include "Player/TrackId.h"

namespace Tavrin::Player {

TrackId::TrackId(const Tavrin::Player::StorageId& storageId, std::int64_t id)
    : storageId_(storageId), id_(id) {
}

bool TrackId::operator<(const TrackId& other) const {
    return storageId_ == other.storageId_ ? id_ < other.id_ : storageId_ < other.storageId_;
}

bool TrackId::operator==(const TrackId& other) const {
    return id_ == other.id_ && storageId_ == other.storageId_;
}

bool TrackId::operator!=(const TrackId& other) const {
    return !(*this == other);
}

std::string TrackId::ToString() const {
    return storageId_.ToString() + ":T" + std::to_string(id_);
}

}  // namespace Tavrin::Player
