#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/Session.h"
#include "apps/playout/Arguments.h"
#include "apps/playout/Commands.h"
#include "apps/playout/CommonOptions.h"
#include "apps/playout/Desk.h"
#include "apps/playout/Interrupt.h"
#include "apps/playout/Measures.h"
#include "apps/playout/Output.h"
#include "apps/playout/PlaySummary.h"
#include "apps/playout/ProgressLine.h"
#include "apps/playout/SpeedNotice.h"
#include "apps/playout/Text.h"
#include "apps/playout/TrackOptions.h"

namespace Tavrin::Playout::Program {

namespace {

constexpr std::uint32_t kMostSeconds = 86'400;

struct PlayArguments {
    std::vector<std::string> files;
    TrackOptions tracks;
    int stream = RecordingIndex::kFirstVideo;
    Output output;
    bool fast = false;
    bool realTime = false;
    DeskOptions desk;
    MeasureOptions measures;
    PlaybackOptions playback;
    SessionOptions session;
};

std::vector<std::shared_ptr<const RecordingIndex>> OpenRecordings(const PlayArguments& arguments) {
    std::vector<std::shared_ptr<const RecordingIndex>> recordings;
    for (const std::string& file : arguments.files) {
        recordings.push_back(OpenRecording(file, arguments.stream));
    }
    return recordings;
}

PlaybackOptions OptionsFor(const PlayArguments& arguments) {
    PlaybackOptions options = arguments.playback;
    options.realTime = arguments.realTime || (!arguments.fast && !arguments.output.IsWritten());
    return options;
}

/// What cannot be played as asked is the user's to put right.
Session OpenSession(const PlayArguments& arguments, const Measures& measures) {
    SessionOptions options = arguments.session;
    options.trace = measures.GetTrace();
    std::vector<SessionTrack> tracks = arguments.tracks.Apply(OpenRecordings(arguments));
    try {
        return Session(std::move(tracks), options);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

Playback PreparePlayback(Session& session, const PlaybackOptions& options) {
    try {
        return Playback(session, options);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

std::string DescribeProgress(const Session& session, const ShownTick& shown, const TickReport& tick,
                             std::uint64_t nbLate) {
    std::string text = FormatTime(tick.time) + " of " + FormatTime(session.End()) + "  speed " +
                       FormatSpeed(session.Speed()) + "  " + FormatCount(shown.tick + 1, "tick");
    if (nbLate > 0) {
        text += ", " + std::to_string(nbLate) + " late";
    }
    return IsShort(tick.heldSpeed, session.Speed()) ? text + ", held " + FormatDecimal(tick.heldSpeed, 2)
                                                    : text;
}

/// What is noted while playing, for people.
struct Notes {
    Notes(const Session& session, Measures& taken) : missing(session), measures(taken) {}

    MissingPictures missing;
    SpeedNotice speed;
    Measures& measures;
    bool isRealTime = false;
    std::ostream* out = nullptr;
};

/// Says when the speed cannot be held, which is no shortfall where there is no clock to keep to.
void NoteSpeed(Notes& notes, const Session& session, const TickReport& tick, ProgressLine& line) {
    if (!notes.isRealTime) {
        return;
    }
    if (const auto text = notes.speed.Note(SpeedNotice::Clock::now(), session.Speed(), tick)) {
        line.Clear();
        *notes.out << "too slow   " << *text << std::endl;
    }
}

PlayReport Run(Playback& playback, const Session& session, Desk& desk, IPictureSink* sink, Notes& notes) {
    ProgressLine line;
    std::uint64_t nbLate = 0;
    const auto show = [&](const ShownTick& shown, const TickReport& tick) {
        if (sink != nullptr) {
            sink->Write(shown);
        }
        desk.Show(shown);
        notes.missing.Note(tick);
        NoteSpeed(notes, session, tick, line);
        notes.measures.Note(session);
        nbLate += tick.IsReady() ? 0 : 1;
        if (line.IsDue()) {
            line.Show(DescribeProgress(session, shown, tick, nbLate));
        }
        return true;
    };
    const auto& interrupted = CatchInterrupts();
    desk.Begin(playback.Start());
    PlayReport report = playback.Run(show, &interrupted, desk.Commands());
    desk.End(report);
    if (sink != nullptr) {
        sink->Finish();
    }
    return report;
}

/// How it went so far is worth knowing above all when it goes wrong; only then what cannot be written does not
/// matter any more.
PlayReport RunToTheEnd(Playback& playback, const Session& session, Desk& desk, IPictureSink* sink,
                       Notes& notes) {
    try {
        return Run(playback, session, desk, sink, notes);
    } catch (...) {
        const auto failure = std::current_exception();
        try {
            notes.measures.Finish(session);
        } catch (const std::exception& error) {
            std::cerr << "playout: " << error.what() << '\n';
        }
        std::rethrow_exception(failure);
    }
}

bool HasShownNothing(const PlayReport& report) {
    return report.end != PlayEnd::Stopped && report.end != PlayEnd::Quit &&
           std::none_of(report.tracks.begin(), report.tracks.end(),
                        [](const TrackReport& track) { return track.nbNew > 0; });
}

void RefuseContradictions(const PlayArguments& arguments) {
    if (arguments.fast && arguments.realTime) {
        throw UsageError("--fast and --realtime exclude one another");
    }
    if (arguments.desk.isWanted && arguments.desk.isRefused) {
        throw UsageError("--window and --no-window exclude one another");
    }
}

int Play(const PlayArguments& arguments) {
    RefuseContradictions(arguments);
    const PlaybackOptions options = OptionsFor(arguments);
    Measures measures(arguments.measures, arguments.files);
    Session session = OpenSession(arguments, measures);
    Playback playback = PreparePlayback(session, options);
    Desk desk(arguments.desk, session, options);
    const auto sink = OpenOutput(arguments.output, session);
    std::ostream& out = arguments.output.IsStandardOutput() ? std::cerr : std::cout;
    if (!desk.WhyNoWindow().empty()) {
        out << "window     none: " << desk.WhyNoWindow() << std::endl;
    }
    Notes notes(session, measures);
    notes.isRealTime = options.realTime;
    notes.out = &out;
    const PlayReport report = RunToTheEnd(playback, session, desk, sink.get(), notes);
    PrintSummary(out, session, report, notes.missing, notes.speed);
    measures.Finish(session);
    if (HasShownNothing(report)) {
        std::cout.flush();
        std::cerr << "playout: none of the pictures that were to be played can be read and decoded\n";
        return Failure;
    }
    return report.end == PlayEnd::Stopped ? InterruptStatus() : Success;
}

void AddRangeOptions(CLI::App& command, PlaybackOptions& playback) {
    AddParsed(command, "--speed", playback.speed, &ParseSpeed, "RATIO",
              "Such as 1, -1 (backward), 4, 1/2 or 0.5; at 0 the picture\n"
              "stands (default: 1)");
    AddParsed(command, "--from", playback.from, &ParseTime, "TIME",
              "Start with the picture on display then (default: the\n"
              "first; backward the last)");
    AddParsed(command, "--to", playback.to, &ParseTime, "TIME",
              "End before the picture that begins then; backward that\n"
              "is the last one shown (default: the latest end of a\n"
              "file; backward the origin)");
    const auto count = [&playback](const std::uint64_t& nb) { playback.nbTicks = nb; };
    command
        .add_option_function<std::uint64_t>("--count", count,
                                            "End after N ticks of the output (default: no limit;\n"
                                            "at speed 0 one)")
        ->type_name("N")
        ->check(Between(std::uint64_t{1}, std::uint64_t{1} << 62));
}

void AddPacingOptions(CLI::App& command, PlayArguments& arguments) {
    command.add_flag("--realtime", arguments.realTime,
                     "Keep to the clock; pictures that come late are counted\n"
                     "(default when nothing is written)");
    command.add_flag("--fast", arguments.fast,
                     "As fast as possible, waiting for every picture\n"
                     "(default when pictures are written)");
    AddParsed(command, "--display-rate", arguments.session.displayRate, &ParseRate, "RATE",
              "Ticks a second, such as 50 or 30000/1001\n"
              "(default: the highest rate of the files)");
    const auto fields = [&arguments](std::int64_t) { arguments.session.fields = FieldOutput::Fields; };
    command.add_flag_function("--fields", fields,
                              "Show interlaced files field by field (default where the\n"
                              "display rate is at least their rate of fields)");
    const auto seconds = [&arguments](const std::uint32_t& nb) {
        arguments.playback.stallTimeout = std::chrono::seconds(nb);
    };
    command
        .add_option_function<std::uint32_t>("--give-up-after", seconds,
                                            "Fail when file and decoder have delivered nothing for\n"
                                            "so long (default: 30)")
        ->type_name("SECONDS")
        ->check(Between(std::uint32_t{1}, kMostSeconds));
}

void AddMeasureOptions(CLI::App& command, MeasureOptions& measures) {
    command.add_option("--counters", measures.counters, "Write at the end what playing came to, as JSON")
        ->type_name("FILE");
    command
        .add_option("--metrics", measures.metrics,
                    "Write the same as OpenMetrics text, every second and at\n"
                    "the end; the file is always whole")
        ->type_name("FILE");
    command
        .add_option("--trace", measures.trace,
                    "Write what happens when and on which thread, as Chrome\n"
                    "trace events")
        ->type_name("FILE");
}

void AddDeskOptions(CLI::App& command, DeskOptions& desk) {
    command.add_flag("--window", desk.isWanted,
                     "Show the pictures in a window (default in real time when\n"
                     "nothing is written and there is a display)");
    command.add_flag("--no-window", desk.isRefused, "Show nothing");
    command
        .add_option("--script", desk.script,
                    "Carry out commands at their times, one a line:\n"
                    "TIME speed RATIO, TIME jump TIME, TIME step N,\n"
                    "TIME drag TIME, TIME release, TIME quit")
        ->type_name("FILE");
    command
        .add_option("--record", desk.record,
                    "Write the commands that are given to a script that\n"
                    "repeats this run")
        ->type_name("FILE");
}

}  // namespace

void AddPlayCommand(CLI::App& program, int& status) {
    auto arguments = std::make_shared<PlayArguments>();
    CLI::App* command = program.add_subcommand("play", "Play recordings; several ones in step");
    command->add_option("FILE", arguments->files, "The recordings")->required()->type_name("");
    AddRangeOptions(*command, arguments->playback);
    AddParsed(*command, "--output", arguments->output, &ParseOutput, "WHERE",
              "none (default)\n"
              "png:DIR   a file for each tick\n"
              "y4m:FILE  video that most players read\n"
              "md5:FILE  a line with a check sum for each tick\n"
              "The FILE - is standard output.");
    AddPacingOptions(*command, *arguments);
    arguments->tracks.AddTo(*command);
    AddDeskOptions(*command, arguments->desk);
    AddMeasureOptions(*command, arguments->measures);
    AddMemoryOption(*command, arguments->session.memoryBytes);
    AddStreamOption(*command, arguments->stream);
    command->footer(
        "A TIME is in seconds (12.5), or m:ss (1:02.5), or h:mm:ss. Several files start together,\n"
        "or each at its offset, and are written as a mosaic. A picture that cannot be read or\n"
        "decoded is counted as missing, and the one before it stays.\n"
        "\n"
        "In the window: L plays forward, J backward, each once more for 2, 4, 8 and 16 times the\n"
        "speed; K stops, held with J or L it plays at a quarter. Space stops and plays, the arrows\n"
        "step by one picture, Home and End jump, the mouse drags the timelines, Q or Escape quits.\n"
        "At its end playing stands until then.");
    command->callback([arguments, &status] { status = Play(*arguments); });
}

}  // namespace Tavrin::Playout::Program
