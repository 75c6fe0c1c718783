#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Logging/ILogger.h"

namespace spdlog {
class logger;
}

namespace qor::kp::logging {

/// The logger behind a name that no client has claimed: one line per message on standard error.
///
/// *Threads:* thread-safe.
class StandardLogger final : public ILogger {
public:
    explicit StandardLogger(const std::string& name);

    void Log(Level level, const std::string& text, const char* file, int line) override;
    void SetLevel(Level level) override;
    Level GetLevel() const override;

private:
    /// Asked before every message that might be composed, so it is a relaxed atomic: a change of level need
    /// not be ordered with anything else.
    std::atomic<Level> level_ = Level_Warning;
    /// Shared, so that whoever destroys this one need not know that library.
    std::shared_ptr<spdlog::logger> logger_;
};

}  // namespace qor::kp::logging
