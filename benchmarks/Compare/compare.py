#!/usr/bin/env python3
"""Runs a clip through playout and the other players that are there, and prints one table (scripts/compare)."""

import argparse
import json
import pathlib
import subprocess
import sys

sys.dont_write_bytecode = True

HERE = pathlib.Path(__file__).resolve().parent

SPEEDS = ["1", "-1", "2", "-2", "4", "-4", "16", "-16"]
PLAYS = [f"play:{speed}" for speed in SPEEDS]
TRACKS = {"tracks:4-forward": "4 tracks", "tracks:4-backward": "4 tracks backward"}
COMMANDS = {"open:forward": "opening", "open:backward": "opening backward",
            "open:reverse-start": "start in reverse", "step:back": "step back", "step:forward": "step forward",
            "jump": "random jump", "turn": "change of direction", "drag": "dragging"}
ALL = PLAYS + list(TRACKS) + list(COMMANDS)
TO_AND_FRO = ["play:1", "play:-1"]  # Of every clip but the first.

WARM_BYTES = 1280 << 20

PLAYERS = [
    ("mpv", "play_mpv.py", []),
    ("mpv, tuned", "play_mpv.py", ["--tuned"]),
    ("GStreamer", "play_gstreamer.py", []),
    ("GStreamer, tuned", "play_gstreamer.py", ["--tuned"]),
]

# What is shown of each case: the title, the figure's name, its decimals.
PLAY_COLUMNS = [("right %", "rightPercent", 1), ("by the clock %", "rightByClockPercent", 1),
                ("longest without a new picture, ms", "gapMs", 0), ("memory, MiB", "peakMiB", 0)]
FAST_COLUMNS = [("within 16 pictures, %", "nearPercent", 1), ("new pictures a second", "newPerSecond", 1)]
TRACKS_COLUMNS = [("right on all, %", "rightPercent", 1), ("together, %", "togetherPercent", 1),
                  ("longest without a new picture, ms", "gapMs", 0), ("memory, MiB", "peakMiB", 0)]
COMMAND_COLUMNS = [("p50, ms", "p50Ms", 0), ("p95, ms", "p95Ms", 0), ("never came", "wrong", 0)]
DRAG_COLUMNS = [("longest without a new picture, ms", "gapMs", 0), ("exact picture after the stop, p50, ms", "p50Ms", 0),
                ("p95, ms", "p95Ms", 0), ("never came", "wrong", 0)]


def figures_of_bench(text):
    """The figures of `playout bench --json`, by case."""
    return {result["case"]: result.get("figures", {"error": result.get("error", "failed")})
            for result in json.loads(text)["results"]}


def run_playout(program, clip, cases, seconds, tries):
    command = [program, "bench", clip, "--json", "--cases", ",".join(cases), "--seconds", str(seconds),
               "--tries", str(tries)]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    if not done.stdout:
        raise SystemExit(f"{' '.join(command)}: {done.stderr.strip()}")
    return figures_of_bench(done.stdout)


def warm_memory():
    """As `playout bench` does before each of its cases: a virtual machine may get its memory from its host only when it is
    touched, and the first to do so would wait for that. Where there is not so much memory, nothing is touched."""
    subprocess.run([sys.executable, "-c", f"b'\\1' * {WARM_BYTES}"], stderr=subprocess.DEVNULL, check=False)


def run_player(script, case, clip, options, python):
    """One case in a process of its own."""
    warm_memory()
    command = [python, "-B", str(HERE / script), "--clip", clip, "--case", case, *options]
    try:
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=180,
                              check=False)
        return json.loads(done.stdout.strip().splitlines()[-1])
    except subprocess.TimeoutExpired:
        return {"error": "did not end within 180 s"}
    except (IndexError, ValueError):
        return {"error": (done.stderr.strip().splitlines() or ["ended without a word"])[-1]}


def cell(figures, name, decimals):
    if figures is None:
        return ""
    if "error" in figures:
        return "failed"
    value = figures.get(name)
    return "–" if value is None else f"{value:.{decimals}f}"


