#!/usr/bin/env python3
"""Runs a clip through playout and the other players that are there, and prints one table (scripts/compare)."""

import argparse
import json
import pathlib
import subprocess
import sys

sys.dont_write_bytecode = True

HERE = pathlib.Path(__file__).resolve().parent

SPEEDS = ["1", "2", "4", "-1", "-2", "-4", "16"]
PLAYS = [f"play:{speed}" for speed in SPEEDS]
COMMANDS = ["step:back", "jump"]

PLAYERS = [
    ("mpv", "play_mpv.py", []),
    ("mpv, tuned", "play_mpv.py", ["--tuned"]),
    ("GStreamer", "play_gstreamer.py", []),
    ("GStreamer, tuned", "play_gstreamer.py", ["--tuned"]),
]

PLAY_ROWS = [("right %", "rightPercent", 1), ("by the clock %", "rightByClockPercent", 1),
             ("longest without a new picture, ms", "gapMs", 0), ("first picture, ms", "firstMs", 0),
             ("memory, MiB", "peakMiB", 0)]
COMMAND_ROWS = [("p50, ms", "p50Ms", 0), ("p95, ms", "p95Ms", 0), ("never came", "wrong", 0),
                ("memory, MiB", "peakMiB", 0)]


def figures_of_bench(text):
    """The figures of `playout bench --json`, by case."""
    return {result["case"]: result.get("figures", {"error": result.get("error", "failed")})
            for result in json.loads(text)["results"]}


def run_playout(program, clip, seconds, tries):
    command = [program, "bench", clip, "--json", "--cases", ",".join(PLAYS + COMMANDS), "--seconds", str(seconds),
               "--tries", str(tries)]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    if not done.stdout:
        raise SystemExit(f"{' '.join(command)}: {done.stderr.strip()}")
    return figures_of_bench(done.stdout)


def run_player(script, case, clip, options, python):
    """One case in a process of its own."""
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


def rows_of(case):
    if case in COMMANDS:
        return COMMAND_ROWS
    # So fast that hardly any picture is the very one.
    near = [("within 16 pictures, %", "nearPercent", 1)] if case == "play:16" else []
    return PLAY_ROWS[:2] + near + PLAY_ROWS[2:]


def table(results):
    """Markdown: a row for each figure of each case, a column for each player."""
    players = list(results)
    lines = ["| case | | " + " | ".join(players) + " |", "| --- | --- |" + " ---: |" * len(players)]
    for case in PLAYS + COMMANDS:
        if not any(case in results[player] for player in players):
            continue
        name = case.split(":")[1] if case in PLAYS else {"step:back": "step back", "jump": "random jump"}[case]
        for title, figure, decimals in rows_of(case):
            values = [cell(results[player].get(case), figure, decimals) for player in players]
            lines.append(f"| {name} | {title} | " + " | ".join(values) + " |" if name
                         else f"| | {title} | " + " | ".join(values) + " |")
            name = ""
    return "\n".join(lines)


def clip_of(path):
    """The clip's rate and number of pictures, as the ffprobe program counts its packets."""
    text = subprocess.run(
        ["ffprobe", "-v", "error", "-select_streams", "v:0", "-count_packets", "-show_entries",
         "stream=r_frame_rate,nb_read_packets", "-of", "json", path],
        stdout=subprocess.PIPE, text=True, check=True).stdout
    stream = json.loads(text)["streams"][0]
    over, under = stream["r_frame_rate"].split("/")
    return int(over) / int(under), int(stream["nb_read_packets"])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--playout", required=True)
    parser.add_argument("--clip", required=True)
    parser.add_argument("--seconds", type=float, default=8)
    parser.add_argument("--tries", type=int, default=20)
    parser.add_argument("--python", default="python3", help="the interpreter that has the players' bindings")
    parser.add_argument("--without", action="append", default=[], help="mpv or GStreamer: is not there")
    parser.add_argument("--output", required=True, help="takes the figures as JSON")
    options = parser.parse_args()
    rate, pictures = clip_of(options.clip)
    shared = ["--rate", str(rate), "--pictures", str(pictures), "--seconds", str(options.seconds), "--tries",
              str(options.tries)]
    print("playout", file=sys.stderr, flush=True)
    results = {"playout": run_playout(options.playout, options.clip, options.seconds, options.tries)}
    for player, script, own in PLAYERS:
        if player.split(",")[0] in options.without:
            continue
        results[player] = {}
        for case in PLAYS + COMMANDS:
            print(f"{player}: {case}", file=sys.stderr, flush=True)
            results[player][case] = run_player(script, case, options.clip, shared + own, options.python)
    pathlib.Path(options.output).write_text(json.dumps(results, indent=2) + "\n")
    for player, cases in results.items():
        for case, figures in cases.items():
            if "error" in figures:
                print(f"{player}: {case}: {figures['error']}", file=sys.stderr)
    print(table(results))


if __name__ == "__main__":
    main()
