#pragma once

#include <memory>
#include <string>

#include "Logging/ILogger.h"
#include "Logging/LoggingExport.h"

namespace qor::kp::logging {

/// The loggers of the process, by name.
///
/// *Threads:* thread-safe.
/// *Blocking:* never beyond a short internal lock.
/// *Ownership:* a logger once handed out stays alive until the process ends, also when another was put under
/// its name since. Usable before `main` begins and after it has returned.
class TAVRIN_LOGGING_EXPORT LoggingManager {
public:
    LoggingManager() = delete;

    /// The logger of that name, made on first use: it writes to standard error, at `Level_Warning`. The same
    /// name gives the same pointer until `SetLogger` changes it. Null after `SetLogger(name, nullptr)`.
    static ILogger* GetLoggerPtr(const std::string& name);

    /// Puts a client's logger under a name, for all who ask from now on; null silences the name. Objects
    /// that fetched their logger before keep the one they have.
    static void SetLogger(const std::string& name, std::shared_ptr<ILogger> logger);
};

}  // namespace qor::kp::logging
