#pragma once

#include <sstream>
#include <string>

#include "Logging/ILogger.h"

namespace Tavrin::Player {

/// Whether a message of that level would be written: a null logger writes nothing.
inline bool IsLogged(const qor::kp::logging::ILogger* logger, qor::kp::logging::Level level) {
    return logger != nullptr && logger->GetLevel() <= level;
}

/// The parts one after the other, each as its stream operator prints it.
template <typename... Parts>
std::string Compose(const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

}  // namespace Tavrin::Player

/// Logs a message made of parts, and lets an exception of the logger out. A macro, because the parts must not even be
/// evaluated (they may ask objects of the client) when the level silences the message, and because the line is
/// that of the caller.
#define TAVRIN_LOG_OR_THROW(logger, level, file, ...)                                         \
    do {                                                                                      \
        if (::Tavrin::Player::IsLogged((logger), (level))) {                                  \
            (logger)->Log((level), ::Tavrin::Player::Compose(__VA_ARGS__), (file), __LINE__); \
        }                                                                                     \
    } while (false)

/// The same, but a message that cannot be composed or written is lost, and nothing else is: what is logged about goes on.
#define TAVRIN_LOG(logger, level, file, ...)                             \
    do {                                                                 \
        try {                                                            \
            TAVRIN_LOG_OR_THROW((logger), (level), (file), __VA_ARGS__); \
        } catch (...) { /* whoever cannot log cannot be told either */   \
        }                                                                \
    } while (false)
