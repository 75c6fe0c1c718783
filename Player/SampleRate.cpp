#include "Player/SampleRate.h"

#include <ostream>
#include <sstream>
#include <stdexcept>

namespace Tavrin::Player {

using Time::Ratio;

SampleRate::SampleRate(const Ratio& ratio) : Ratio(ratio.Abs()) {
}

SampleRate::SampleRate(std::int64_t numerator, std::int64_t denominator)
    : SampleRate(Ratio(numerator, denominator)) {
}

double SampleRate::GetSamplesPerSeconds() const {
    return static_cast<double>(Numerator()) / static_cast<double>(Denominator());
}

Ratio SampleRate::AsRatio() const {
    return Ratio(Numerator(), Denominator());
}

SampleRate SampleRate::SaturateSampleRate(const SampleRate& streamSampleRate, const Ratio& playerSpeed,
                                          const SampleRate& displayRate) {
    const SampleRate rate = (streamSampleRate * playerSpeed).Abs();
    return rate > displayRate ? displayRate : rate;
}

SampleRate SampleRate::TimeSamplingRate(const SampleRate& streamSampleRate, const Ratio& playerSpeed,
                                        const SampleRate& displayRate) {
    if (playerSpeed.Numerator() == 0) {
        return streamSampleRate;
    }
    const SampleRate rate = (displayRate / playerSpeed).Abs();
    return streamSampleRate < rate ? streamSampleRate : rate;
}

SampleRate SampleRate::StreamPreloadRate(const SampleRate& stream, const SampleRate& timeSampling) {
    if (stream.Positive() && !timeSampling.Positive()) {
        std::ostringstream message;
        message << "StreamPreloadRate: time sampling rate is " << timeSampling
                << ", it must be above zero for a stream rate of " << stream;
        throw std::invalid_argument(message.str());
    }
    const Ratio half(1, 2);
    SampleRate rate = stream;
    while (rate > timeSampling) {
        rate = (rate * half).Abs();
    }
    return rate;
}

std::ostream& operator<<(std::ostream& out, const SampleRate& rate) {
    return out << rate.Numerator() << "/" << rate.Denominator();
}

}  // namespace Tavrin::Player
