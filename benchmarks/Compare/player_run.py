"""What the runs of all players share: the cases, the log of what came on show, and the result for the driver."""

import argparse
import json
import math
import os
import random
import resource
import threading
import time

import judge

SPEEDS = ["1", "2", "4", "16", "-1", "-2", "-4", "-16"]
CASES = [f"play:{speed}" for speed in SPEEDS] + [
    "open:forward", "open:backward", "open:reverse-start", "step:back", "step:forward", "jump", "turn", "drag",
    "tracks:4-forward", "tracks:4-backward"]

PATIENCE = 3.0  # Seconds after which a picture that was asked for is taken as never coming.
LOADING = 20.0  # Seconds that the first picture of a file may take.
REST = 0.3  # Seconds between a picture that came and the next order.
OPENINGS = 7
NEXT = 3  # Pictures: so near to the one on show a player must go on after a turn.


class ShownLog:
    """Pictures as they come on show, from whatever thread shows them."""

    def __init__(self):
        self._changed = threading.Condition()
        self._shown = []

    def note(self, number):
        """A picture is on show from now on."""
        now = time.monotonic()
        with self._changed:
            if not self._shown or self._shown[-1][1] != number:
                self._shown.append((now, number))
            self._changed.notify_all()

    def snapshot(self):
        with self._changed:
            return list(self._shown)

    def latest(self):
        with self._changed:
            return self._shown[-1][1] if self._shown else None

    def count(self):
        with self._changed:
            return len(self._shown)

    def wait_for(self, number, patience=PATIENCE):
        """Waits until that picture (None: any) is on show; when it came, or None."""
        def there():
            return bool(self._shown) and (number is None or self._shown[-1][1] == number)

        with self._changed:
            return self._shown[-1][0] if self._changed.wait_for(there, patience) else None

    def wait_since(self, count, fits, patience=PATIENCE):
        """Waits until a picture that fits has come after the first `count`, whatever came after it; when, or None."""
        def first():
            return next((when for when, number in self._shown[count:] if fits(number)), None)

        with self._changed:
            return self._changed.wait_for(first, patience)

    def forget(self):
        with self._changed:
            self._shown.clear()


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--clip", required=True)
    parser.add_argument("--case", required=True, choices=CASES)
    parser.add_argument("--rate", type=float, default=25)
    parser.add_argument("--pictures", type=int, default=500)
    parser.add_argument("--seconds", type=float, default=8)
    parser.add_argument("--tries", type=int, default=20)
    parser.add_argument("--tuned", action="store_true")
    return parser.parse_args()


def await_first(log, patience=LOADING):
    first = log.wait_for(None, patience)
    if first is None:
        raise RuntimeError(f"no picture came within {patience:.0f} s")
    return first


def play(player, options, logs, speed):
    """Plays for as long as asked for, at most to the end, from the end that lies behind."""
    player.play(speed, 0 if speed > 0 else options.pictures - 1)
    for log in logs:
        await_first(log)
    seconds = min(options.seconds, (options.pictures - 1) / options.rate / abs(speed))
    time.sleep(seconds + 0.1)
    return judge.judge_tracks([log.snapshot() for log in logs], speed, options.rate, seconds, options.pictures - 1)


def open_again(player, options, log, backward):
    """From the order to open the file until its first picture, or backward its last one, is on show."""
    wanted = options.pictures - 1 if backward else 0
    times = []
    for _ in range(OPENINGS):
        player.close()
        time.sleep(REST)
        log.forget()
        begin = time.monotonic()
        player.play(-1 if backward else 1, wanted)
        came = log.wait_since(0, lambda number: number == wanted, LOADING)
        times.append(None if came is None else came - begin)
    return judge.judge_commands(times)


def other_picture(places, here, pictures):
    """Any but the one on show: asking for that would be over before it began."""
    picture = places.randrange(pictures - 1)
    return picture if here is None or picture < here else picture + 1


