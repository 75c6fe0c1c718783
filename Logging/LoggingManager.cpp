#include "Logging/LoggingManager.h"

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "Logging/StandardLogger.h"

namespace qor::kp::logging {

namespace {

struct Registry {
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<ILogger>> loggers_;
    std::vector<std::shared_ptr<ILogger>> replaced_;
};

/// Never destroyed: objects with static storage may log after this library's own destructors would have run.
Registry& TheRegistry() {
    static Registry* const registry = new Registry;
    return *registry;
}

}  // namespace

ILogger* LoggingManager::GetLoggerPtr(const std::string& name) {
    Registry& registry = TheRegistry();
    const std::lock_guard<std::mutex> lock(registry.mutex_);
    const auto found = registry.loggers_.find(name);
    if (found != registry.loggers_.end()) {
        return found->second.get();
    }
    return registry.loggers_.emplace(name, std::make_shared<StandardLogger>(name)).first->second.get();
}

void LoggingManager::SetLogger(const std::string& name, std::shared_ptr<ILogger> logger) {
    Registry& registry = TheRegistry();
    const std::lock_guard<std::mutex> lock(registry.mutex_);
    std::shared_ptr<ILogger>& current = registry.loggers_[name];
    if (current != nullptr) {
        registry.replaced_.push_back(current);
    }
    current = std::move(logger);
}

}  // namespace qor::kp::logging
