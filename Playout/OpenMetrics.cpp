#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <span>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "Playout/CounterTable.h"
#include "Playout/Counters.h"

// The library writes the text format that came before OpenMetrics. Samples are written alike in both; what
// differs is written here: totals are declared without the ending that their samples have, units are declared,
// and the text has an end.

namespace Tavrin::Playout {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kPercent = 100;
constexpr std::string_view kTotal = "_total";

/// What is said of a metric before its samples.
struct Declaration {
    std::string name;
    const char* type;
    const char* unit;  ///< Empty: none.
    std::string help;
};

const char* UnitName(CounterMetric::Unit unit) {
    switch (unit) {
        case CounterMetric::Unit::Bytes:
            return "bytes";
        case CounterMetric::Unit::Seconds:
            return "seconds";
        case CounterMetric::Unit::Count:
            break;
    }
    return "";
}

double ValueOf(const CounterField& field, const TrackCounters& track) {
    const auto value = static_cast<double>(field.value(track));
    return field.metric->unit == CounterMetric::Unit::Seconds ? value / kNanosecondsPerSecond : value;
}

double Seconds(std::chrono::nanoseconds time) {
    return static_cast<double>(time.count()) / kNanosecondsPerSecond;
}

/// The format is UTF-8 throughout, a file's name need not be.
std::string AsUtf8(const std::string& text) {
    using nlohmann::json;
    const std::string quoted = json(text).dump(-1, ' ', false, json::error_handler_t::replace);
    return json::parse(quoted).get<std::string>();
}

ClientMetric Sample(std::size_t track) {
    ClientMetric sample;
    sample.label.push_back({"track", std::to_string(track)});
    return sample;
}

std::vector<ClientMetric::Quantile> Quantiles(const LatencyHistogram& latency) {
    std::vector<ClientMetric::Quantile> quantiles;
    // Of nothing there are no percentiles.
    if (latency.Count() > 0) {
        for (const int percent : kLatencyPercents) {
            quantiles.push_back(
                {static_cast<double>(percent) / kPercent, Seconds(latency.Percentile(percent))});
        }
    }
    return quantiles;
}

class Writer {
public:
    explicit Writer(const Counters& counters) : counters_(counters) {}

    std::string Write() {
        WriteTracks();
        WriteTicks();
        const auto fields = CounterFields();
        for (auto first = fields.begin(); first != fields.end();) {
            const auto last = std::find_if(first, fields.end(), [first](const CounterField& field) {
                return field.metric != first->metric;
            });
            WriteFields({first, last});
            first = last;
        }
        for (const LatencyField& field : LatencyFields()) {
            WriteLatency(field);
        }
        text_ << "# EOF\n";
        return text_.str();
    }

private:
    /// Which track plays what, once, instead of a label on every sample.
    void WriteTracks() {
        MetricFamily family;
        family.name = "tavrin_track_info";
        family.type = MetricType::Gauge;
        for (std::size_t track = 0; track < counters_.tracks.size(); ++track) {
            ClientMetric sample = Sample(track);
            sample.label.push_back({"file", AsUtf8(counters_.tracks[track].file)});
            sample.gauge.value = 1;
            family.metric.push_back(std::move(sample));
        }
        Write({"tavrin_track", "info", "", "The recordings that are played."}, std::move(family));
    }

    void WriteTicks() {
        ClientMetric sample;
        sample.counter.value = static_cast<double>(counters_.nbTicks);
        MetricFamily family;
        family.name = "tavrin_ticks_total";
        family.type = MetricType::Counter;
        family.metric.push_back(std::move(sample));
        Write({"tavrin_ticks", "counter", "", "Output ticks."}, std::move(family));
    }

    void WriteFields(std::span<const CounterField> fields) {
        const CounterMetric& metric = *fields.front().metric;
        const bool isTotal = metric.kind == CounterMetric::Kind::Total;
        MetricFamily family;
        family.name = metric.name + std::string(isTotal ? kTotal : "");
        family.type = isTotal ? MetricType::Counter : MetricType::Gauge;
        for (std::size_t track = 0; track < counters_.tracks.size(); ++track) {
            for (const CounterField& field : fields) {
                ClientMetric sample = Sample(track);
                if (*field.label != '\0') {
                    sample.label.push_back({field.label, field.labelValue});
                }
                (isTotal ? sample.counter.value : sample.gauge.value) =
                    ValueOf(field, counters_.tracks[track]);
                family.metric.push_back(std::move(sample));
            }
        }
        Write({metric.name, isTotal ? "counter" : "gauge", UnitName(metric.unit), metric.help},
              std::move(family));
    }

    void WriteLatency(const LatencyField& field) {
        MetricFamily family;
        family.name = field.metric->name;
        family.type = MetricType::Summary;
        for (std::size_t track = 0; track < counters_.tracks.size(); ++track) {
            const LatencyHistogram& latency = field.value(counters_.tracks[track]);
            ClientMetric sample = Sample(track);
            sample.summary.sample_count = latency.Count();
            sample.summary.sample_sum = Seconds(latency.Sum());
            sample.summary.quantile = Quantiles(latency);
            family.metric.push_back(std::move(sample));
        }
        Write({field.metric->name, "summary", UnitName(field.metric->unit), field.metric->help},
              std::move(family));
    }

    /// The declaration in place of the library's, then the library's samples.
    void Write(const Declaration& declaration, MetricFamily family) {
        text_ << "# TYPE " << declaration.name << ' ' << declaration.type << '\n';
        if (*declaration.unit != '\0') {
            text_ << "# UNIT " << declaration.name << ' ' << declaration.unit << '\n';
        }
        text_ << "# HELP " << declaration.name << ' ' << declaration.help << '\n';
        std::istringstream lines(serializer_.Serialize({std::move(family)}));
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with('#')) {
                text_ << line << '\n';
            }
        }
    }

    const Counters& counters_;
    const prometheus::TextSerializer serializer_;
    std::ostringstream text_;
};

}  // namespace

std::string ToOpenMetrics(const Counters& counters) {
    return Writer(counters).Write();
}

}  // namespace Tavrin::Playout
