#include "apps/playout/SimulationText.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>

#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

using Time::Ratio;
using Time::TimePoint;

namespace {

constexpr double kNanosecondsPerMillisecond = 1e6;
constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kBytesPerMegabyte = 1e6;
constexpr double kBitsPerMegabit = 1e6;
constexpr int kIndentation = 2;

/// What is used so much of its time is what bounds the rest.
constexpr double kFullPercent = 95;

double ToDouble(const Ratio& ratio) {
    return static_cast<double>(ratio.Numerator()) / static_cast<double>(ratio.Denominator());
}

double Milliseconds(std::chrono::nanoseconds time) {
    return static_cast<double>(time.count()) / kNanosecondsPerMillisecond;
}

double Seconds(const TimePoint& time) {
    return static_cast<double>(time.Nanoseconds()) / kNanosecondsPerSecond;
}

std::string Percent(double value) {
    return FormatDecimal(value, 1) + " %";
}

bool WaitsForStorage(const SimulationReport& report) {
    return report.nbLateForStorage >= report.nbLateForDecoder;
}

std::string DescribeStorage(const SimulationReport& report) {
    if (report.storageBusyPercent >= kFullPercent) {
        return "its bandwidth is used up";
    }
    if (report.readersBusyPercent >= kFullPercent) {
        return "the preload workers spend all their time waiting for reads: more of them would hide the "
               "latency";
    }
    return "single reads take longer than what is ready ahead lasts: more memory would bridge them, or a "
           "storage with a shorter tail";
}

std::string DescribeDecoder(const SimulationReport& report) {
    if (report.coresBusyPercent >= kFullPercent) {
        return "the cores are used up";
    }
    if (report.decodersBusyPercent >= kFullPercent) {
        return "all decode workers are taken, " + Percent(report.decodersWaitingPercent) +
               " of their time by waiting for one another: more of them than cores would use the cores";
    }
    return "cores and decode workers stand idle while tracks wait: what is ready ahead does not last until "
           "a group is decoded; more memory would bridge it, or shorter groups";
}

std::string Held(const SimulationReport& report) {
    std::set<std::size_t> tracks;
    for (std::size_t track = 0; track < report.nbHeldUp.size(); ++track) {
        if (report.nbHeldUp[track] > 0) {
            tracks.insert(track);
        }
    }
    return std::to_string(tracks.size()) + " of " + FormatCount(report.nbTracks, "track") + ": " +
           FormatRanges(tracks);
}

void PrintLatency(std::ostream& out, const LatencyHistogram& latency) {
    constexpr double median = 50;
    constexpr double high = 95;
    constexpr double highest = 99;
    out << "p50 " << FormatDecimal(Milliseconds(latency.Percentile(median)), 1) << ", p95 "
        << FormatDecimal(Milliseconds(latency.Percentile(high)), 1) << ", p99 "
        << FormatDecimal(Milliseconds(latency.Percentile(highest)), 1) << ", longest "
        << FormatDecimal(Milliseconds(latency.Longest()), 1) << " ms\n";
}

void PrintWall(std::ostream& out, const SimulationOptions& options) {
    out << "wall       " << FormatCount(options.nbTracks, "track") << " of ";
    if (options.like != nullptr) {
        out << '"' << options.like->File() << "\"\n";
    } else {
        const RecordingModel& recording = options.recording;
        out << recording.width << 'x' << recording.height << ' ' << recording.pixelFormat << ", "
            << FormatRate(recording.rate) << " a second, groups of " << recording.groupLength << ", "
            << FormatDecimal(static_cast<double>(recording.bitsPerSecond) / kBitsPerMegabit, 1) << " Mb/s\n";
    }
    const StorageModel& storage = options.storage;
    out << "storage    latency " << storage.latency.ToString() << " ms, ";
    if (storage.bytesPerSecond > 0) {
        out << FormatDecimal(static_cast<double>(storage.bytesPerSecond) / kBytesPerMegabyte, 1)
            << " MB/s for all, ";
    }
    out << FormatCount(options.session.nbPreloadWorkers, "preload worker") << '\n';
    out << "decoder    " << options.decoder.perPicture.ToString() << " ms of a core for a picture, "
        << FormatCount(options.decoder.nbCores, "core") << ", "
        << FormatCount(options.decoder.nbWorkers, "decode worker") << '\n';
}

void PrintTicks(std::ostream& out, const SimulationReport& report, const TrackCounters& all) {
    out << "played     " << FormatTime(report.elapsed) << " at speed " << FormatSpeed(report.speed)
        << ", first picture after " << FormatDecimal(Seconds(report.untilFirst) * 1e3, 0) << " ms\n"
        << "ticks      " << report.nbTicks << ", late " << report.nbLateTicks << " (for storage "
        << report.nbLateForStorage << ", for a decoder " << report.nbLateForDecoder << "), of these "
        << report.nbLateSettling << " while settling\n"
        << "pictures   " << all.pictures.nbExact << " exact, " << all.pictures.nbRepeated << " repeated, "
        << all.pictures.nbLate << " late, " << all.pictures.nbMissing << " missing\n";
    if (report.nbLateTicks > 0) {
        out << "held up    " << Held(report) << '\n';
    }
}

void PrintWork(std::ostream& out, const SimulationReport& report, const TrackCounters& all) {
    const double seconds = Seconds(report.untilFirst + report.elapsed);
    out << "busy       storage " << Percent(report.storageBusyPercent) << ", preload workers "
        << Percent(report.readersBusyPercent) << ", decode workers " << Percent(report.decodersBusyPercent)
        << " (waiting for one another " << Percent(report.decodersWaitingPercent) << "), cores "
        << Percent(report.coresBusyPercent) << '\n'
        << "reads      " << all.reads.nbReads << ", "
        << FormatDecimal(static_cast<double>(all.bytes.read) / kBytesPerMegabyte / std::max(seconds, 1e-9), 1)
        << " MB/s, " << all.reads.nbFailed << " failed; ";
    PrintLatency(out, all.reads.latency);
    out << "decodes    " << FormatCount(all.decodes.nbPackets, "packet") << " in "
        << FormatCount(all.decodes.nbPasses, "run") << "; ";
    PrintLatency(out, all.decodes.latency);
}

void PrintFindings(std::ostream& out, const SimulationFindings& findings) {
    if (findings.mostTracks) {
        out << "most       " << FormatCount(*findings.mostTracks, "track") << '\n';
    }
    if (findings.highestSpeed) {
        out << "highest    speed " << FormatSpeed(*findings.highestSpeed) << '\n';
    }
}

using Json = nlohmann::ordered_json;

Json ToJsonObject(const SimulationReport& report) {
    return {{"holds", report.holds},
            {"tracks", report.nbTracks},
            {"speed", ToDouble(report.speed)},
            {"memoryBytes", report.memoryBytes},
            {"heldSpeed", report.HeldSpeed()},
            {"untilFirstMs", Seconds(report.untilFirst) * 1e3},
            {"elapsedSeconds", Seconds(report.elapsed)},
            {"ticks", report.nbTicks},
            {"lateTicks", report.nbLateTicks},
            {"latePercent", report.LatePercent()},
            {"settlingTicks", report.nbSettlingTicks},
            {"lateWhileSettling", report.nbLateSettling},
            {"lateForStorage", report.nbLateForStorage},
            {"lateForDecoder", report.nbLateForDecoder},
            {"heldUp", report.nbHeldUp},
            {"storageBusyPercent", report.storageBusyPercent},
            {"preloadWorkersBusyPercent", report.readersBusyPercent},
            {"decodeWorkersBusyPercent", report.decodersBusyPercent},
            {"decodeWorkersWaitingPercent", report.decodersWaitingPercent},
            {"coresBusyPercent", report.coresBusyPercent}};
}

}  // namespace

