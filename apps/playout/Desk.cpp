#include "apps/playout/Desk.h"

#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

#include "apps/playout/CommandScript.h"
#include "apps/playout/Output.h"
#include "apps/playout/TrackOptions.h"

namespace Tavrin::Playout::Program {

using Time::Ratio;

namespace {

/// As fast as possible there are more ticks than anybody sees.
constexpr std::chrono::milliseconds kFastInterval{40};

}  // namespace

Desk::Desk(const DeskOptions& options, const Session& session, const PlaybackOptions& playback)
    : session_(session), playback_(playback) {
    auto script = options.script.empty() ? std::vector<TimedCommand>() : ReadScript(options.script);
    if (!options.record.empty()) {
        RefuseRecordings("--record", options.record, session);
        recorder_ = std::make_unique<CommandRecorder>(options.record);
    }
    // Whoever plays as fast as possible, or writes the pictures, is not there to look at them.
    if (!options.isRefused && (options.isWanted || playback.realTime)) {
        OpenWindow();
    }
    if (window_ != nullptr || recorder_ != nullptr || !options.script.empty()) {
        feed_ = std::make_unique<CommandFeed>(std::move(script), window_ != nullptr, recorder_.get());
    }
}

void Desk::OpenWindow() {
    try {
        window_ = Window::Open(session_, playback_.realTime ? std::chrono::milliseconds(0) : kFastInterval);
    } catch (const std::runtime_error& error) {
        whyNoWindow_ = error.what();
    }
}

ICommandSource* Desk::Commands() {
    return feed_.get();
}

/// So that the record says all that is needed to repeat the run, whatever the options were.
void Desk::Begin(const Time::TimePoint& start) {
    if (recorder_ == nullptr) {
        return;
    }
    for (std::size_t track = 0; track < session_.NbTracks(); ++track) {
        const std::string settings = DescribeSettings(session_.Track(track));
        recorder_->Remark(session_.Recording(track).File() + (settings.empty() ? "" : ", " + settings));
    }
    recorder_->Note({{}, JumpTo{start}});
    recorder_->Note({{}, SetSpeed{playback_.speed}});
}

void Desk::Show(const ShownTick& shown) {
    if (window_ == nullptr) {
        return;
    }
    window_->Show(shown);
    Rest();
    for (const PlayCommand& command : window_->Poll()) {
        feed_->Add(command);
    }
}

/// Playing as fast as possible would run in circles while nothing plays.
void Desk::Rest() {
    if (!playback_.realTime && session_.Speed() == Ratio() && !feed_->HasScript()) {
        Window::WaitForEvent(kFastInterval);
    }
}

void Desk::End(const PlayReport& report) {
    if (feed_ != nullptr && report.end == PlayEnd::Stopped) {
        feed_->NoteEnd();
    }
}

}  // namespace Tavrin::Playout::Program
