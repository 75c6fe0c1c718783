"""What the runs of all players share: the cases, the log of what came on show, and the result for the driver."""

import argparse
import json
import os
import random
import resource
import threading
import time

import judge

SPEEDS = ["1", "2", "4", "16", "-1", "-2", "-4"]
CASES = [f"play:{speed}" for speed in SPEEDS] + ["step:back", "jump"]

PATIENCE = 3.0  # Seconds after which a picture that was asked for is taken as never coming.


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

    def wait_for(self, number, patience=PATIENCE):
        """Waits until that picture (None: any) is on show; when it came, or None."""
        def there():
            return bool(self._shown) and (number is None or self._shown[-1][1] == number)

        with self._changed:
            return self._shown[-1][0] if self._changed.wait_for(there, patience) else None

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


def play(player, options, speed, log):
    """Plays for as long as asked for, at most to the end, from the end that lies behind."""
    begin = time.monotonic()
    player.play(speed, options)
    first = log.wait_for(None, 20)
    if first is None:
        return {"error": "no picture came within 20 s"}
    seconds = min(options.seconds, (options.pictures - 1) / options.rate / abs(speed))
    time.sleep(seconds + 0.1)
    figures = judge.judge_play(log.snapshot(), speed, options.rate, seconds, options.pictures - 1)
    return {"firstMs": 1000 * (first - begin), **figures}


def command(player, options, log, is_step):
    """Steps back, or jumps, from rest; each try is over when the exact picture is on show."""
    places = random.Random(1)
    player.stand(options.pictures // 2, options)
    if log.wait_for(None, 20) is None:
        return {"error": "no picture came within 20 s"}
    time.sleep(1)
    times = []
    for _ in range(options.tries):
        here = log.latest()
        wanted = here - 1 if is_step and here else places.randrange(options.pictures)
        if wanted == here:
            continue
        begin = time.monotonic()
        if is_step:
            player.step_back(wanted)
        else:
            player.jump(wanted)
        came = log.wait_for(wanted)
        if came is not None:
            times.append(came - begin)
        time.sleep(0.3)
    return judge.judge_commands(times, options.tries)


def run(make_player):
    """Runs the case and prints its figures as one JSON object."""
    options = arguments()
    log = ShownLog()
    try:
        player = make_player(options, log)
        if options.case.startswith("play:"):
            figures = play(player, options, int(options.case.split(":")[1]), log)
        else:
            figures = command(player, options, log, options.case == "step:back")
    except Exception as error:  # The driver prints it in the case's place.
        figures = {"error": str(error)}
    figures["peakMiB"] = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    print(json.dumps(figures), flush=True)
    # Players may hang when they are taken down in the middle of something; there is nothing left to be lost.
    os._exit(0)
