#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/StraightDecoder.h"

namespace Tavrin::Playout::Support {

/// What a straight decode of a recording puts out, by the pictures' numbers.
struct Oracle {
    explicit Oracle(const std::shared_ptr<const RecordingIndex>& index)
        : md5(index->NbPictures()), damaged(index->NbPictures()) {
        result = StraightDecoder(index).Run([&](const std::shared_ptr<const Picture>& picture) {
            md5.at(picture->Number()) = picture->Md5();
            damaged.at(picture->Number()) = picture->Damaged();
            pictureBytes = picture->ByteSize();
            return true;
        });
    }

    std::vector<std::string> md5;  ///< Empty where no picture comes out.
    std::vector<bool> damaged;
    std::size_t pictureBytes = 0;  ///< Of one picture in memory.
    StraightDecoder::Result result;
};

/// Orders in which all pictures are asked for.
inline std::vector<std::size_t> Forward(std::size_t nb) {
    std::vector<std::size_t> order(nb);
    std::iota(order.begin(), order.end(), std::size_t{0});
    return order;
}

inline std::vector<std::size_t> Backward(std::size_t nb) {
    const auto forward = Forward(nb);
    return {forward.rbegin(), forward.rend()};
}

/// Each picture once. The seed makes a failure repeatable.
inline std::vector<std::size_t> Shuffled(std::size_t nb, std::uint32_t seed) {
    auto order = Forward(nb);
    std::shuffle(order.begin(), order.end(), std::mt19937(seed));
    return order;
}

}  // namespace Tavrin::Playout::Support
