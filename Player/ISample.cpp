#include "Player/ISample.h"

#include <boost/thread/locks.hpp>

namespace Tavrin::Player {

std::int64_t ISample::Protect(std::int64_t protection) {
    const boost::unique_lock<boost::shared_mutex> lock(protectionAccess_);
    protectionCounter_ += protection;
    return protectionCounter_;
}

std::int64_t ISample::Unprotect(std::int64_t protection) {
    const boost::unique_lock<boost::shared_mutex> lock(protectionAccess_);
    const std::int64_t rest = protectionCounter_ - protection;
    protectionCounter_ = rest < 0 ? 0 : rest;
    return protectionCounter_;
}

std::int64_t ISample::GetProtectionCounter() {
    const boost::shared_lock<boost::shared_mutex> lock(protectionAccess_);
    return protectionCounter_;
}

}  // namespace Tavrin::Player
