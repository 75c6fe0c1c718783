#include "Playout/DecodeMeter.h"

namespace Tavrin::Playout {

namespace {

constexpr std::chrono::duration<double> kSpan{1.0};

/// Forgotten in any case, where decoders are never idle.
constexpr std::chrono::duration<double> kLongestSpan{8.0};

/// Decoding for less time than this says nothing: a decoder begins by putting out nothing.
constexpr std::chrono::duration<double> kLeast{0.15};

}  // namespace

void DecodeMeter::Begin(Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    if (nbDecoding_ > 0) {
        busy_ += now - since_;
    }
    since_ = now;
    ++nbDecoding_;
}

void DecodeMeter::End(Clock::time_point now, std::size_t nbBytes) {
    const std::lock_guard lock(mutex_);
    busy_ += now - since_;
    since_ = now;
    --nbDecoding_;
    bytes_ += static_cast<double>(nbBytes);
    if (busy_ >= kLeast) {
        bytesPerSecond_ = bytes_ / busy_.count();
    }
    // Of what is still in progress the time counts already, but not yet the bytes: were it halved now, they would be
    // taken for the work of the time that is left.
    if (busy_ > kSpan && (nbDecoding_ == 0 || busy_ > kLongestSpan)) {
        busy_ /= 2;
        bytes_ /= 2;
    }
}

double DecodeMeter::BytesPerSecond() const {
    const std::lock_guard lock(mutex_);
    return bytesPerSecond_;
}

}  // namespace Tavrin::Playout
