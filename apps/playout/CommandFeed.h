#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "Playout/PlayCommand.h"

namespace Tavrin::Playout::Program {

/// Writes the commands of a run to a file, as a script that repeats it.
///
/// *Threads:* bound to one thread. *Blocking:* on the disk; each command is on its way there when Note
/// returns. *Errors:* the constructor and Note throw std::runtime_error that names the file.
class CommandRecorder final {
public:
    explicit CommandRecorder(const std::string& file);
    ~CommandRecorder();
    CommandRecorder(const CommandRecorder&) = delete;
    CommandRecorder& operator=(const CommandRecorder&) = delete;

    /// A line that says something to people.
    void Remark(const std::string& text);
    void Note(const TimedCommand& command);

private:
    class File;
    void Write(const std::string& line);

    std::unique_ptr<File> file_;
};

/// The commands of a run: those of a script at their times, and those that an operator gives meanwhile, at the
/// next tick.
///
/// An operator drags faster than ticks come: of positions that follow each other between two ticks only the
/// last one is passed on.
///
/// *Threads:* bound to one thread. *Blocking:* never, but on what a recorder writes. *Ownership:* borrows the
/// recorder.
class CommandFeed final : public ICommandSource {
public:
    /// \p isLive: an operator may give commands for as long as the run lasts. \p recorder may be null.
    CommandFeed(std::vector<TimedCommand> script, bool isLive, CommandRecorder* recorder);

    /// From the operator.
    void Add(const PlayCommand& command);

    [[nodiscard]] std::vector<PlayCommand> Take(const Time::TimePoint& at) override;
    [[nodiscard]] bool IsOpen() const override { return isLive_ || HasScript(); }

    /// The script has commands left.
    [[nodiscard]] bool HasScript() const { return next_ < script_.size(); }

    /// Records that the run ended at the last tick, which no command says.
    void NoteEnd();

private:
    std::vector<TimedCommand> script_;
    std::size_t next_ = 0;
    bool isLive_;
    CommandRecorder* recorder_;
    std::vector<PlayCommand> added_;
    Time::TimePoint now_;
};

}  // namespace Tavrin::Playout::Program
