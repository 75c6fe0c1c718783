#include "Player/StorageId.h"

#include <ostream>

namespace Tavrin::Player {

StorageId::StorageId(const std::string& address, std::int64_t port) : address_(address), port_(port) {
}

void StorageId::Set(const std::string& address, std::int64_t port) {
    address_ = address;
    port_ = port;
}

bool StorageId::operator<(const StorageId& other) const {
    // std::string compares as unsigned bytes (std::char_traits<char>), as the order wants.
    const int addresses = address_.compare(other.address_);
    return addresses != 0 ? addresses < 0 : port_ < other.port_;
}

bool StorageId::operator==(const StorageId& other) const {
    return port_ == other.port_ && address_ == other.address_;
}

std::string StorageId::ToString() const {
    return address_ + ":" + std::to_string(port_);
}

std::ostream& operator<<(std::ostream& out, const StorageId& id) {
    return out << id.ToString();
}

}  // namespace Tavrin::Player
