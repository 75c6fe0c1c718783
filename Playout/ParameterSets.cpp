#include "Playout/ParameterSets.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "Playout/BitReader.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace Tavrin::Playout {

namespace {

constexpr std::size_t kMostPictures = 16;

/// Of a stream's header.
class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    [[nodiscard]] std::size_t Size() const { return size_; }
    [[nodiscard]] const std::uint8_t* Data() const { return data_; }
    /// Zero beyond the end.
    [[nodiscard]] std::uint8_t At(std::size_t i) const { return i < size_ ? data_[i] : 0; }
    [[nodiscard]] std::size_t SizeAt(std::size_t i) const {
        return (static_cast<std::size_t>(At(i)) << 8U) | At(i + 1);
    }
    [[nodiscard]] Bytes Part(std::size_t begin, std::size_t size) const {
        const std::size_t from = std::min(begin, size_);
        return {data_ + from, std::min(size, size_ - from)};
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
};

Bytes HeaderOf(const AVCodecParameters& parameters) {
    const bool isThere = parameters.extradata != nullptr && parameters.extradata_size > 0;
    return {parameters.extradata, isThere ? static_cast<std::size_t>(parameters.extradata_size) : 0};
}

bool IsStartCode(const Bytes& bytes, std::size_t at) {
    return bytes.At(at) == 0 && bytes.At(at + 1) == 0 && bytes.At(at + 2) == 1 && at + 2 < bytes.Size();
}

/// The first unit behind a start code whose first byte, masked, is that; empty when there is none.
Bytes FindUnit(const Bytes& bytes, std::uint8_t mask, std::uint8_t type) {
    for (std::size_t at = 0; at + 3 < bytes.Size(); ++at) {
        if (IsStartCode(bytes, at) && (bytes.At(at + 3) & mask) == type) {
            std::size_t end = at + 3;
            while (end < bytes.Size() && !IsStartCode(bytes, end)) {
                ++end;
            }
            return bytes.Part(at + 3, end - at - 3);
        }
    }
    return {nullptr, 0};
}

/// ISO/IEC 14496-15 begins its forms of the header with a version; the other form begins with a start code.
bool IsByRecord(const Bytes& header) {
    return header.At(0) == 1 || (header.At(0) == 0 && header.At(1) != 0);
}

Bytes H264Set(const Bytes& header) {
    constexpr std::uint8_t kSet = 7;
    constexpr std::uint8_t kTypeMask = 0x1F;
    if (!IsByRecord(header)) {
        return FindUnit(header, kTypeMask, kSet);
    }
    constexpr std::size_t kNumberAt = 5;
    const bool hasOne = (header.At(kNumberAt) & kTypeMask) > 0;
    return header.Part(kNumberAt + 3, hasOne ? header.SizeAt(kNumberAt + 1) : 0);
}

Bytes HevcSet(const Bytes& header) {
    constexpr std::uint8_t kSet = 33;
    if (!IsByRecord(header)) {
        return FindUnit(header, 0x7E, kSet << 1U);
    }
    constexpr std::size_t kNumberAt = 22;
    std::size_t at = kNumberAt + 1;
    for (unsigned list = 0; list < header.At(kNumberAt) && at < header.Size(); ++list) {
        const unsigned type = header.At(at) & 0x3FU;
        std::size_t nb = header.SizeAt(at + 1);
        for (at += 3; nb > 0 && at < header.Size(); --nb) {
            const std::size_t size = header.SizeAt(at);
            if (type == kSet) {
                return header.Part(at + 2, size);
            }
            at += 2 + size;
        }
    }
    return {nullptr, 0};
}

/// 7.3.2.1.1.1
void SkipScalingList(BitReader& bits, std::size_t size) {
    std::int32_t last = 8;
    std::int32_t next = 8;
    for (std::size_t i = 0; i < size && !bits.IsBeyondEnd(); ++i) {
        if (next != 0) {
            next = static_cast<std::int32_t>((static_cast<std::int64_t>(last) + bits.ReadSe() + 256) % 256);
        }
        last = next == 0 ? last : next;
    }
}

void SkipH264Sampling(BitReader& bits) {
    const std::uint32_t chroma = bits.ReadUe();
    bits.Skip(chroma == 3 ? 1 : 0);
    static_cast<void>(bits.ReadUe());
    static_cast<void>(bits.ReadUe());
    bits.Skip(1);
    if (bits.ReadFlag()) {
        const std::size_t nbLists = chroma == 3 ? 12 : 8;
        for (std::size_t list = 0; list < nbLists; ++list) {
            if (bits.ReadFlag()) {
                SkipScalingList(bits, list < 6 ? 16 : 64);
            }
        }
    }
}

void SkipH264PictureOrder(BitReader& bits) {
    const std::uint32_t type = bits.ReadUe();
    if (type == 0) {
        static_cast<void>(bits.ReadUe());
    } else if (type == 1) {
        bits.Skip(1);
        static_cast<void>(bits.ReadSe());
        static_cast<void>(bits.ReadSe());
        for (std::uint32_t nb = bits.ReadUe(); nb > 0 && !bits.IsBeyondEnd(); --nb) {
            static_cast<void>(bits.ReadSe());
        }
    }
}

/// 7.3.3
void SkipHevcProfile(BitReader& bits, std::uint32_t nbSubLayersMore) {
    constexpr std::size_t kProfile = 88;
    constexpr std::size_t kLevel = 8;
    bits.Skip(kProfile + kLevel);
    std::size_t size = 0;
    for (std::uint32_t i = 0; i < nbSubLayersMore; ++i) {
        size += bits.ReadFlag() ? kProfile : 0;
        size += bits.ReadFlag() ? kLevel : 0;
    }
    bits.Skip(nbSubLayersMore > 0 ? 2 * (8 - nbSubLayersMore) : 0);
    bits.Skip(size);
}

std::optional<std::size_t> Checked(const BitReader& bits, std::uint32_t nb) {
    return bits.IsBeyondEnd() || nb > kMostPictures ? std::nullopt
                                                    : std::optional<std::size_t>(std::max(nb, 1U));
}

}  // namespace

