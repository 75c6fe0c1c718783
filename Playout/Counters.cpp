#include "Playout/Counters.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Playout/CounterTable.h"

namespace Tavrin::Playout {

namespace {

// In the order in which the members are written, for people to read.
using Json = nlohmann::ordered_json;

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kNanosecondsPerMillisecond = 1e6;
constexpr int kIndentation = 2;

double Milliseconds(std::chrono::nanoseconds time) {
    return static_cast<double>(time.count()) / kNanosecondsPerMillisecond;
}

Json ToJson(const LatencyHistogram& latency) {
    Json json;
    json["count"] = latency.Count();
    const auto nb = static_cast<double>(std::max<std::uint64_t>(latency.Count(), 1));
    json["meanMs"] = Milliseconds(latency.Sum()) / nb;
    for (const int percent : kLatencyPercents) {
        json["p" + std::to_string(percent) + "Ms"] = Milliseconds(latency.Percentile(percent));
    }
    json["maxMs"] = Milliseconds(latency.Longest());
    return json;
}

void Write(Json& json, const TrackCounters& track) {
    for (const CounterField& field : CounterFields()) {
        Json& member = json[field.group][field.name];
        const std::uint64_t value = field.value(track);
        if (field.metric->unit == CounterMetric::Unit::Seconds) {
            member = static_cast<double>(value) / kNanosecondsPerSecond;
        } else {
            member = value;
        }
    }
    for (const LatencyField& field : LatencyFields()) {
        json[field.group]["latency"] = ToJson(field.value(track));
    }
}

}  // namespace

TrackCounters& TrackCounters::operator+=(const TrackCounters& other) {
    for (const CounterField& field : CounterFields()) {
        field.add(*this, other);
    }
    for (const LatencyField& field : LatencyFields()) {
        field.add(*this, other);
    }
    return *this;
}

TrackCounters Counters::All() const {
    TrackCounters sum;
    for (const TrackCounters& track : tracks) {
        sum += track;
    }
    return sum;
}

std::string ToJson(const Counters& counters) {
    Json json;
    json["ticks"] = counters.nbTicks;
    Write(json["all"], counters.All());
    json["tracks"] = Json::array();
    for (const TrackCounters& track : counters.tracks) {
        Json& entry = json["tracks"].emplace_back();
        entry["file"] = track.file;
        Write(entry, track);
    }
    // File names need not be UTF-8, which JSON is.
    return json.dump(kIndentation, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace Tavrin::Playout
