#pragma once

#include <map>
#include <string>

namespace Tavrin::Playout::Support {

/// A text in the OpenMetrics format, read as strictly as the format's text is written.
struct MetricsText {
    std::map<std::string, std::string> types;  ///< By metric.
    std::map<std::string, std::string> units;
    std::map<std::string, double> samples;  ///< By name and labels, as they stand in the text.

    [[nodiscard]] double At(const std::string& sample) const { return samples.at(sample); }
};

/// Throws std::runtime_error, naming the line and the rule, for a text that breaks one: metrics are declared
/// once, before their samples, which follow one another; samples have the endings of their metric's type and
/// are all different; a unit ends its metric's name; the text ends with its mark of the end.
[[nodiscard]] MetricsText ParseMetrics(const std::string& text);

}  // namespace Tavrin::Playout::Support
