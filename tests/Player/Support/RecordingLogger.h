#pragma once

#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Logging/ILogger.h"
#include "Logging/LoggingManager.h"

namespace Tavrin::Player::Testing {

/// One message as a logger received it.
struct LogLine {
    qor::kp::logging::Level level_ = qor::kp::logging::Level_NoLog;
    std::string text_;
    std::string file_;
    int line_ = 0;
};

/// Shows a line in a failed expectation.
inline std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.level_ << " \"" << line.text_ << "\" " << line.file_ << ":" << line.line_;
}

/// Keeps every message for the test to look at, whatever its level: whether a message should have been sent
/// at all is for the object that logs to decide, and for the test to judge.
///
/// *Threads:* thread-safe.
class RecordingLogger final : public qor::kp::logging::ILogger {
public:
    explicit RecordingLogger(qor::kp::logging::Level level) : level_(level) {}

    void Log(qor::kp::logging::Level level, const std::string& text, const char* file, int line) override {
        const std::lock_guard lock(mutex_);
        lines_.push_back({level, text, file == nullptr ? "" : file, line});
    }

    void SetLevel(qor::kp::logging::Level level) override {
        const std::lock_guard lock(mutex_);
        level_ = level;
    }

    qor::kp::logging::Level GetLevel() const override {
        const std::lock_guard lock(mutex_);
        return level_;
    }

    /// Everything recorded since the last call, oldest first.
    std::vector<LogLine> Take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

    /// The texts of `Take`.
    std::vector<std::string> TakeTexts() {
        std::vector<std::string> texts;
        for (const LogLine& line : Take()) {
            texts.push_back(line.text_);
        }
        return texts;
    }

private:
    mutable std::mutex mutex_;
    qor::kp::logging::Level level_;
    std::vector<LogLine> lines_;
};

/// Puts a logger under a name until the end of the scope, then puts back what was there. Objects fetch their
/// logger when they are constructed, so this comes before them.
class ScopedLoggerName {
public:
    ScopedLoggerName(const std::string& name, std::shared_ptr<qor::kp::logging::ILogger> logger)
        : name_(name), before_(qor::kp::logging::LoggingManager::GetLoggerPtr(name)) {
        qor::kp::logging::LoggingManager::SetLogger(name_, std::move(logger));
    }
    ScopedLoggerName(const ScopedLoggerName&) = delete;
    ScopedLoggerName& operator=(const ScopedLoggerName&) = delete;

    ~ScopedLoggerName() {
        // A logger once handed out lives until the process ends, so nobody needs to own the former one here.
        using Handle = std::shared_ptr<qor::kp::logging::ILogger>;
        Handle former = before_ == nullptr ? Handle() : Handle(Handle(), before_);
        qor::kp::logging::LoggingManager::SetLogger(name_, std::move(former));
    }

private:
    std::string name_;
    qor::kp::logging::ILogger* before_;
};

/// A recording logger under a name for the length of a scope.
class ScopedRecorder {
public:
    explicit ScopedRecorder(const std::string& name,
                            qor::kp::logging::Level level = qor::kp::logging::Level_Trace)
        : logger_(std::make_shared<RecordingLogger>(level)), name_(name, logger_) {}

    RecordingLogger* operator->() const { return logger_.get(); }

private:
    std::shared_ptr<RecordingLogger> logger_;
    ScopedLoggerName name_;
};

/// No logger at all under a name for the length of a scope.
class ScopedSilence {
public:
    explicit ScopedSilence(const std::string& name) : name_(name, nullptr) {}

private:
    ScopedLoggerName name_;
};

}  // namespace Tavrin::Player::Testing
