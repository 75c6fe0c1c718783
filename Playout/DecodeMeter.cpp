#include "Playout/DecodeMeter.h"

namespace Tavrin::Playout {

namespace {

/// Decoding for less time than this says little.
constexpr std::chrono::duration<double> kSpan{0.25};

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
    if (busy_ < kSpan) {
        return;
    }
    const double rate = bytes_ / busy_.count();
    bytesPerSecond_ = bytesPerSecond_ == 0 ? rate : (bytesPerSecond_ + rate) / 2;
    busy_ = {};
    bytes_ = 0;
}

double DecodeMeter::BytesPerSecond() const {
    const std::lock_guard lock(mutex_);
    return bytesPerSecond_;
}

}  // namespace Tavrin::Playout
