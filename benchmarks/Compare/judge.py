"""Judges what a player showed, by the numbers read from its pictures and the times at which they came on show."""

PHASES = 8
NEAR = 16  # Pictures.


def ticks_of(shown, begin, period, seconds):
    """What was on show in the middle of each tick of an output that begins at a time: numbers.

    `shown` is a list of (time, number), ascending.
    """
    ticks = []
    at = 0
    for tick in range(int(seconds / period + 1e-9)):
        middle = begin + (tick + 0.5) * period
        while at + 1 < len(shown) and shown[at + 1][0] <= middle:
            at += 1
        ticks.append(shown[at][1])
    return ticks


def belongs(number, due, speed):
    """Whether a picture is less than a tick away from the one that is due: at speeds up to 1, that one itself.

    Faster than the display, several pictures pass in a tick, and players differ in which of them they show.
    """
    return abs(number - due) < max(abs(speed), 1)


def right_ticks(ticks, speed):
    """For each tick whether it shows what belongs there, going on from the tick before: wherever the player has
    come to.

    A tick at which it stands though it should not is wrong, and so is one that leaves pictures out or goes
    the wrong way. The next one is judged from there.
    """
    right = []
    origin = ticks[0]
    for tick, number in enumerate(ticks):
        right.append(belongs(number, origin + tick * speed, speed))
        if not right[-1]:
            origin = number - tick * speed
    return right


def right_by_clock(ticks, speed):
    """For each tick whether it shows what belongs there by the clock, which starts with the first picture."""
    return [belongs(number, ticks[0] + tick * speed, speed) for tick, number in enumerate(ticks)]


def near_by_clock(ticks, speed):
    """For each tick whether it shows a picture within 16 of the one that the clock says."""
    return [abs(number - ticks[0] - tick * speed) <= NEAR for tick, number in enumerate(ticks)]


def nb_all(of_tracks):
    """How many ticks are so on every track."""
    return sum(all(tick) for tick in zip(*of_tracks))


def longest_gap(shown, begin, end):
    """The longest time without a new picture between two moments, in seconds."""
    moments = [begin] + [when for when, _ in shown if begin < when < end] + [end]
    return max(after - before for before, after in zip(moments, moments[1:]))


def judge_tracks(tracks, speed, rate, seconds, last_picture):
    """What a run at a speed came to: a tick counts once, and is right when it is right on every track.

    A player that knows nothing of our ticks may begin anywhere in one: the first tick is tried at eight places
    within the first period, and the best one counts for each figure.
    """
    if not all(tracks):
        return {"error": "no picture was shown"}
    period = 1 / rate
    # Each track from its own first picture on, all from the moment at which the last one has begun.
    begin = max(shown[0][0] for shown in tracks)
    way = min(last_picture - shown[0][1] if speed > 0 else shown[0][1] for shown in tracks)
    seconds = min(seconds, (way + 1) * period / abs(speed)) - period
    right = by_clock = near = together = nb = 0
    for phase in range(PHASES):
        ticks = [ticks_of(shown, begin + phase * period / PHASES, period, seconds) for shown in tracks]
        if ticks[0]:
            nb = len(ticks[0])
            right = max(right, nb_all([right_ticks(track, speed) for track in ticks]))
            by_clock = max(by_clock, nb_all([right_by_clock(track, speed) for track in ticks]))
            near = max(near, nb_all([near_by_clock(track, speed) for track in ticks]))
            together = max(together, sum(len(set(tick)) == 1 for tick in zip(*ticks)))
    if nb == 0:
        return {"error": "what was shown is shorter than two ticks"}
    # What follows the last tick judged is no gap but the end.
    return {
        "rightPercent": 100 * right / nb,
        "rightByClockPercent": 100 * by_clock / nb,
        "nearPercent": 100 * near / nb,
        "togetherPercent": 100 * together / nb,
        "gapMs": 1000 * max(longest_gap(shown, begin, begin + seconds) for shown in tracks),
        "newPerSecond": sum(begin < when <= begin + seconds for shown in tracks for when, _ in shown) / seconds,
        "ticks": nb,
    }


def judge_play(shown, speed, rate, seconds, last_picture):
    return judge_tracks([shown], speed, rate, seconds, last_picture)


def percentile(values, percent):
    """Of nearest rank; None without values."""
    if not values:
        return None
    ordered = sorted(values)
    return ordered[max(0, -(-len(ordered) * percent // 100) - 1)]


def judge_commands(tries):
    """For each try the time until the picture asked for was on show, in seconds; None where it never came."""
    if not tries:
        return {"error": "nothing could be tried"}
    times = [time for time in tries if time is not None]
    return {
        "tries": len(tries),
        "p50Ms": None if not times else 1000 * percentile(times, 50),
        "p95Ms": None if not times else 1000 * percentile(times, 95),
        "wrong": len(tries) - len(times),
    }
