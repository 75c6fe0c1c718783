#include "Playout/Support/FieldClip.h"

#include <cstdint>
#include <vector>

#include "Playout/Support/Clips.h"

namespace Tavrin::Playout::Support::Clips {

namespace {

constexpr unsigned kMacroblocksPerRow = 10;
constexpr unsigned kMacroblockRowsPerField = 4;
constexpr unsigned kPicturesPerGroup = kNbFieldPictures / 2;

/// Bits of an H.264 stream, with the codes that its headers are written in.
class BitWriter {
public:
    void Bits(unsigned value, unsigned nb) {
        for (unsigned i = nb; i-- > 0;) {
            Bit((value >> i) & 1U);
        }
    }
    /// An unsigned number in the Exp-Golomb code.
    void Number(unsigned value) {
        unsigned nbBits = 0;
        while (((value + 1) >> (nbBits + 1)) != 0) {
            ++nbBits;
        }
        Bits(0, nbBits);
        Bits(value + 1, nbBits + 1);
    }
    void Align() {
        while (nbBits_ % 8 != 0) {
            Bit(0);
        }
    }
    /// The unit's last bit, and up to the byte's end.
    std::string End() {
        Bit(1);
        Align();
        return bytes_;
    }

private:
    void Bit(unsigned bit) {
        if (nbBits_ % 8 == 0) {
            bytes_ += '\0';
        }
        bytes_.back() =
            static_cast<char>(static_cast<unsigned char>(bytes_.back()) | (bit << (7 - nbBits_ % 8)));
        ++nbBits_;
    }

    std::string bytes_;
    std::size_t nbBits_ = 0;
};

/// A unit with its start code; a byte is put in wherever its content would look like one.
std::string Unit(unsigned header, const std::string& content) {
    std::string unit("\0\0\0\1", 4);
    unit += static_cast<char>(header);
    int nbZeros = 0;
    for (const char byte : content) {
        if (nbZeros >= 2 && static_cast<unsigned char>(byte) <= 3) {
            unit += '\3';
            nbZeros = 0;
        }
        nbZeros = byte == '\0' ? nbZeros + 1 : 0;
        unit += byte;
    }
    return unit;
}

std::string SequenceParameters() {
    BitWriter bits;
    bits.Bits(77, 8);  // main profile
    bits.Bits(0, 8);
    bits.Bits(30, 8);  // level 3
    bits.Number(0);
    bits.Number(0);  // picture numbers of 4 bits
    bits.Number(0);
    bits.Number(4);  // order counts of 8 bits
    bits.Number(1);  // one frame to refer to
    bits.Bits(0, 1);
    bits.Number(kMacroblocksPerRow - 1);
    bits.Number(kMacroblockRowsPerField - 1);
    bits.Bits(0, 1);  // fields are possible
    bits.Bits(0, 1);
    bits.Bits(1, 1);
    bits.Bits(0, 2);
    return Unit(0x67, bits.End());
}

std::string PictureParameters() {
    BitWriter bits;
    bits.Number(0);
    bits.Number(0);
    bits.Bits(0, 2);
    for (int i = 0; i < 3; ++i) {
        bits.Number(0);
    }
    bits.Bits(0, 3);
    for (int i = 0; i < 3; ++i) {
        bits.Number(0);
    }
    bits.Bits(0, 3);
    return Unit(0x68, bits.End());
}

void SliceHeader(BitWriter& bits, unsigned type, unsigned number, bool bottom) {
    bits.Number(0);
    bits.Number(type);
    bits.Number(0);
    bits.Bits(number % 16, 4);
    bits.Bits(1, 1);  // a field
    bits.Bits(bottom ? 1 : 0, 1);
}

/// Macroblocks of plain samples in one shade.
std::string TopField(unsigned number, unsigned shade, bool key) {
    BitWriter bits;
    SliceHeader(bits, 7, number, false);
    if (key) {
        bits.Number(0);
    }
    bits.Bits(2 * number, 8);
    bits.Bits(0, key ? 2 : 1);
    bits.Number(0);
    for (unsigned i = 0; i < kMacroblocksPerRow * kMacroblockRowsPerField; ++i) {
        bits.Number(25);
        bits.Align();
        for (unsigned sample = 0; sample < 384; ++sample) {
            bits.Bits(sample < 256 ? shade + i : 128, 8);
        }
    }
    return Unit(key ? 0x65 : 0x61, bits.End());
}

/// Every macroblock as in the field before.
std::string BottomField(unsigned number) {
    BitWriter bits;
    SliceHeader(bits, 5, number, true);
    bits.Bits(2 * number + 1, 8);
    bits.Bits(0, 3);
    bits.Number(0);
    bits.Number(kMacroblocksPerRow * kMacroblockRowsPerField);
    return Unit(0x61, bits.End());
}

}  // namespace

std::string Fields() {
    static const auto file = [] {
        std::string stream;
        for (unsigned i = 0; i < kNbFieldPictures; ++i) {
            const unsigned number = i % kPicturesPerGroup;
            if (number == 0) {
                stream += SequenceParameters() + PictureParameters();
            }
            stream += TopField(number, 32 + 20 * i, number == 0) + BottomField(number);
        }
        auto path = Scratch("fields.h264");
        WriteFile(path, stream);
        return path;
    }();
    return file;
}

}  // namespace Tavrin::Playout::Support::Clips
