#include "Soak/UnsteadyStorage.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "Playout/Support/FailingStorage.h"
#include "Soak/Choices.h"

namespace Tavrin::Soak {

class UnsteadyStorage::State {
public:
    State(std::uint64_t seed, const Manner& manner) : seed_(seed), manner_(manner) {}

    void Read(const Player::TrackId& track, std::size_t group) {
        if (isBack_) {
            return;
        }
        const std::uint64_t fate = Mixed(Mixed(seed_, static_cast<std::uint64_t>(track.Id())), group);
        const std::uint64_t kind = fate % 100;
        if (kind < manner_.stalled_) {
            Stall();
        } else if (kind < manner_.stalled_ + manner_.failing_) {
            throw std::runtime_error(Playout::Support::kDiskIsGone);
        } else if (kind < manner_.stalled_ + manner_.failing_ + manner_.slow_) {
            std::this_thread::sleep_for(std::chrono::microseconds((fate >> 32U) % 5000));
        }
    }

    void ComeBack() {
        const std::lock_guard lock(mutex_);
        isBack_ = true;
        changed_.notify_all();
    }

private:
    void Stall() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::milliseconds(150), [this] { return isBack_.load(); });
    }

    const std::uint64_t seed_;
    const Manner manner_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<bool> isBack_ = false;
};

UnsteadyStorage::UnsteadyStorage(Playout::Session& session, std::uint64_t seed, const Manner& manner)
    : state_(std::make_shared<State>(seed, manner)) {
    session.Preloader().SetReadHook(
        [state = state_](const Player::TrackId& track, std::size_t group) { state->Read(track, group); });
}

void UnsteadyStorage::ComeBack() {
    state_->ComeBack();
}

}  // namespace Tavrin::Soak
