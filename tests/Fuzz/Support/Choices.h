#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace Tavrin::Fuzz {

/// What a target is to do, read from the fuzzer's bytes in their order. Once these are used up every choice is the
/// lowest one: a target asks `IsEmpty` to know when to end.
///
/// *Threads:* bound to one thread. *Ownership:* borrows the bytes.
class Choices {
public:
    Choices(const std::uint8_t* data, std::size_t size) : bytes_(data, size) {}

    bool IsEmpty() const { return bytes_.empty(); }

    /// From `low` to `high`, both included. Takes no more bytes than the range needs: most choices are among a few, and
    /// a byte that is changed, added or left out is then a choice that is.
    std::int64_t Between(std::int64_t low, std::int64_t high) {
        const std::uint64_t range = static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low);
        std::uint64_t value = 0;
        for (std::uint64_t left = range; left != 0; left >>= kBitsPerByte) {
            value = value << kBitsPerByte | TakeByte();
        }
        const bool isWhole = range == std::numeric_limits<std::uint64_t>::max();
        const std::uint64_t offset = isWhole ? value : value % (range + 1);
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(low) + offset);
    }

    std::int64_t AnyNumber() {
        return Between(std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max());
    }

    bool Either() { return Between(0, 1) == 1; }

    /// A place in a row of so many, which is not empty.
    std::size_t Place(std::size_t size) {
        return static_cast<std::size_t>(Between(0, static_cast<std::int64_t>(size) - 1));
    }

    template <typename Item>
    const Item& Among(const std::vector<Item>& items) {
        return items[Place(items.size())];
    }

private:
    static constexpr unsigned kBitsPerByte = 8;

    std::uint8_t TakeByte() {
        if (bytes_.empty()) {
            return 0;
        }
        const std::uint8_t byte = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return byte;
    }

    std::span<const std::uint8_t> bytes_;
};

}  // namespace Tavrin::Fuzz
