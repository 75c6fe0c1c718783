#pragma once

#include <atomic>
#include <memory>
#include <stdexcept>

#include "Playout/Session.h"

namespace Tavrin::Playout::Support {

/**
 * What every read of a session fails with, while the storage is away.
 */
inline constexpr const char* kDiskIsGone = "the disk is gone";

/**
 * Storage that is away from the start and can come back: every read of the session throws until then.
 * May go before the session.
 */
class FailingStorage {
public:
    explicit FailingStorage(Session& session) {
        session.Preloader().SetReadHook([fails = fails_](const auto&, std::size_t) {
            if (*fails) {
                throw std::runtime_error(kDiskIsGone);
            }
        });
    }

    void ComeBack() { *fails_ = false; }

private:
    std::shared_ptr<std::atomic<bool>> fails_ = std::make_shared<std::atomic<bool>>(true);
};

}  // namespace Tavrin::Playout::Support
