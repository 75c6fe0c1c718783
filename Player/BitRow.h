#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tavrin::Player {

/// A row of bits in which the next set bit on either side of a place is found 64 bits at a time.
///
/// *Threads:* externally synchronised.
/// *Errors:* only `Reserve`, and `Insert` beyond what is reserved, allocate.
class BitRow {
public:
    [[nodiscard]] std::size_t size() const { return size_; }

    void Reserve(std::size_t size) { words_.reserve(NbWords(size)); }

    void Clear() {
        words_.clear();
        size_ = 0;
    }

    /// Adds a bit that is not set before the one at `at`, which may be the size.
    void Insert(std::size_t at) {
        words_.resize(NbWords(++size_));
        for (std::size_t word = words_.size() - 1; word > at / kNbBits; --word) {
            words_[word] = words_[word] << 1U | words_[word - 1] >> (kNbBits - 1);
        }
        std::uint64_t& word = words_[at / kNbBits];
        word = (word & Below(at)) | (word & ~Below(at)) << 1U;
    }

    /// Takes the bit at `at` out.
    void Erase(std::size_t at) {
        std::uint64_t& first = words_[at / kNbBits];
        first = (first & Below(at)) | (first >> 1U & ~Below(at));
        for (std::size_t word = at / kNbBits + 1; word < words_.size(); ++word) {
            words_[word - 1] |= words_[word] << (kNbBits - 1);
            words_[word] >>= 1U;
        }
        words_.resize(NbWords(--size_));
    }

    void Set(std::size_t at, bool isSet) {
        std::uint64_t& word = words_[at / kNbBits];
        word = isSet ? word | Bit(at) : word & ~Bit(at);
    }

    /// The first set bit from `at` on; the size when there is none.
    [[nodiscard]] std::size_t SetFrom(std::size_t at) const {
        if (at >= size_) {
            return size_;
        }
        std::size_t word = at / kNbBits;
        std::uint64_t bits = words_[word] & ~Below(at);
        while (bits == 0) {
            if (++word == words_.size()) {
                return size_;
            }
            bits = words_[word];
        }
        return word * kNbBits + static_cast<std::size_t>(std::countr_zero(bits));
    }

    /// The last set bit before `at`, which is at most the size; the size when there is none.
    [[nodiscard]] std::size_t SetBefore(std::size_t at) const {
        if (at == 0) {
            return size_;
        }
        std::size_t word = (at - 1) / kNbBits;
        std::uint64_t bits = words_[word] & (Bit(at - 1) | Below(at - 1));
        while (bits == 0) {
            if (word-- == 0) {
                return size_;
            }
            bits = words_[word];
        }
        return word * kNbBits + kNbBits - 1 - static_cast<std::size_t>(std::countl_zero(bits));
    }

private:
    static constexpr std::size_t kNbBits = 64;

    static std::uint64_t Bit(std::size_t at) { return std::uint64_t{1} << at % kNbBits; }

    /// The bits of the same word before `at`.
    static std::uint64_t Below(std::size_t at) { return Bit(at) - 1; }

    static std::size_t NbWords(std::size_t size) { return (size + kNbBits - 1) / kNbBits; }

    std::vector<std::uint64_t> words_;
    std::size_t size_ = 0;
};

}  // namespace Tavrin::Player
