#include "apps/playout/PlaySummary.h"

#include <algorithm>
#include <ostream>
#include <string>

#include "apps/playout/Text.h"
#include "apps/playout/TrackOptions.h"

namespace Tavrin::Playout::Program {

using std::chrono::duration;
using std::chrono::duration_cast;
using std::chrono::milliseconds;

namespace {

/// For whom the others waited, and who was left behind.
void PrintWaits(std::ostream& out, const TrackReport& report) {
    if (report.nbHeld > 0) {
        out << "held       " << FormatCount(report.nbHeld, "tick") << ": all waited for this file\n";
    }
    if (report.nbLeftBehind > 0) {
        out << "behind     " << FormatCount(report.nbLeftBehind, "tick")
            << ": the others went on without this file\n";
    }
}

void PrintTrack(std::ostream& out, const Session& session, std::size_t track, const TrackReport& report,
                const std::set<std::size_t>& missing) {
    const TrackInformation information = session.GetInformation(track);
    out << "file       " << session.Recording(track).File() << '\n';
    if (const std::string settings = DescribeSettings(session.Track(track)); !settings.empty()) {
        out << "track      " << settings << '\n';
    }
    out << "pictures   " << report.nbNew << " shown, " << report.nbRepeated << " repeated, " << report.nbLate
        << " late, " << report.nbMissing << " missing";
    if (report.nbEmpty > 0) {
        out << ", " << report.nbEmpty << " empty";
    }
    out << '\n';
    PrintWaits(out, report);
    if (!missing.empty()) {
        out << "missing    " << FormatCount(missing.size(), "picture") << ": " << FormatRanges(missing)
            << '\n';
    }
    out << "work       " << FormatCount(information.reading.nbReads, "read") << ", "
        << FormatCount(information.decoding.nbPacketsDecoded, "packet") << " decoded in "
        << FormatCount(information.decoding.nbPasses, "run") << ", "
        << FormatCount(information.reading.nbFailedReads + information.decoding.nbErrors, "error") << '\n';
}

/// The speed that was held, which says nothing under commands, and the rate of the ticks.
void PrintSpeed(std::ostream& out, const PlayReport& report) {
    const double wall = duration<double>(report.elapsed).count();
    if (report.nbTicks < 2 || wall <= 0) {
        return;
    }
    const std::string rate =
        FormatDecimal(static_cast<double>(report.nbTicks - 1) / wall, 1) + " ticks a second\n";
    if (report.nbCommands > 0) {
        out << "commands   " << report.nbCommands << ", " << rate;
        return;
    }
    out << "speed      " << FormatDecimal(report.heldSpeed, 2) << ", " << rate;
}

/// The play head stands inside of samples; people know pictures by their beginning.
Time::TimePoint BeginOfSample(const Session& session, const Time::TimePoint& head) {
    const Time::TimePoint begin = session.Begin(0);
    return std::max(begin + (head - begin).AlignWith(session.Recording(0).Rate()), Time::TimePoint());
}

std::string DescribeEnd(const PlayReport& report) {
    switch (report.end) {
        case PlayEnd::Reached:
            return "";
        case PlayEnd::Counted:
            return ", as many as asked for";
        case PlayEnd::Stopped:
            return ", then interrupted";
        case PlayEnd::Quit:
            return ", then quit";
    }
    return "";
}

}  // namespace

MissingPictures::MissingPictures(const Session& session) : session_(session), pictures_(session.NbTracks()) {
}

void MissingPictures::Note(const TickReport& tick) {
    for (std::size_t track = 0; track < tick.tracks.size(); ++track) {
        if (tick.tracks[track].missing) {
            // A missing view says that a picture belongs there.
            pictures_[track].insert(session_.PictureAtTime(track, tick.time).value());
        }
    }
}

void PrintSummary(std::ostream& out, const Session& session, const PlayReport& report,
                  const MissingPictures& missing, const SpeedNotice& speed) {
    if (report.nbTicks == 0) {
        out << "played     nothing" << DescribeEnd(report) << '\n';
        return;
    }
    out << "played     " << FormatTime(BeginOfSample(session, report.first)) << " to "
        << FormatTime(BeginOfSample(session, report.last)) << " in " << FormatCount(report.nbTicks, "tick")
        << " of " << FormatRate(session.DisplayRate()) << " a second at speed "
        << FormatSpeed(session.Speed()) << DescribeEnd(report) << '\n';
    PrintSpeed(out, report);
    if (!speed.Summary().empty()) {
        out << "too slow   " << speed.Summary() << '\n';
    }
    out << "start      first picture after " << duration_cast<milliseconds>(report.untilFirst).count()
        << " ms\n";
    if (report.nbSleptThrough > 0) {
        out << "overrun    " << FormatCount(report.nbSleptThrough, "tick")
            << " left out: writing or the machine was too slow\n";
    }
    out << "memory     " << FormatMebibytes(PeakMemory()) << " at most\n";
    for (std::size_t track = 0; track < session.NbTracks(); ++track) {
        PrintTrack(out, session, track, report.tracks[track], missing.Of(track));
    }
}

}  // namespace Tavrin::Playout::Program
