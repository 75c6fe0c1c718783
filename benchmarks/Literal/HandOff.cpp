#include "Literal/HandOff.h"

#include <algorithm>
#include <chrono>

namespace Tavrin::Player::Literal {

HandOff::HandOff(std::size_t nbThreads, IPreloader& preloader) : preloader_(preloader) {
    for (std::size_t i = 0; i < nbThreads; ++i) {
        threads_.emplace_back([this] { Run(); });
    }
}

HandOff::~HandOff() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    pushed_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

void HandOff::Push(const Player::PreloadOrder& order) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        orders_.push_back(order);
    }
    pushed_.notify_one();
}

void HandOff::Run() {
    Player::PreloadOrder order;
    std::chrono::steady_clock::duration longest{};
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            longestNanoseconds_ = std::max(longestNanoseconds_, std::int64_t{longest.count()});
            pushed_.wait(lock, [this] { return stop_ || !orders_.empty(); });
            if (stop_) {
                return;
            }
            order = orders_.front();
            orders_.pop_front();
        }
        const auto start = std::chrono::steady_clock::now();
        preloader_.Preload(order);
        longest = std::chrono::steady_clock::now() - start;
    }
}

}  // namespace Tavrin::Player::Literal
