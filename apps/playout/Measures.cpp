#include "apps/playout/Measures.h"

#include <array>
#include <exception>
#include <filesystem>
#include <iostream>
#include <set>
#include <utility>

#include "apps/playout/Arguments.h"
#include "apps/playout/Output.h"
#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

namespace {

/// As often as collectors ask at most.
constexpr std::chrono::seconds kBetweenMetrics{1};

void RefuseMisuse(const MeasureOptions& options, const std::vector<std::string>& recordings) {
    const std::array<std::pair<const char*, const std::string&>, 3> files{
        {{"--counters", options.counters}, {"--metrics", options.metrics}, {"--trace", options.trace}}};
    std::set<std::filesystem::path> named;
    for (const auto& [option, file] : files) {
        if (file.empty()) {
            continue;
        }
        RefuseRecordings(option, file, recordings);
        if (!named.insert(std::filesystem::absolute(file).lexically_normal()).second) {
            throw UsageError(std::string(option) + ": \"" + file + "\" is written by another option already");
        }
    }
}

}  // namespace

Measures::Measures(const MeasureOptions& options, const std::vector<std::string>& recordings)
    : traceFile_(options.trace), nextMetrics_(std::chrono::steady_clock::now() + kBetweenMetrics) {
    RefuseMisuse(options, recordings);
    if (!options.counters.empty()) {
        counters_ = std::make_unique<OutputFile>(options.counters);
    }
    if (!options.metrics.empty()) {
        metrics_ = std::make_unique<MetricsFile>(options.metrics, Counters());
    }
    if (!options.trace.empty()) {
        trace_ = std::make_shared<Trace>(options.trace);
    }
}

void Measures::Note(const Session& session) {
    const auto now = std::chrono::steady_clock::now();
    if (metrics_ != nullptr && now >= nextMetrics_) {
        metrics_->Offer(session.GetCounters());
        nextMetrics_ = now + kBetweenMetrics;
    }
}

void Measures::Finish(const Session& session) {
    std::exception_ptr first;
    const auto attempt = [&first](const auto& action) {
        try {
            action();
        } catch (...) {
            first = first ? first : std::current_exception();
        }
    };
    if (counters_ != nullptr) {
        attempt([&] {
            counters_->Write(ToJson(session.GetCounters()));
            counters_->Finish();
        });
    }
    if (metrics_ != nullptr) {
        attempt([&] { metrics_->Finish(session.GetCounters()); });
    }
    if (trace_ != nullptr) {
        attempt([&] { trace_->Close(); });
    }
    if (first) {
        std::rethrow_exception(first);
    }
    if (trace_ != nullptr && trace_->NbLost() > 0) {
        std::cerr << "playout: \"" << traceFile_ << "\": " << FormatCount(trace_->NbLost(), "event")
                  << " lost: the disk did not keep up\n";
    }
}

}  // namespace Tavrin::Playout::Program
