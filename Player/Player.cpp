#include "Player/Player.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "Logging/LoggingManager.h"
#include "Player/LogMessage.h"

namespace Tavrin::Player {

using namespace qor::kp::logging;
using Time::Ratio;
using Time::TimePoint;

namespace {

constexpr const char* kFile = "Player/Player";

/// The speed with one decimal, for people to read beside the exact ratio.
double WithOneDecimal(const Ratio& speed) {
    const double tenths =
        static_cast<double>(speed.Numerator()) / static_cast<double>(speed.Denominator()) * 10.0;
    constexpr double kLowest = std::numeric_limits<std::int32_t>::min();
    constexpr double kHighest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(tenths, kLowest, kHighest)) / 10.0;
}

}  // namespace

Player::Player() : speed_(1, 1), logger_(LoggingManager::GetLoggerPtr("Player")) {
}

Player::~Player() {
    TAVRIN_LOG(logger_, Level_Info, kFile, "Player destroyed at ", tp_, " on speed ", speed_);
}

void Player::SetSpeed(const Ratio& speed) {
    if (speed != speed_) {
        TAVRIN_LOG(logger_, Level_Debug, kFile, "Player's speed is now ", WithOneDecimal(speed), " ", speed,
                   " at ", tp_);
    }
    speed_ = speed;
}

void Player::GoTo(const TimePoint& tp) {
    tp_ = std::max(tp, TimePoint());
    TAVRIN_LOG(logger_, Level_Debug, kFile, "Goto ", tp_, " on speed ", speed_);
}

void Player::Update(const TimePoint& delta) {
    if (Stream* const unready = FirstUnreadyStream()) {
        BeginWait(*unready);
        return;
    }
    tp_ += delta * speed_;
    tp_ = std::max(tp_, TimePoint());
    EndWait();
}

Stream* Player::FirstUnreadyStream() const {
    if (!waitStreamNotReady_) {
        return nullptr;
    }
    const auto unready =
        std::find_if(streams_.begin(), streams_.end(), [](Stream* stream) { return !stream->IsReady(); });
    return unready != streams_.end() ? *unready : nullptr;
}

void Player::BeginWait(Stream& unready) {
    TAVRIN_LOG(logger_, Level_Debug, kFile, "Stream on track ", unready.GetStreamParameters().trackId_.Id(),
               " not ready at ", tp_, ", we don't Update");
    if (!timeNotReadySet_) {
        timeNotReadySet_ = true;
        timeNotReady_ = std::chrono::steady_clock::now();
    }
}

void Player::EndWait() {
    if (!timeNotReadySet_) {
        return;
    }
    timeNotReadySet_ = false;
    const auto waited = std::chrono::steady_clock::now() - timeNotReady_;
    const std::int64_t waitedMs = std::chrono::duration_cast<std::chrono::milliseconds>(waited).count();
    TAVRIN_LOG(logger_, Level_Debug, kFile, "Player is now ready at ", tp_, ", after waiting ", waitedMs,
               " ms");
}

void Player::AttachStream(Stream* stream) {
    if (stream != nullptr) {
        streams_.insert(stream);
    }
}

void Player::DetachStream(Stream* stream) {
    streams_.erase(stream);
}

void Player::DetachAllStreams() {
    streams_.clear();
}

void Player::WaitWhenStreamIsNotReady(bool wait) {
    waitStreamNotReady_ = wait;
}

bool Player::AllDisplayedCamerasEmpty() const {
    return std::none_of(streams_.begin(), streams_.end(),
                        [](Stream* stream) { return stream->IsLinked() && !stream->IsEmptyFlag(); });
}

void Player::ResetDisplayedCamerasEmptyFlag() {
    for (Stream* stream : streams_) {
        stream->ResetEmptyFlag();
    }
}

}  // namespace Tavrin::Player
