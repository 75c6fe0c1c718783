#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "Player/IPreloader.h"
#include "Player/PreloadOrder.h"

namespace Tavrin::Player::Literal {

/// The least that hands an order to a thread: a double-ended queue, a mutex, a condition variable, and
/// threads that call the preloader and take the time of the call.
///
/// *Threads:* `Push` from any thread.
class HandOff {
public:
    HandOff(std::size_t nbThreads, IPreloader& preloader);
    HandOff(const HandOff&) = delete;
    HandOff& operator=(const HandOff&) = delete;
    ~HandOff();

    void Push(const Player::PreloadOrder& order);

private:
    void Run();

    IPreloader& preloader_;
    std::mutex mutex_;
    std::condition_variable pushed_;
    std::deque<Player::PreloadOrder> orders_;
    bool stop_ = false;
    std::int64_t longestNanoseconds_ = 0;
    std::vector<std::thread> threads_;
};

}  // namespace Tavrin::Player::Literal
