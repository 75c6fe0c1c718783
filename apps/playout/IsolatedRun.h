#pragma once

#include <functional>
#include <string>

namespace Tavrin::Playout::Program {

/// Does some work in a process of its own, so that what it uses can be told from what was used before it, and
/// returns the text that it came to. To be called while this process has one thread only.
///
/// *Blocking:* until the work is done. *Errors:* throws std::runtime_error with the message of an exception
/// that left the work, or saying by which signal its process ended, and std::system_error when there can be
/// no process.
[[nodiscard]] std::string RunIsolated(const std::function<std::string()>& work);

}  // namespace Tavrin::Playout::Program