def reverse_start(player, options, log):
    """From the order, given at rest, to play backward from another picture, until that is on show."""
    places = random.Random(1)
    player.stand(options.pictures // 2)
    await_first(log)
    times = []
    for _ in range(OPENINGS):
        time.sleep(1)
        # Of the middle half.
        wanted = options.pictures // 4 + places.randrange(max(options.pictures // 2, 1))
        count = log.count()
        begin = time.monotonic()
        player.play_backward_from(wanted)
        came = log.wait_since(count, lambda number: number == wanted)
        times.append(None if came is None else came - begin)
        player.stand_again(options.pictures // 2)
    return judge.judge_commands(times)


def wanted_of(case, here, places, pictures):
    if case == "jump":
        return other_picture(places, here, pictures)
    return here + (1 if case == "step:forward" else -1)


def command(player, options, log, case, rest=REST):
    """Steps, or jumps, from rest; each try is over when the exact picture is on show."""
    places = random.Random(1)
    player.stand(options.pictures // 2)
    await_first(log)
    time.sleep(4 * rest)
    times = []
    for _ in range(options.tries):
        here = log.latest()
        wanted = wanted_of(case, here, places, options.pictures)
        if not 0 <= wanted < options.pictures:
            break
        begin = time.monotonic()
        if case == "jump":
            player.jump(wanted)
        else:
            player.step(wanted, wanted - here)
        came = log.wait_for(wanted)
        times.append(None if came is None else came - begin)
        time.sleep(rest)
    return judge.judge_commands(times)


def turn(player, options, log):
    """Plays to and fro around the middle: from the order to turn until a picture is on show that comes next then."""
    places = random.Random(1)
    speed = 1
    player.play(speed, options.pictures // 2)
    await_first(log)
    time.sleep(1)
    times = []
    for _ in range(options.tries):
        speed = -speed
        here, count = log.latest(), log.count()
        begin = time.monotonic()
        player.turn(speed, here)
        came = log.wait_since(count, lambda number: 0 < (number - here) * speed <= NEXT)
        times.append(None if came is None else came - begin)
        time.sleep((8 + places.randrange(8)) / options.rate)
    return judge.judge_commands(times)


def dragged_to(seconds, pictures):
    """Two swings of different length, together over most of the recording, as `playout bench` makes them."""
    place = 0.5 + 0.3 * math.sin(1.3 * seconds) + 0.15 * math.sin(4.1 * seconds)
    return int(place * (pictures - 1))


def drag(player, options, log):
    """A mouse on the timeline that moves 60 times a second, and stops every two seconds."""
    player.stand(options.pictures // 2)
    await_first(log)
    time.sleep(1)
    begin = time.monotonic()
    times, gaps = [], []
    while time.monotonic() < begin + options.seconds:
        sweep = time.monotonic()
        due, picture = sweep, None
        while due < sweep + min(2, options.seconds):
            picture = dragged_to(due - begin, options.pictures)
            player.drag(picture)
            # A player that takes longer for an order is told of the newest place next, not of all between.
            due = max(due + 1 / 60, time.monotonic())
            time.sleep(max(0, due - time.monotonic()))
        stopped = time.monotonic()
        player.jump(picture)
        came = log.wait_for(picture)
        times.append(None if came is None else max(came - stopped, 0))
        gaps.append(judge.longest_gap(log.snapshot(), sweep, came or time.monotonic()))
    return {**judge.judge_commands(times), "gapMs": 1000 * max(gaps)}


def measure(player, options, logs):
    kind, _, detail = options.case.partition(":")
    log = logs[0]
    if kind == "play":
        return play(player, options, logs, int(detail))
    if kind == "tracks":
        return play(player, options, logs, 1 if detail == "4-forward" else -1)
    if options.case == "open:reverse-start":
        return reverse_start(player, options, log)
    if kind == "open":
        return open_again(player, options, log, detail == "backward")
    if kind == "turn":
        return turn(player, options, log)
    if kind == "drag":
        return drag(player, options, log)
    return command(player, options, log, options.case)


def run(make_player):
    """Runs the case and prints its figures as one JSON object."""
    options = arguments()
    logs = [ShownLog() for _ in range(4 if options.case.startswith("tracks") else 1)]
    try:
        figures = measure(make_player(options, logs), options, logs)
    except Exception as error:  # The driver prints it in the case's place.
        figures = {"error": str(error)}
    figures["peakMiB"] = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    print(json.dumps(figures), flush=True)
    # Players may hang when they are taken down in the middle of something; there is nothing left to be lost.
    os._exit(0)
