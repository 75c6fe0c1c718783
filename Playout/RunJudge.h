#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Player/SampleRate.h"
#include "Playout/IPictureSink.h"
#include "Playout/NumberedRecording.h"
#include "Playout/PlayoutExport.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// What the ticks of a run in real time came to. A tick counts once, for all tracks together.
struct RunFigures {
    std::uint64_t nbTicks = 0;
    std::uint64_t nbRight = 0;         ///< See RunJudge.
    std::uint64_t nbRightByClock = 0;  ///< See RunJudge.
    std::uint64_t nbTogether = 0;      ///< See RunJudge.
    std::uint64_t nbNear = 0;          ///< Each track within kNearPictures of the one due by the clock.
    std::uint64_t nbNew = 0;           ///< Pictures other than that at the tick before, of all tracks.
    std::uint64_t nbUnread = 0;        ///< Pictures whose bar code could not be read, of all tracks.
    std::int64_t nbBehind = 0;         ///< Ticks by which the play head was behind the clock, at most.

    /// The longest time that a track's picture stood, less the time that belongs to it after its first tick:
    /// one tick when everything is right, whatever the speed.
    std::chrono::nanoseconds longestStand{0};
    std::chrono::nanoseconds longestGap{0};  ///< The longest time without a new picture on some track.
    std::chrono::nanoseconds elapsed{0};     ///< From the first tick to the last one, of all passes.
    Time::TimePoint played;                  ///< The way of the play head in that time, without its sign.
};

/// Judges what is shown at each tick of an output by the pictures themselves.
///
/// - A track is *right* when it shows the picture that belongs to the play head (at speeds at which the
///   display cannot show every picture, that or the last one fetched at or before it), unless play head and
///   picture are those of the tick before: it was then held.
/// - It is right *by the clock* when it shows the picture that belongs where the play head would be, had it
///   moved since the first tick without ever waiting.
///
/// Tracks are *together* when what they show belongs to one time, that of the play head or, while it waits, the
/// one at which they were together last.
///
/// After a wait, play head and clock stay apart: the first says what the tracks show beside one another, the
/// second what somebody with a watch sees.
///
/// *Threads:* externally synchronised. *Blocking:* never. *Ownership:* keeps the recordings' indexes alive.
/// *Errors:* the constructor throws std::invalid_argument when the display's rate is zero, or when there are
/// offsets for more or fewer recordings than there are.
class TAVRIN_PLAYOUT_EXPORT RunJudge final {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::int64_t kNearPictures = 16;

    /// Where the recordings begin on the play head's timeline; none given: all at the origin.
    RunJudge(std::vector<NumberedRecording> recordings, const Player::SampleRate& display,
             const Time::Ratio& speed, const std::vector<Time::TimePoint>& offsets = {});

    /// The next tick is the first one of another run, with a speed of its own.
    void Begin(const Time::Ratio& speed);

    /// One tick, in the order of time: the play head, the pictures of all tracks (null: nothing on show), and
    /// when they came on show. Whether all tracks were right.
    bool Note(const Time::TimePoint& head, const std::vector<std::shared_ptr<const Picture>>& pictures,
              Clock::time_point now);

    [[nodiscard]] RunFigures Figures() const;

private:
    struct Track {
        NumberedRecording recording;
        Time::TimePoint offset;
        Player::SampleRate fetched;
        std::shared_ptr<const Picture> shown;
        std::optional<std::uint64_t> number;  ///< That it was read to have.
        Clock::time_point since;
        std::uint64_t nbOwnTicks = 0;  ///< For which the picture on show was the right one.
    };

    [[nodiscard]] bool IsFirst() const { return !first_.has_value(); }
    [[nodiscard]] Time::TimePoint DueHead(Clock::time_point now) const;
    [[nodiscard]] static bool Belongs(const Track& track, const Time::TimePoint& head);
    [[nodiscard]] static bool IsNear(const Track& track, const Time::TimePoint& head);
    [[nodiscard]] bool AllBelong(const Time::TimePoint& head) const;
    [[nodiscard]] bool IsTogether(const Time::TimePoint& head);
    void NoteStand(const Track& track, Clock::time_point until);
    void NoteProgress(const Time::TimePoint& head, const Time::TimePoint& due, Clock::time_point now);
    bool NoteTrack(Track& track, const std::shared_ptr<const Picture>& picture, const Time::TimePoint& head,
                   Clock::time_point now);

    struct First {
        Time::TimePoint head;
        Clock::time_point when;
    };

    std::vector<Track> tracks_;
    Player::SampleRate display_;
    Time::Ratio speed_;
    std::chrono::nanoseconds period_;
    std::optional<First> first_;
    Time::TimePoint head_;  ///< At the tick before.
    std::optional<Time::TimePoint> together_;
    Clock::time_point last_;
    RunFigures figures_;
};

}  // namespace Tavrin::Playout
