#include "apps/playout/CommandFeed.h"

#include <fstream>
#include <stdexcept>
#include <utility>
#include <variant>

#include "apps/playout/CommandScript.h"

namespace Tavrin::Playout::Program {

class CommandRecorder::File {
public:
    explicit File(const std::string& file) : name(file), stream(file) {}

    std::string name;
    std::ofstream stream;
};

CommandRecorder::CommandRecorder(const std::string& file) : file_(std::make_unique<File>(file)) {
    if (!file_->stream) {
        throw std::runtime_error("\"" + file + "\": the record of commands cannot be written");
    }
}

CommandRecorder::~CommandRecorder() = default;

void CommandRecorder::Remark(const std::string& text) {
    // A file's name may hold an end of line, which would end the remark too.
    std::string line = text;
    for (char& c : line) {
        c = c == '\n' || c == '\r' ? ' ' : c;
    }
    Write("# " + line);
}

void CommandRecorder::Note(const TimedCommand& command) {
    Write(FormatCommand(command));
}

void CommandRecorder::Write(const std::string& line) {
    file_->stream << line << '\n' << std::flush;
    if (!file_->stream) {
        throw std::runtime_error("\"" + file_->name + "\": the record of commands cannot be written");
    }
}

CommandFeed::CommandFeed(std::vector<TimedCommand> script, bool isLive, CommandRecorder* recorder)
    : script_(std::move(script)), isLive_(isLive), recorder_(recorder) {
}

void CommandFeed::Add(const PlayCommand& command) {
    const bool isDrag = std::holds_alternative<DragTo>(command);
    if (isDrag && !added_.empty() && std::holds_alternative<DragTo>(added_.back())) {
        added_.back() = command;
    } else {
        added_.push_back(command);
    }
}

std::vector<PlayCommand> CommandFeed::Take(const Time::TimePoint& at) {
    now_ = at;
    std::vector<PlayCommand> commands;
    for (; HasScript() && script_[next_].at <= at; ++next_) {
        commands.push_back(script_[next_].command);
    }
    commands.insert(commands.end(), added_.begin(), added_.end());
    added_.clear();
    for (const PlayCommand& command : commands) {
        if (recorder_ != nullptr) {
            recorder_->Note({at, command});
        }
    }
    return commands;
}

void CommandFeed::NoteEnd() {
    if (recorder_ != nullptr) {
        recorder_->Note({now_, Quit{}});
    }
}

}  // namespace Tavrin::Playout::Program