def columns_of(case):
    if case in ("play:16", "play:-16"):
        # So fast that hardly any picture is the very one.
        return PLAY_COLUMNS[:2] + FAST_COLUMNS + PLAY_COLUMNS[2:]
    if case in TRACKS:
        return TRACKS_COLUMNS
    if case == "drag":
        return DRAG_COLUMNS
    return COMMAND_COLUMNS if case in COMMANDS else PLAY_COLUMNS


def name_of(case):
    return TRACKS.get(case) or COMMANDS.get(case) or "speed " + case.split(":")[1]


def table(results, cases):
    """Markdown: a row for each figure of each case, a column for each player."""
    players = list(results)
    lines = ["| case | | " + " | ".join(players) + " |", "| --- | --- |" + " ---: |" * len(players)]
    for case in cases:
        if not any(case in results[player] for player in players):
            continue
        name = name_of(case)
        for title, figure, decimals in columns_of(case):
            values = [cell(results[player].get(case), figure, decimals) for player in players]
            lines.append(" | ".join([f"| {name}" if name else "|", title, *values]).replace("|  |", "| |") + " |")
            name = ""
    return "\n".join(lines)


def reasons(results):
    """Why cells hold no figures."""
    return [f"- {player}, {name_of(case)}: {figures['error']}"
            for player, cases in results.items() for case, figures in cases.items() if "error" in figures]


def page(results):
    """All clips' tables, each followed by what it has no figures of."""
    parts = []
    for clip, players in results.items():
        parts.append(f"## {clip}")
        parts += [table(players, cases) for cases in (PLAYS + list(TRACKS), list(COMMANDS))
                  if any(case in cases for of_player in players.values() for case in of_player)]
        if reasons(players):
            parts.append("\n".join(reasons(players)))
    return "\n\n".join(parts)


def clip_of(path):
    """The clip's rate and number of pictures, as the ffprobe program counts its packets."""
    text = subprocess.run(
        ["ffprobe", "-v", "error", "-select_streams", "v:0", "-count_packets", "-show_entries",
         "stream=r_frame_rate,nb_read_packets", "-of", "json", path],
        stdout=subprocess.PIPE, text=True, check=True).stdout
    stream = json.loads(text)["streams"][0]
    over, under = stream["r_frame_rate"].split("/")
    return int(over) / int(under), int(stream["nb_read_packets"])


def measure(options, clip, cases):
    """One clip through all players: figures by player and case."""
    rate, pictures = clip_of(clip)
    shared = ["--rate", str(rate), "--pictures", str(pictures), "--seconds", str(options.seconds), "--tries",
              str(options.tries)]
    progress(f"{clip}: playout: {', '.join(cases)}")
    results = {"playout": run_playout(options.playout, clip, cases, options.seconds, options.tries)}
    for player, script, own in PLAYERS:
        if player.split(",")[0] in options.without:
            continue
        results[player] = {}
        for case in cases:
            progress(f"{clip}: {player}: {case}")
            results[player][case] = run_player(script, case, clip, shared + own, options.python)
    return results


def progress(text):
    print(text, file=sys.stderr, flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--playout", required=True)
    parser.add_argument("--clip", required=True, action="append",
                        help="the first one is played in every case, the others at 1 and -1")
    parser.add_argument("--seconds", type=float, default=4)
    parser.add_argument("--tries", type=int, default=10)
    parser.add_argument("--python", default="python3", help="the interpreter that has the players' bindings")
    parser.add_argument("--without", action="append", default=[], help="mpv or GStreamer: is not there")
    parser.add_argument("--output", required=True, help="takes the figures as JSON")
    options = parser.parse_args()
    results = {}
    for clip in options.clip:
        cases = ALL if clip == options.clip[0] else TO_AND_FRO
        results[pathlib.Path(clip).name] = measure(options, clip, cases)
        pathlib.Path(options.output).write_text(json.dumps(results, indent=2) + "\n")
    print(page(results))


if __name__ == "__main__":
    main()
