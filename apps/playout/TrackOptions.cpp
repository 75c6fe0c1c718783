#include "apps/playout/TrackOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "apps/playout/Arguments.h"
#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

using Time::Ratio;
using Time::TimePoint;

namespace {

constexpr std::int64_t kMostTracks = 1'000'000;
constexpr std::int64_t kMostMilliseconds = 86'400'000;
constexpr std::int64_t kHighestWeight = 1000;

/// A whole number from `lowest` to `highest`, in digits alone.
std::optional<std::int64_t> WholeNumber(const std::string& text, std::int64_t lowest, std::int64_t highest) {
    if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    const Ratio number = ParseRatio(text);
    const bool isInside = number >= Ratio(lowest, 1) && number <= Ratio(highest, 1);
    return isInside ? std::optional(number.Numerator()) : std::nullopt;
}

/// "1=2.5" in its two parts.
std::pair<std::size_t, std::string> Split(const std::string& text, const std::string& form) {
    const std::size_t sign = text.find('=');
    const auto track = WholeNumber(text.substr(0, sign), 0, kMostTracks);
    if (sign == std::string::npos || !track) {
        throw UsageError("'" + text + "' is not of the form " + form + ": tracks are numbered from 0");
    }
    return {static_cast<std::size_t>(*track), text.substr(sign + 1)};
}

TimePoint ParseOffset(const std::string& text) {
    const bool isNegative = !text.empty() && text.front() == '-';
    const TimePoint offset = ParseTime(text.substr(isNegative ? 1 : 0));
    return isNegative ? -offset : offset;
}

ReadinessRule ParseRule(const std::string& text) {
    if (text == "required") {
        return ReadinessRule::Required();
    }
    if (text == "optional") {
        return ReadinessRule::Optional();
    }
    const auto ms = WholeNumber(text, 1, kMostMilliseconds);
    if (!ms) {
        throw UsageError("'" + text +
                         "' is none of required, optional and a number of milliseconds from 1 to " +
                         std::to_string(kMostMilliseconds));
    }
    return ReadinessRule::HoldUpTo(TimePoint().FromMilliseconds(*ms));
}

std::size_t ParseWeight(const std::string& text) {
    const auto weight = WholeNumber(text, 1, kHighestWeight);
    if (!weight) {
        throw UsageError("'" + text + "' is no weight: it must be a whole number from 1 to " +
                         std::to_string(kHighestWeight));
    }
    return static_cast<std::size_t>(*weight);
}

void AddRepeated(CLI::App& command, const std::string& name, std::function<void(const std::string&)> add,
                 const std::string& typeName, const std::string& help) {
    const auto addAll = [name, add = std::move(add)](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            try {
                add(text);
            } catch (const UsageError& error) {
                throw CLI::ValidationError(name, error.what());
            }
        }
    };
    command.add_option_function<std::vector<std::string>>(name, addAll, help)
        ->type_name(typeName)
        ->take_all()
        ->allow_extra_args(false);
}

}  // namespace

void TrackOptions::AddTo(CLI::App& command) {
    AddRepeated(
        command, "--offset", [this](const std::string& text) { AddOffset(text); }, "TRACK=TIME",
        "Begin a file then, such as 1=2.5 or 1=-0.04 (its\n"
        "beginning is left out); files are numbered from 0\n"
        "(default: 0); for other files once more");
    AddRepeated(
        command, "--wait", [this](const std::string& text) { AddWait(text); }, "TRACK=RULE",
        "Wait for a file's pictures: required (default), optional\n"
        "(never), or so many milliseconds, such as 1=200, after\n"
        "which the others go on until it has caught up");
    AddRepeated(
        command, "--weight", [this](const std::string& text) { AddWeight(text); }, "TRACK=N",
        "A file's part of the memory beside the others'\n"
        "(default: 1)");
}

void TrackOptions::AddOffset(const std::string& text) {
    const auto [track, value] = Split(text, "TRACK=TIME, such as 1=2.5");
    settings_.push_back({"--offset", text, track,
                         [offset = ParseOffset(value)](SessionTrack& changed) { changed.offset = offset; }});
}

void TrackOptions::AddWait(const std::string& text) {
    const auto [track, value] = Split(text, "TRACK=RULE, such as 1=optional");
    settings_.push_back(
        {"--wait", text, track, [rule = ParseRule(value)](SessionTrack& changed) { changed.rule = rule; }});
}

void TrackOptions::AddWeight(const std::string& text) {
    const auto [track, value] = Split(text, "TRACK=N, such as 1=3");
    settings_.push_back({"--weight", text, track,
                         [weight = ParseWeight(value)](SessionTrack& changed) { changed.weight = weight; }});
}

void TrackOptions::CheckTracks(std::size_t nbTracks) const {
    for (auto setting = settings_.begin(); setting != settings_.end(); ++setting) {
        const std::string given = setting->option + " " + setting->text + ": ";
        if (setting->track >= nbTracks) {
            throw UsageError(given + "there is no track " + std::to_string(setting->track) + ": " +
                             FormatCount(nbTracks, "file") + " numbered from 0");
        }
        const bool isRepeated = std::any_of(settings_.begin(), setting, [&](const Setting& before) {
            return before.option == setting->option && before.track == setting->track;
        });
        if (isRepeated) {
            throw UsageError(given + "track " + std::to_string(setting->track) + " was given one before");
        }
    }
}

std::vector<SessionTrack> TrackOptions::Apply(
    std::vector<std::shared_ptr<const RecordingIndex>> recordings) const {
    CheckTracks(recordings.size());
    std::vector<SessionTrack> tracks = TracksFromTheOrigin(std::move(recordings));
    for (const Setting& setting : settings_) {
        setting.change(tracks[setting.track]);
    }
    return tracks;
}

std::string DescribeSettings(const SessionTrack& track) {
    std::string text;
    if (track.offset != TimePoint()) {
        text += "begins at " + FormatTime(track.offset);
    }
    if (track.rule != ReadinessRule()) {
        const TimePoint longest = *track.rule.LongestWait();
        text += text.empty() ? "" : ", ";
        text += longest == TimePoint() ? "optional"
                                       : "waited for up to " + std::to_string(longest.Milliseconds()) + " ms";
    }
    if (track.weight != 1) {
        text += (text.empty() ? "" : ", ") + ("weight " + std::to_string(track.weight));
    }
    return text;
}

}  // namespace Tavrin::Playout::Program
