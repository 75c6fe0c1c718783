#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Tavrin::Playout::Support {

/// The events of a trace's file, which is checked on the way as a viewer would read it.
///
/// Adds a failure to the running test when it is not an array of objects that each have "name", "ph", "ts",
/// "pid" and "tid" of the right types, when a span has no duration, when spans of one thread overlap without
/// lying in one another, or when a thread that has events has no name.
[[nodiscard]] std::vector<nlohmann::json> ReadTrace(const std::string& file);

/// Those of that name.
[[nodiscard]] std::vector<nlohmann::json> EventsNamed(const std::vector<nlohmann::json>& events,
                                                      const std::string& name);

/// The names of the threads, sorted.
[[nodiscard]] std::vector<std::string> ThreadNames(const std::vector<nlohmann::json>& events);

}  // namespace Tavrin::Playout::Support
