#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Playout/PlayReport.h"
#include "Playout/Playback.h"
#include "Playout/Session.h"
#include "apps/playout/CommandFeed.h"
#include "apps/playout/Window.h"

namespace Tavrin::Playout::Program {

/// What `play` is commanded from.
struct DeskOptions {
    bool isWanted = false;   ///< A window, on whatever terms.
    bool isRefused = false;  ///< No window, on any.
    std::string script;      ///< A file; empty: none.
    std::string record;      ///< A file; empty: none.
};

/// What an operator sees and gives commands with: a window, a script, and the record of the commands.
///
/// *Threads:* bound to one thread, the session's. *Blocking:* as Window; and for a short while at a time when
/// playing as fast as possible has nothing to play. *Ownership:* borrows the session.
/// *Errors:* as ReadScript, RefuseRecordings and CommandRecorder. A window that cannot be opened is no error.
class Desk final {
public:
    Desk(const DeskOptions& options, const Session& session, const PlaybackOptions& playback);

    /// Why there is no window although there might be one; empty otherwise.
    [[nodiscard]] const std::string& WhyNoWindow() const { return whyNoWindow_; }

    /// Null when no command can come: playing then ends by itself.
    [[nodiscard]] ICommandSource* Commands();

    /// Records where the run begins.
    void Begin(const Time::TimePoint& start);

    /// Shows a tick and takes what the operator asks for meanwhile.
    void Show(const ShownTick& shown);

    /// Records how the run ended.
    void End(const PlayReport& report);

private:
    void OpenWindow();
    void Rest();

    const Session& session_;
    PlaybackOptions playback_;
    std::string whyNoWindow_;
    std::unique_ptr<Window> window_;
    std::unique_ptr<CommandRecorder> recorder_;
    std::unique_ptr<CommandFeed> feed_;
};

}  // namespace Tavrin::Playout::Program
