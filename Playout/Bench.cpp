#include "Playout/Bench.h"

#include <algorithm>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>

#include "Playout/BenchScene.h"
#include "Playout/CrewPlan.h"
#include "Playout/MemoryPlan.h"

namespace Tavrin::Playout {

using Time::Ratio;
using Time::TimePoint;

namespace {

using Measure = std::function<BenchFigures(BenchScene& scene)>;

constexpr double kMillisecondsPerSecond = 1e3;
constexpr double kMebibyte = 1024.0 * 1024.0;

struct Entry {
    BenchCase what;
    Measure measure;
};

Measure Fast(const Ratio& speed, double nbGroupsInBudget = 0) {
    return [=](BenchScene& scene) { return MeasureFast(scene, speed, nbGroupsInBudget); };
}

Measure Playing(const Ratio& speed) {
    return [=](BenchScene& scene) { return MeasurePlaying(scene, speed); };
}

Measure Steps(const Ratio& speed) {
    return [=](BenchScene& scene) { return MeasureSteps(scene, speed); };
}

Measure Opening(bool backward) {
    return [=](BenchScene& scene) { return MeasureOpening(scene.Index().File(), scene.Options(), backward); };
}

const std::vector<Entry>& Entries() {
    constexpr std::size_t kFour = 4;
    constexpr std::size_t kEight = 8;
    const Ratio forward(1, 1);
    const Ratio backward(-1, 1);
    static const std::vector<Entry> entries{
        {{"open:forward"}, Opening(false)},
        {{"open:backward"}, Opening(true)},
        {{"open:reverse-start"}, MeasureReverseStart},
        {{"fast:forward"}, Fast(forward)},
        {{"fast:forward-4-tracks", kFour}, Fast(forward)},
        {{"fast:backward-2-groups"}, Fast(backward, 2)},
        {{"fast:backward-quarter-group"}, Fast(backward, 0.25)},
        {{"fast:backward-4-tracks", kFour}, Fast(backward)},
        {{"play:1"}, Playing(forward)},
        {{"play:2"}, Playing(Ratio(2, 1))},
        {{"play:4"}, Playing(Ratio(4, 1))},
        {{"play:1/2"}, Playing(Ratio(1, 2))},
        {{"play:-1"}, Playing(backward)},
        {{"play:-2"}, Playing(Ratio(-2, 1))},
        {{"play:-1/2"}, Playing(Ratio(-1, 2))},
        {{"play:-4"}, Playing(Ratio(-4, 1))},
        {{"play:16"}, Playing(Ratio(16, 1))},
        {{"play:-16"}, Playing(Ratio(-16, 1))},
        {{"step:back"}, Steps(backward)},
        {{"step:forward"}, Steps(forward)},
        {{"turn"}, MeasureTurns},
        {{"near"}, MeasureNearJumps},
        {{"jump"}, MeasureJumps},
        {{"drag"}, MeasureDragging},
        {{"tracks:4-forward", kFour}, Playing(forward)},
        {{"tracks:4-backward", kFour}, Playing(backward)},
        {{"tracks:8-forward", kEight}, Playing(forward)},
        {{"tracks:8-backward", kEight}, Playing(backward)},
    };
    return entries;
}

bool IsMeant(const BenchCase& what, const std::string& name) {
    return what.name == name || what.name.substr(0, what.name.find(':')) == name;
}

}  // namespace

const std::vector<BenchCase>& BenchCases() {
    static const std::vector<BenchCase> cases = [] {
        std::vector<BenchCase> all;
        for (const Entry& entry : Entries()) {
            all.push_back(entry.what);
        }
        return all;
    }();
    return cases;
}

std::vector<BenchCase> SelectBenchCases(const std::string& names) {
    std::vector<std::string> wanted;
    std::istringstream in(names);
    for (std::string name; std::getline(in, name, ',');) {
        const auto isMeant = [&name](const BenchCase& what) { return IsMeant(what, name); };
        if (std::none_of(BenchCases().begin(), BenchCases().end(), isMeant)) {
            throw std::invalid_argument("'" + name + "' is no case of the bench");
        }
        wanted.push_back(name);
    }
    std::vector<BenchCase> selected;
    for (const BenchCase& what : BenchCases()) {
        if (std::any_of(wanted.begin(), wanted.end(),
                        [&what](const std::string& name) { return IsMeant(what, name); })) {
            selected.push_back(what);
        }
    }
    return selected;
}

void WarmMemory(const BenchCase& what, const std::string& file, const BenchOptions& options) {
    const BenchScene scene(file, what.nbTracks, options);
    const std::size_t asked = options.session.memoryBytes;
    // More than is usual is not always filled.
    const std::size_t budget = asked > 0 ? std::min(asked, scene.UsualBytes()) : scene.UsualBytes();
    std::vector<std::uint8_t> memory(budget + budget / 4, 1);
    // The compiler must not take memory that nobody reads for none.
    static_cast<void>(*static_cast<volatile std::uint8_t*>(memory.data()));
}

BenchFigures RunBenchCase(const BenchCase& what, const std::string& file, const BenchOptions& options) {
    const auto& entries = Entries();
    const auto entry = std::find_if(entries.begin(), entries.end(), [&what](const Entry& candidate) {
        return candidate.what.name == what.name;
    });
    if (entry == entries.end()) {
        throw std::invalid_argument("'" + what.name + "' is no case of the bench");
    }
    BenchScene scene(file, what.nbTracks, options);
    BenchFigures figures = entry->measure(scene);
    // Without one, what was shown has been judged by the player's own numbers.
    figures.emplace_back("hasBarCode", scene.Recording().HasBarCode() ? 1 : 0);
    return figures;
}

BenchScene::BenchScene(const std::string& file, std::size_t nbTracks, const BenchOptions& options)
    : options_(options), nbTracks_(nbTracks), recording_(RecordingIndex::Build(file)), random_(options.seed) {
}

std::shared_ptr<Session> BenchScene::OpenSession(const SessionOptions& options) const {
    return std::make_shared<Session>(
        std::vector<std::shared_ptr<const RecordingIndex>>(nbTracks_, recording_.Index()), options);
}

std::size_t BenchScene::GroupBytes() const {
    std::size_t longest = 0;
    for (std::size_t group = 0; group < Index().NbGroups(); ++group) {
        longest = std::max(longest, Index().Group(group).nbPictures);
    }
    return longest * recording_.PictureBytes();
}

std::size_t BenchScene::LeastBytes() const {
    return nbTracks_ * Needs().least;
}

std::size_t BenchScene::UsualBytes() const {
    return DefaultMemory(std::vector<TrackNeeds>(nbTracks_, Needs()));
}

TrackNeeds BenchScene::Needs() const {
    return NeedsOf(Index(), PlanLanes(Index(), nbTracks_, NbCoresHere()));
}

TimePoint BenchScene::MiddleOf(std::size_t picture) const {
    const std::int64_t sample = Index().Picture(picture).sample;
    const TimePoint start = Index().SampleStart(sample);
    const TimePoint end = Index().SampleStart(sample + 1);
    return start + (end - start) * Ratio(1, 2);
}

std::size_t BenchScene::RandomInnerPicture() {
    const std::size_t nb = Index().NbPictures();
    return nb / 4 + RandomBelow(std::max<std::size_t>(nb / 2, 1));
}

bool BenchScene::Shows(const TickReport& report, std::size_t picture) const {
    return std::all_of(report.tracks.begin(), report.tracks.end(), [&](const TrackView& view) {
        return view.picture != nullptr && recording_.Shows(*view.picture, picture);
    });
}

void AddLatencies(BenchFigures& figures, const Percentiles& times) {
    figures.emplace_back("tries", static_cast<double>(times.Count()));
    figures.emplace_back("p50Ms", times.At(50));
    figures.emplace_back("p95Ms", times.At(95));
    figures.emplace_back("p99Ms", times.At(99));
    figures.emplace_back("maxMs", times.At(100));
}

void AddUsage(BenchFigures& figures, const ProcessUsage& usage, std::size_t nbPictures) {
    const auto nb = static_cast<double>(std::max<std::size_t>(nbPictures, 1));
    figures.emplace_back("cpuMsPerPicture", usage.CpuSeconds() * kMillisecondsPerSecond / nb);
    figures.emplace_back("bytesReadPerPicture", static_cast<double>(usage.BytesRead()) / nb);
    figures.emplace_back("atBeginMiB", static_cast<double>(usage.ResidentAtBegin()) / kMebibyte);
    figures.emplace_back("peakMiB", static_cast<double>(usage.PeakResident()) / kMebibyte);
}

}  // namespace Tavrin::Playout
