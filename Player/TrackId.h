#pragma once

#include <cstdint>
#include <string>

#include "Player/PlayerExport.h"
#include "Player/StorageId.h"

namespace Tavrin::Player {

/// Names a recorded track: the storage server that holds it and its number there.
///
/// *Threads:* externally synchronised, as a plain value.
class TAVRIN_PLAYER_EXPORT TrackId {
public:
    /// Track 0 of a default storage identifier.
    TrackId() = default;
    TrackId(const Tavrin::Player::StorageId& storageId, std::int64_t id);

    void SetStorageId(const Tavrin::Player::StorageId& storageId) { storageId_ = storageId; }
    void SetId(std::int64_t id) { id_ = id; }

    std::int64_t Id() const { return id_; }
    const Tavrin::Player::StorageId& StorageId() const { return storageId_; }

    /// Orders by storage first, by track number among tracks of one storage.
    bool operator<(const TrackId& other) const;
    bool operator==(const TrackId& other) const;
    bool operator!=(const TrackId& other) const;

    /// The storage's text, ":T" and the number: "10.0.0.2:5000:T7".
    std::string ToString() const;

private:
    Tavrin::Player::StorageId storageId_;
    std::int64_t id_ = 0;
};

}  // namespace Tavrin::Player
