#include "Playout/BitReader.h"

namespace Tavrin::Playout {

BitReader::BitReader(const std::uint8_t* unit, std::size_t size) {
    constexpr std::uint8_t kEmulationPrevention = 3;
    bytes_.reserve(size);
    std::size_t nbZeros = 0;
    for (std::size_t i = 0; i < size; ++i) {
        if (nbZeros >= 2 && unit[i] == kEmulationPrevention) {
            nbZeros = 0;
            continue;
        }
        nbZeros = unit[i] == 0 ? nbZeros + 1 : 0;
        bytes_.push_back(unit[i]);
    }
}

std::uint32_t BitReader::Read(unsigned nbBits) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < nbBits; ++i, ++at_) {
        const std::size_t byte = at_ / 8;
        const unsigned bit = byte < bytes_.size() ? (bytes_[byte] >> (7 - at_ % 8)) & 1U : 0;
        value = (value << 1U) | bit;
    }
    return value;
}

std::uint32_t BitReader::ReadUe() {
    constexpr unsigned kMostZeros = 31;
    unsigned nbZeros = 0;
    while (nbZeros < kMostZeros && !IsBeyondEnd() && !ReadFlag()) {
        ++nbZeros;
    }
    return (std::uint32_t{1} << nbZeros) - 1 + Read(nbZeros);
}

std::int32_t BitReader::ReadSe() {
    const std::uint32_t code = ReadUe();
    const auto half = static_cast<std::int32_t>(code / 2);
    return code % 2 == 0 ? -half : half + 1;
}

}  // namespace Tavrin::Playout
