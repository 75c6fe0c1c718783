#pragma once

#include <string>

#include "Logging/LoggingExport.h"

namespace qor::kp::logging {

/// How much a message matters. A logger writes a message whose level is at or above its own.
enum Level : int {
    Level_Trace = 10,    ///< One line per order or sample.
    Level_Debug = 20,    ///< Changes of the player's state.
    Level_Info = 30,     ///< Rare events of an object's life.
    Level_Warning = 40,  ///< A preload or a decode that failed or was slow.
    Level_Error = 50,    ///< A broken rule: the caller or the set-up is wrong.
    Level_Fatal = 60,    ///< The process cannot go on.
    Level_NoLog = 100    ///< As a logger's level: nothing is written.
};

/// Where an object's messages go.
///
/// A client may put its own behind a name (`LoggingManager::SetLogger`). An object asks `GetLevel` before it
/// composes a message and calls `Log` only when that level is at or below the message's.
///
/// *Threads:* thread-safe; worker threads and the client's threads log at the same time.
/// *Errors:* an exception of `Log` loses its message and nothing else, but for a preload worker, which
/// treats a preload that it cannot log as one that failed.
class TAVRIN_LOGGING_EXPORT ILogger {
public:
    ILogger() = default;
    ILogger(const ILogger&) = delete;
    ILogger& operator=(const ILogger&) = delete;
    virtual ~ILogger() = default;

    /// Takes one message. `text` is final: whatever braces or percent signs it holds are to be written as
    /// they are. `file` names the class that logs (`Player/Cache`) and `line` the line of its source; `file`
    /// is a string literal.
    virtual void Log(Level level, const std::string& text, const char* file, int line) = 0;

    /// Messages below `level` are dropped from now on.
    virtual void SetLevel(Level level) = 0;

    /// The level in force.
    virtual Level GetLevel() const = 0;
};

}  // namespace qor::kp::logging
