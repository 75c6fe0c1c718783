#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "Playout/Counters.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// How a metric of a track is called where it leaves the program.
struct CounterMetric {
    enum class Kind {
        Total,  ///< It only grows.
        Level   ///< It goes up and down.
    };
    enum class Unit {
        Count,
        Bytes,
        Seconds  ///< Held in nanoseconds.
    };

    const char* name;  ///< Without the ending of totals; ends in the unit, if there is one.
    Kind kind;
    Unit unit;
    const char* help;  ///< One sentence.
};

/// One number of TrackCounters. Summing up and every format go by this one list.
struct CounterField {
    const char* group;  ///< In JSON, the object; the field's name there is `name`.
    const char* name;
    const CounterMetric* metric;  ///< Fields of the same metric stand in a row.
    const char* label;            ///< What tells these apart; empty where the metric has but one field.
    const char* labelValue;
    std::uint64_t (*value)(const TrackCounters& track);
    void (*add)(TrackCounters& sum, const TrackCounters& track);
};

/// One latency of TrackCounters.
struct LatencyField {
    const char* group;  ///< In JSON, the object; the field's name there is "latency".
    const CounterMetric* metric;
    const LatencyHistogram& (*value)(const TrackCounters& track);
    void (*add)(TrackCounters& sum, const TrackCounters& track);
};

[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::span<const CounterField> CounterFields();
[[nodiscard]] TAVRIN_PLAYOUT_EXPORT std::span<const LatencyField> LatencyFields();

/// The percentiles that latencies are written with.
inline constexpr std::array kLatencyPercents{50, 90, 95, 99};

}  // namespace Tavrin::Playout