std::string DescribeVerdict(const SimulationReport& report) {
    if (report.LatePercent() == 0) {
        return "the wall holds: no tick is late";
    }
    if (report.holds) {
        return "the wall holds: " + Percent(report.LatePercent()) + " of the ticks are late";
    }
    return "the wall does not hold: " + Percent(report.LatePercent()) + " of the ticks are late, speed " +
           FormatDecimal(report.HeldSpeed(), 2) + " is held; it waits for " +
           (WaitsForStorage(report) ? "storage: " + DescribeStorage(report)
                                    : "decoders: " + DescribeDecoder(report));
}

void PrintSimulation(std::ostream& out, const SimulationOptions& options, const SimulationReport& report,
                     const SimulationFindings& findings) {
    const TrackCounters all = report.counters.All();
    PrintWall(out, options);
    out << "memory     " << FormatMebibytes(report.memoryBytes) << '\n';
    PrintTicks(out, report, all);
    PrintWork(out, report, all);
    PrintFindings(out, findings);
    out << "verdict    " << DescribeVerdict(report) << '\n';
}

void PrintSimulationJson(std::ostream& out, const SimulationOptions& options, const SimulationReport& report,
                         const SimulationFindings& findings) {
    Json json;
    json["seed"] = options.seed;
    json["simulation"] = ToJsonObject(report);
    json["verdict"] = DescribeVerdict(report);
    if (findings.mostTracks) {
        json["mostTracks"] = *findings.mostTracks;
    }
    if (findings.highestSpeed) {
        json["highestSpeed"] = ToDouble(*findings.highestSpeed);
    }
    json["counters"] = Json::parse(ToJson(report.counters));
    out << json.dump(kIndentation) << '\n';
}

}  // namespace Tavrin::Playout::Program
