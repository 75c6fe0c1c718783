#include "apps/playout/PlaySummary.h"

#include <ostream>
#include <string>

#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

using std::chrono::duration;
using std::chrono::duration_cast;
using std::chrono::milliseconds;

namespace {

void PrintTrack(std::ostream& out, const Session& session, std::size_t track, const TrackReport& report,
                const std::set<std::size_t>& missing) {
    const TrackInformation information = session.GetInformation(track);
    out << "file       " << session.Recording(track).File() << '\n'
        << "pictures   " << report.nbNew << " shown, " << report.nbRepeated << " repeated, " << report.nbLate
        << " late, " << report.nbMissing << " missing";
    if (report.nbEmpty > 0) {
        out << ", " << report.nbEmpty << " ticks outside of the recording";
    }
    out << '\n';
    if (!missing.empty()) {
        out << "missing    " << FormatCount(missing.size(), "picture") << ": " << FormatRanges(missing)
            << '\n';
    }
    out << "work       " << FormatCount(information.reading.nbReads, "read") << ", "
        << FormatCount(information.decoding.nbPacketsDecoded, "packet") << " decoded in "
        << FormatCount(information.decoding.nbPasses, "run") << ", "
        << FormatCount(information.reading.nbFailedReads + information.decoding.nbErrors, "error") << '\n';
}

/// Recording time that passed for the wall time that it took, which says nothing under commands, and the rate
/// of the ticks.
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
    const double played =
        duration<double>(std::chrono::nanoseconds((report.last - report.first).Nanoseconds())).count();
    out << "speed      " << FormatDecimal(played / wall, 2) << ", " << rate;
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
            pictures_[track].insert(session_.Recording(track).PictureAtTime(tick.time).value());
        }
    }
}

void PrintSummary(std::ostream& out, const Session& session, const PlayReport& report,
                  const MissingPictures& missing) {
    if (report.nbTicks == 0) {
        out << "played     nothing" << DescribeEnd(report) << '\n';
        return;
    }
    // The play head stands inside of samples; people know pictures by their beginning.
    const Player::SampleRate& rate = session.Recording(0).Rate();
    out << "played     " << FormatTime(report.first.AlignWith(rate)) << " to "
        << FormatTime(report.last.AlignWith(rate)) << " in " << FormatCount(report.nbTicks, "tick") << " of "
        << FormatRate(session.DisplayRate()) << " a second at speed " << FormatSpeed(session.Speed())
        << DescribeEnd(report) << '\n';
    PrintSpeed(out, report);
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
