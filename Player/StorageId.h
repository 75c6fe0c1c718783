#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "Player/PlayerExport.h"

namespace Tavrin::Player {

/// Names a storage server: a network address as text and a port.
///
/// *Threads:* externally synchronised, as a plain value.
class TAVRIN_PLAYER_EXPORT StorageId {
public:
    /// An empty address and port -1 (no port).
    StorageId() = default;
    StorageId(const std::string& address, std::int64_t port);
    StorageId(const StorageId&) = default;
    StorageId(StorageId&&) = default;
    StorageId& operator=(const StorageId&) = default;
    StorageId& operator=(StorageId&&) = default;
    virtual ~StorageId() = default;

    /// Replaces both the address and the port.
    void Set(const std::string& address, std::int64_t port);

    const std::string& Address() const { return address_; }
    std::int64_t Port() const { return port_; }

    /// Orders by address, as unsigned bytes with a proper prefix first; among equal addresses by port.
    bool operator<(const StorageId& other) const;
    bool operator==(const StorageId& other) const;

    /// "address:port", so ":-1" for a default storage identifier.
    std::string ToString() const;

private:
    std::string address_;
    std::int64_t port_ = -1;
};

/// Prints `ToString()`.
TAVRIN_PLAYER_EXPORT std::ostream& operator<<(std::ostream& out, const StorageId& id);

}  // namespace Tavrin::Player