std::optional<std::size_t> ReferencesOfH264(const AVCodecParameters& parameters) {
    constexpr std::array<std::uint32_t, 12> kWithSampling{100, 110, 122, 244, 44,  83,
                                                          86,  118, 128, 138, 139, 134};
    const Bytes set = H264Set(HeaderOf(parameters));
    BitReader bits(set.Data(), set.Size());
    bits.Skip(8);
    const std::uint32_t profile = bits.Read(8);
    bits.Skip(16);
    static_cast<void>(bits.ReadUe());
    if (std::find(kWithSampling.begin(), kWithSampling.end(), profile) != kWithSampling.end()) {
        SkipH264Sampling(bits);
    }
    static_cast<void>(bits.ReadUe());
    SkipH264PictureOrder(bits);
    return Checked(bits, bits.ReadUe());
}

std::optional<std::size_t> PicturesOfHevc(const AVCodecParameters& parameters) {
    const Bytes set = HevcSet(HeaderOf(parameters));
    BitReader bits(set.Data(), set.Size());
    bits.Skip(16 + 4);
    const std::uint32_t nbSubLayersMore = bits.Read(3);
    bits.Skip(1);
    SkipHevcProfile(bits, nbSubLayersMore);
    static_cast<void>(bits.ReadUe());
    bits.Skip(bits.ReadUe() == 3 ? 1 : 0);
    static_cast<void>(bits.ReadUe());
    static_cast<void>(bits.ReadUe());
    if (bits.ReadFlag()) {
        for (int side = 0; side < 4; ++side) {
            static_cast<void>(bits.ReadUe());
        }
    }
    static_cast<void>(bits.ReadUe());
    static_cast<void>(bits.ReadUe());
    static_cast<void>(bits.ReadUe());
    std::uint32_t pictures = 0;
    for (std::uint32_t layer = bits.ReadFlag() ? 0 : nbSubLayersMore; layer <= nbSubLayersMore; ++layer) {
        pictures = bits.ReadUe() + 1;
        static_cast<void>(bits.ReadUe());
        static_cast<void>(bits.ReadUe());
    }
    return Checked(bits, pictures);
}

}  // namespace Tavrin::Playout
