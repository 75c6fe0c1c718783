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
    """How many ticks show what belongs there, going on from the tick before: wherever the player has come to.

    A tick at which it stands though it should not is wrong, and so is one that leaves pictures out or goes
    the wrong way. The next one is judged from there.
    """
    right = 0
    origin = ticks[0]
    for tick, number in enumerate(ticks):
        if belongs(number, origin + tick * speed, speed):
            right += 1
        else:
            origin = number - tick * speed
    return right


def right_by_clock(ticks, speed):
    """How many ticks show what belongs there by the clock, which starts with the first picture."""
    return sum(belongs(number, ticks[0] + tick * speed, speed) for tick, number in enumerate(ticks))


def near_by_clock(ticks, speed):
    """How many ticks show a picture within 16 of the one that the clock says."""
    return sum(abs(number - ticks[0] - tick * speed) <= NEAR for tick, number in enumerate(ticks))


def judge_play(shown, speed, rate, seconds, last_picture):
    """What a run at a speed came to.

    A player that knows nothing of our ticks may begin anywhere in one: the first tick is tried at eight places
    within the first period, and the best one counts for each figure.
    """
    if not shown:
        return {"error": "no picture was shown"}
    period = 1 / rate
    way = last_picture - shown[0][1] if speed > 0 else shown[0][1]
    seconds = min(seconds, (way + 1) * period / abs(speed)) - period
    right = by_clock = near = nb = 0
    for phase in range(PHASES):
        ticks = ticks_of(shown, shown[0][0] + phase * period / PHASES, period, seconds)
        if ticks:
            nb = len(ticks)
            right = max(right, right_ticks(ticks, speed))
            by_clock = max(by_clock, right_by_clock(ticks, speed))
            near = max(near, near_by_clock(ticks, speed))
    if nb == 0:
        return {"error": "what was shown is shorter than two ticks"}
    # What follows the last tick judged is no gap but the end.
    seen = [entry for entry in shown if entry[0] <= shown[0][0] + seconds + period]
    gaps = [after[0] - before[0] for before, after in zip(seen, seen[1:])]
    return {
        "rightPercent": 100 * right / nb,
        "rightByClockPercent": 100 * by_clock / nb,
        "nearPercent": 100 * near / nb,
        "gapMs": 1000 * max(gaps, default=seconds),
        "newPerSecond": len(gaps) / seconds,
        "ticks": nb,
    }


def percentile(values, percent):
    """Of nearest rank; None without values."""
    if not values:
        return None
    ordered = sorted(values)
    return ordered[max(0, -(-len(ordered) * percent // 100) - 1)]


def judge_commands(times, tries):
    """Times until the picture asked for was on show, in seconds; those that never came are left out of `times`."""
    return {
        "p50Ms": None if not times else 1000 * percentile(times, 50),
        "p95Ms": None if not times else 1000 * percentile(times, 95),
        "wrong": tries - len(times),
    }
