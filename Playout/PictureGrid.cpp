#include "Playout/PictureGrid.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <utility>

namespace Tavrin::Playout {

namespace {

using Time::Ratio;

/// Rates that cameras and programs really use.
const std::vector<Ratio>& UsualRates() {
    static const std::vector<Ratio> rates = [] {
        std::vector<Ratio> all;
        for (const std::int64_t whole : {25, 30, 24, 50, 60, 48, 100, 120, 15, 10, 5, 1}) {
            all.emplace_back(whole, 1);
            if (whole % 24 == 0 || whole % 30 == 0) {
                all.emplace_back(whole * 1000, 1001);
            }
        }
        return all;
    }();
    return rates;
}

bool Near(const Ratio& left, const Ratio& right) {
    const auto difference = (left - right).Abs();
    return !(right / Ratio(10'000, 1) < difference);
}

Ratio Snapped(const Ratio& rate) {
    const auto& usual = UsualRates();
    const auto found = std::find_if(usual.begin(), usual.end(),
                                    [&](const Ratio& candidate) { return Near(rate, candidate); });
    return found == usual.end() ? rate : *found;
}

/// Conversion between units of the time base and samples of a rate, rounded to the nearest. Damaged files have
/// stamps of any size: what does not fit ends far out, where sums and differences still do.
class Scale {
public:
    Scale(const Ratio& timeBase, const Ratio& rate) : samplesPerUnit_(timeBase * rate) {}

    std::int64_t ToSample(std::int64_t time) const {
        return Converted(time, samplesPerUnit_.Numerator(), samplesPerUnit_.Denominator());
    }
    std::int64_t ToTime(std::int64_t sample) const {
        return Converted(sample, samplesPerUnit_.Denominator(), samplesPerUnit_.Numerator());
    }
    /// What the time base may have rounded away: nothing where its unit is not much finer than a sample.
    std::int64_t Tolerance() const { return samplesPerUnit_ < Ratio(1, 4) ? 1 : 0; }

private:
    static std::int64_t Converted(std::int64_t value, std::int64_t numerator, std::int64_t denominator) {
        constexpr auto kFar = std::int64_t{1} << 61;
        const auto converted = av_rescale_rnd(value, numerator, denominator, AV_ROUND_NEAR_INF);
        const bool overflown = converted == std::numeric_limits<std::int64_t>::min();
        return overflown ? (value < 0 ? -kFar : kFar) : std::clamp(converted, -kFar, kFar);
    }

    Ratio samplesPerUnit_;
};

/// Picture i lies on sample i.
bool IsConstant(const PictureTimes& pictures, const Scale& scale) {
    for (std::size_t i = 0; i < pictures.times.size(); ++i) {
        const auto expected = scale.ToTime(static_cast<std::int64_t>(i));
        if (std::abs(pictures.times[i] - expected) > scale.Tolerance()) {
            return false;
        }
    }
    return true;
}

/// Every picture lies on a sample of its own.
bool IsConstantWithHoles(const PictureTimes& pictures, const Scale& scale) {
    std::int64_t before = -1;
    for (const auto time : pictures.times) {
        const auto sample = scale.ToSample(time);
        if (sample == before || std::abs(time - scale.ToTime(sample)) > scale.Tolerance()) {
            return false;
        }
        before = sample;
    }
    return true;
}

std::vector<std::int64_t> Rounded(const PictureTimes& pictures, const Ratio& rate) {
    const Scale scale(pictures.timeBase, rate);
    std::vector<std::int64_t> starts;
    starts.reserve(pictures.times.size());
    for (const auto time : pictures.times) {
        starts.push_back(scale.ToSample(time));
    }
    return starts;
}

bool AllDistinct(const std::vector<std::int64_t>& starts) {
    return std::adjacent_find(starts.begin(), starts.end()) == starts.end();
}

/// The claimed rates as they are to be tried: each as the usual rate that it stands for, no zeros.
std::vector<Ratio> Claimed(const PictureTimes& pictures) {
    std::vector<Ratio> rates;
    for (const auto& rate : pictures.claimedRates) {
        if (rate.Positive()) {
            rates.push_back(Snapped(rate));
        }
    }
    return rates;
}

/// From the first picture to the last; zero when there is no such time.
Ratio MeanRate(const PictureTimes& pictures) {
    if (pictures.times.back() <= 0) {
        return {};
    }
    // Reduced to 31 bits, which keeps far more than a recording's length can tell, so that nothing overflows.
    AVRational pictureRate{};
    av_reduce(&pictureRate.num, &pictureRate.den, static_cast<std::int64_t>(pictures.times.size()) - 1,
              pictures.times.back(), INT_MAX);
    if (pictureRate.num <= 0) {
        return {};
    }
    const AVRational timeBase{static_cast<int>(pictures.timeBase.Numerator()),
                              static_cast<int>(pictures.timeBase.Denominator())};
    const auto rate = av_div_q(pictureRate, timeBase);
    return rate.den == 0 ? Ratio() : Ratio(rate.num, rate.den);
}

std::vector<Ratio> ConstantCandidates(const PictureTimes& pictures, const std::vector<Ratio>& claimed) {
    auto rates = claimed;
    rates.insert(rates.end(), pictures.claimedRates.begin(), pictures.claimedRates.end());
    rates.insert(rates.end(), UsualRates().begin(), UsualRates().end());
    rates.push_back(MeanRate(pictures));
    rates.erase(
        std::remove_if(rates.begin(), rates.end(), [](const Ratio& rate) { return !rate.Positive(); }),
        rates.end());
    return rates;
}

PictureGrid ConstantGrid(const Ratio& rate, std::size_t nbPictures) {
    PictureGrid grid{Player::SampleRate(rate), {}, static_cast<std::int64_t>(nbPictures)};
    for (std::int64_t i = 0; i < grid.nbSamples; ++i) {
        grid.starts.push_back(i);
    }
    return grid;
}

PictureGrid VariableGrid(const PictureTimes& pictures, const Ratio& rate, std::vector<std::int64_t> starts) {
    const auto last = starts.back();
    const auto lastLength = Scale(pictures.timeBase, rate).ToSample(pictures.lastDuration);
    return {Player::SampleRate(rate), std::move(starts), last + std::max<std::int64_t>(lastLength, 1)};
}

/// A grid that has a sample of its own for each picture, or the finest one below the limit.
PictureGrid FinestNeeded(const PictureTimes& pictures, const std::vector<Ratio>& rates, const Ratio& limit) {
    Ratio finest;
    for (const auto& rate : rates) {
        for (Ratio multiple = rate; !(limit < multiple); multiple = multiple + rate) {
            auto starts = Rounded(pictures, multiple);
            if (AllDistinct(starts)) {
                return VariableGrid(pictures, multiple, std::move(starts));
            }
            finest = std::max(finest, multiple);
        }
    }
    const auto rate = finest.Positive() ? finest : limit;
    return VariableGrid(pictures, rate, Rounded(pictures, rate));
}

}  // namespace

PictureGrid LayOutGrid(const PictureTimes& pictures, std::int64_t maxVariableRate) {
    auto claimed = Claimed(pictures);
    for (const auto& rate : ConstantCandidates(pictures, claimed)) {
        if (IsConstant(pictures, Scale(pictures.timeBase, rate))) {
            return ConstantGrid(rate, pictures.times.size());
        }
    }
    const Ratio limit(maxVariableRate, 1);
    for (const auto& rate : ConstantCandidates(pictures, claimed)) {
        if (!(limit < rate) && IsConstantWithHoles(pictures, Scale(pictures.timeBase, rate))) {
            return VariableGrid(pictures, rate, Rounded(pictures, rate));
        }
    }
    if (const auto mean = MeanRate(pictures); mean.Positive()) {
        claimed.push_back(Snapped(mean));
    }
    return FinestNeeded(pictures, claimed, limit);
}

}  // namespace Tavrin::Playout
