#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tavrin::Playout {

/// Reads the bits of a NAL unit of H.264 or HEVC, without the bytes that only keep it from looking like a start code
/// (ITU-T H.264, 7.3.1). Beyond the end all bits are zero, and `IsBeyondEnd` tells.
///
/// *Threads:* externally synchronised. *Ownership:* copies the unit. *Errors:* none.
class BitReader final {
public:
    BitReader(const std::uint8_t* unit, std::size_t size);

    /// At most 32 bits, the first one highest.
    [[nodiscard]] std::uint32_t Read(unsigned nbBits);
    [[nodiscard]] bool ReadFlag() { return Read(1) != 0; }
    /// An unsigned Exp-Golomb code (9.1).
    [[nodiscard]] std::uint32_t ReadUe();
    /// A signed one (9.1.1).
    [[nodiscard]] std::int32_t ReadSe();
    void Skip(std::size_t nbBits) { at_ += nbBits; }

    [[nodiscard]] bool IsBeyondEnd() const { return at_ > 8 * bytes_.size(); }

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t at_ = 0;
};

}  // namespace Tavrin::Playout
