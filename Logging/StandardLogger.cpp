#include "Logging/StandardLogger.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

namespace qor::kp::logging {

namespace {

spdlog::level::level_enum ToLibraryLevel(Level level) {
    if (level < Level_Debug) {
        return spdlog::level::trace;
    }
    if (level < Level_Info) {
        return spdlog::level::debug;
    }
    if (level < Level_Warning) {
        return spdlog::level::info;
    }
    if (level < Level_Error) {
        return spdlog::level::warn;
    }
    return level < Level_Fatal ? spdlog::level::err : spdlog::level::critical;
}

}  // namespace

StandardLogger::StandardLogger(const std::string& name)
    : logger_(std::make_shared<spdlog::logger>(name, std::make_shared<spdlog::sinks::stderr_sink_mt>())) {
    // The filtering is ours: the levels of this façade are finer than the library's.
    logger_->set_level(spdlog::level::trace);
    logger_->flush_on(spdlog::level::trace);
    logger_->set_pattern("%Y-%m-%d %H:%M:%S.%e [%l] %n: %v (%g:%#)");
}

void StandardLogger::Log(Level level, const std::string& text, const char* file, int line) {
    if (level < GetLevel()) {
        return;
    }
    // The overload for a finished text: with a format string, braces in the text would be interpreted.
    logger_->log(spdlog::source_loc(file, line, ""), ToLibraryLevel(level), spdlog::string_view_t(text));
}

void StandardLogger::SetLevel(Level level) {
    level_.store(level, std::memory_order_relaxed);
}

Level StandardLogger::GetLevel() const {
    return level_.load(std::memory_order_relaxed);
}

}  // namespace qor::kp::logging
