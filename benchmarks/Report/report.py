#!/usr/bin/env python3
"""Makes one table of a run of the benchmarks, and says which requirements it misses.

    report.py --times FILE --memory FILE --output DIRECTORY [--compiler TEXT] [--no-verdict]

Reads what the program `benchmarks` has written with --benchmark_out and what `memory-report` has printed.
Prints the table and writes it into the directory as report.json and table.md, with the plot tick.svg (which
gnuplot makes). Ends with 1 when a requirement is missed or a case that has one was not measured.
"""

import argparse
import json
import pathlib
import re
import statistics
import subprocess
import sys
from dataclasses import dataclass
from typing import Callable, Optional

# What must hold. "At least" is of literal / engine: how many times faster the engine is.
AT_LEAST = {
    "Cache: exact lookup, 100 entries": 8,
    "Cache: exact lookup, 1,000 entries": 60,
    "Cache: exact lookup, 10,000 entries": 500,
    "Cache: best match, sample pending, 100 entries": 20,
    "Cache: best match, sample pending, 1,000 entries": 150,
    "Cache: best match, sample pending, 10,000 entries": 1500,
    "Cache: best match, wide hole, 100 entries": 20,
    "Cache: best match, wide hole, 1,000 entries": 150,
    "Cache: best match, wide hole, 10,000 entries": 1500,
    "Planner: update and all proposals, 100 entries held": 10,
    "Planner: update and all proposals, 1,000 entries held": 20,
    "Tick: 1 track, window 100": 6,
    "Tick: 100 tracks, window 100": 8,
    "Tick: 1,000 tracks, window 100": 10,
}

# Every other case that no second thread takes part in: the engine is nowhere slower, but for noise.
AT_LEAST_ELSEWHERE = 0.95

# "At most" is of engine / bare hand-off.
AT_MOST = {
    "Workers: one order through 1 worker": 1.3,
    "Workers: push to an idle worker's call, same core, p50": 1.3,
    "Workers: push to an idle worker's call, same core, p99": 1.3,
    "Workers: push to an idle worker's call, other core, p50": 1.3,
    "Workers: push to an idle worker's call, other core, p99": 1.3,
}

# Two threads that take from one queue contend for it: reported, but nothing is required.
WITHOUT_REQUIREMENT = ("Workers: ",)

# The engine alone: the first case costs at most so many times the second.
AT_MOST_BETWEEN = (
    ("Tick: 1,000 tracks, window 1,000", "Tick: 1,000 tracks, window 100", 1.5),
    ("Registry: push, 1,000 queues", "Registry: push, 10 queues", 1.2),
)

# The engine alone: the case takes less than this, one period of an output at 50 pictures a second.
LESS_THAN = {
    "Tick: 10,000 tracks, window 100": 20e6,
    "Tick: 10,000 tracks, window 1,000": 20e6,
}

# Reported beside: an entry never takes more than this many times what the plain version takes for it.
MEMORY_AT_MOST = 1.5

CASE = re.compile(r"^(?P<case>.*) \[(?P<version>literal|engine|both|machine)\](?P<suffix>/.*)?$")
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


@dataclass
class Row:
    """One line of the table; costs are in nanoseconds, or in bytes where `memory` says so."""

    case: str
    literal: Optional[float] = None
    engine: Optional[float] = None
    ratio: Optional[float] = None
    required: str = ""
    holds: Optional[bool] = None  # None: nothing is required
    memory: bool = False

    def verdict(self) -> str:
        if self.holds is None:
            return ""
        return "ok" if self.holds else "MISSED"


@dataclass
class Report:
    machine: str
    busy: bool
    rows: list
    limits: dict  # what the machine allows at best: name and nanoseconds

    def missed(self) -> list:
        return [row for row in self.rows if row.holds is False]


def costs(run: dict) -> dict:
    """The median cost of each version of each case, over the repetitions."""
    repetitions: dict = {}

    def note(case: str, version: str, cost: float) -> None:
        repetitions.setdefault(case, {}).setdefault(version, []).append(cost)

    # Interleaving has shuffled them: back into the order of the sources.
    for entry in sorted(run["benchmarks"], key=lambda entry: entry["family_index"]):
        if entry.get("run_type") != "iteration":
            continue
        if entry.get("error_occurred"):
            raise ValueError(f"{entry['name']} failed: {entry.get('error_message', '')}")
        match = CASE.match(entry["name"])
        if match is None:
            raise ValueError(f"{entry['name']} is no name of a case")
        case, version = match["case"], match["version"]
        percentiles = {key: entry[key] for key in entry if key.endswith(("p50", "p99"))}
        for key, cost in percentiles.items():
            # Both versions in one: "literal_p50" and so on.
            *prefix, percentile = key.split("_")
            note(f"{case}, {percentile}", *prefix or [version], cost)
        if not percentiles:
            # Where the case has measured nothing itself, the thread's own time: it does not grow while
            # another process has the core.
            own = "manual_time" in (match["suffix"] or "")
            cost = entry["real_time" if own else "cpu_time"] * NANOSECONDS[entry["time_unit"]]
            note(case, version, cost / entry.get("batch", 1))
    return {
        case: {version: statistics.median(list_) for version, list_ in versions.items()}
        for case, versions in repetitions.items()
    }


def compared(case: str, literal: float, engine: float) -> Row:
    """The row of a case of which both versions were measured."""
    if case in AT_MOST:
        ratio = engine / literal
        return Row(case, literal, engine, ratio, f"≤ {AT_MOST[case]:g}", ratio <= AT_MOST[case])
    ratio = literal / engine
    if case not in AT_LEAST and case.startswith(WITHOUT_REQUIREMENT):
        return Row(case, literal, engine, engine / literal)
    least = AT_LEAST.get(case, AT_LEAST_ELSEWHERE)
    return Row(case, literal, engine, ratio, f"≥ {least:,}", ratio >= least)


def between(measured: dict, case: str, reference: str, most: float) -> Row:
    """The row of what one case costs against another, both of the engine."""
    name = f"{case}, against {reference.split(', ')[-1]}, engine alone"
    try:
        ratio = measured[case]["engine"] / measured[reference]["engine"]
    except KeyError:
        return not_measured(name, f"≤ {most:g}")
    return Row(name, None, measured[case]["engine"], ratio, f"≤ {most:g}", ratio <= most)


def less_than(measured: dict, case: str, limit: float) -> Row:
    name = f"{case}, engine alone"
    required = f"< {time_text(limit)}"
    try:
        engine = measured[case]["engine"]
    except KeyError:
        return not_measured(name, required)
    return Row(name, None, engine, None, required, engine < limit)


def not_measured(case: str, required: str) -> Row:
    return Row(f"{case} (not measured)", required=required, holds=False)


def memory_row(entry: dict) -> Row:
    row = Row(entry["case"], entry["literal"], entry["engine"], entry["engine"] / entry["literal"], memory=True)
    if "an entry of a window" in row.case:
        row.required = f"≤ {MEMORY_AT_MOST:g}"
        row.holds = row.ratio <= MEMORY_AT_MOST
    return row


def rows_of(measured: dict, memory: list) -> list:
    rows = []
    for case, versions in measured.items():
        if "machine" in versions:
            continue
        if set(versions) == {"literal", "engine"}:
            rows.append(compared(case, versions["literal"], versions["engine"]))
        else:
            raise ValueError(f"{case}: of its two versions only {' '.join(versions)} was measured")
    rows += [not_measured(case, f"≥ {least:,}") for case, least in AT_LEAST.items() if case not in measured]
    rows += [not_measured(case, f"≤ {most:g}") for case, most in AT_MOST.items() if case not in measured]
    rows += [between(measured, *requirement) for requirement in AT_MOST_BETWEEN]
    rows += [less_than(measured, case, limit) for case, limit in LESS_THAN.items()]
    rows += [memory_row(entry) for entry in memory]
    return rows


def limits_of(measured: dict) -> dict:
    return {
        case.removeprefix("Machine: "): versions["machine"]
        for case, versions in measured.items()
        if "machine" in versions
    }


def processor() -> str:
    try:
        text = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    except OSError:
        text = ""
    found = re.search(r"^model name\s*:\s*(.*)$", text, re.MULTILINE)
    return found[1] if found else "unknown processor"


def report_of(run: dict, memory: list, compiler: str) -> Report:
    context = run["context"]
    cores = context["num_cpus"]
    machine = f"{processor()}, {cores} cores, {compiler}".rstrip(", ")
    load = context.get("load_avg") or [0.0]
    measured = costs(run)
    return Report(machine, load[0] > cores / 2, rows_of(measured, memory), limits_of(measured))


def number_text(number: float) -> str:
    """Three digits that mean something."""
    if number >= 100:
        return f"{number:,.0f}"
    return f"{number:.1f}" if number >= 10 else f"{number:.2f}"


def time_text(nanoseconds: float) -> str:
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{number_text(nanoseconds / size)} {unit}"
    return f"{number_text(nanoseconds)} ns"


def cells(row: Row) -> list:
    def cost(value: Optional[float]) -> str:
        if value is None:
            return ""
        return f"{number_text(value)} B" if row.memory else time_text(value)

    ratio = "" if row.ratio is None else number_text(row.ratio)
    return [row.case, cost(row.literal), cost(row.engine), ratio, row.required, row.verdict()]


HEAD = ["case", "literal", "engine", "ratio", "required", ""]
LIMITS_HEAD = ["the machine's own limits", "cost"]
NOTE = (
    "Medians. The ratio is literal / engine where at least something is required, and the engine's cost over "
    "the other one where at most something is. The literal version of the workers is a bare hand-off with a "
    "mutex and a condition variable."
)


def table(head: list, lines: list) -> str:
    """For people: the first column to the left, the others to the right."""
    widths = [max(len(line[column]) for line in [head, *lines]) for column in range(len(head))]
    return "\n".join(
        "  ".join(
            [line[0].ljust(widths[0]), *(cell.rjust(width) for cell, width in zip(line[1:], widths[1:]))]
        ).rstrip()
        for line in [head, *lines]
    )


def markdown(head: list, lines: list) -> str:
    rule = ["---", *("---:" for _ in head[1:])]
    return "\n".join("| " + " | ".join(line) + " |" for line in [head, rule, *lines])


def text_of(report: Report, draw: Callable) -> str:
    """Both tables, as `draw` draws one, and what they need said."""
    limits = [[name, time_text(cost)] for name, cost in report.limits.items()]
    parts = [f"Measured on: {report.machine}.", draw(HEAD, [cells(row) for row in report.rows]), NOTE]
    if limits:
        parts += [draw(LIMITS_HEAD, limits)]
    return "\n\n".join(parts) + "\n"


def json_report(report: Report, verdict: bool) -> dict:
    return {
        "machine": report.machine,
        "machine_was_busy": report.busy,
        "unit": "nanoseconds; bytes for the cases that begin with Memory",
        "rows": [
            {
                "case": row.case,
                "literal": row.literal,
                "engine": row.engine,
                "ratio": row.ratio,
                "required": row.required,
                "verdict": row.verdict() if verdict else "",
            }
            for row in report.rows
        ],
        "limits": report.limits,
    }


TICK = re.compile(r"^Tick: (?P<tracks>[\d,]+) tracks?, window (?P<window>[\d,]+)$")


def ticks(report: Report) -> list:
    """(tracks, window, literal, engine) of every tick that was measured, in milliseconds."""
    found = []
    for row in report.rows:
        match = TICK.match(row.case)
        if match:
            tracks, window = (int(match[name].replace(",", "")) for name in ("tracks", "window"))
            found.append((tracks, window, row.literal / 1e6, row.engine / 1e6))
    return sorted(found)


def block(points: list, choose: Callable) -> str:
    return "\n".join(" ".join(f"{value:g}" for value in choose(*point)) for point in points) + "\ne\n"


def plot_script(points: list, svg: pathlib.Path) -> str:
    """What gnuplot is told: cost against tracks at the left, against the window's length at the right."""
    lines = [
        "set terminal svg size 1100,520 font 'sans-serif,13' background '#ffffff'",
        f"set output '{svg}'",
        "set multiplot layout 1,2",
        "set logscale xy",
        "set grid",
        "set key below maxrows 3 samplen 2",
        "set format y '%g ms'",
        "set title 'Cost of a tick against the number of tracks'",
        "set xlabel 'tracks'",
        "set xrange [0.7:15000]",
    ]
    by_tracks, data = ["20 title '20 ms, a period of the output' with lines dt 2 lc rgb '#808080'"], ""
    for window, colour in ((100, "#1f77b4"), (1000, "#d62728")):
        chosen = [point for point in points if point[1] == window]
        for version, column, dash in (("literal", 2, 3), ("engine", 3, 1)):
            by_tracks.append(
                f"'-' title '{version}, window {window:,}' with linespoints lc rgb '{colour}' dt {dash} pt 7 ps 0.5"
            )
            data += block(chosen, lambda *p, column=column: (p[0], p[column]))
    lines += ["plot " + ", ".join(by_tracks), data.rstrip()]
    chosen = [point for point in points if point[0] == 100]
    by_window, data = [], ""
    for version, column, dash in (("literal", 2, 3), ("engine", 3, 1)):
        by_window.append(f"'-' title '{version}' with linespoints lc rgb '#1f77b4' dt {dash} pt 7 ps 0.5")
        data += block(chosen, lambda *p, column=column: (p[1], p[column]))
    lines += [
        "set title 'Cost of a tick of 100 tracks against the length of the window'",
        "set xlabel 'entries of each window'",
        "set xrange [7:15000]",
        "plot " + ", ".join(by_window),
        data.rstrip(),
        "unset multiplot",
    ]
    return "\n".join(lines) + "\n"


def write_all(report: Report, directory: pathlib.Path, verdict: bool) -> None:
    directory.mkdir(parents=True, exist_ok=True)
    text = json.dumps(json_report(report, verdict), indent=2, ensure_ascii=False) + "\n"
    (directory / "report.json").write_text(text, encoding="utf-8")
    (directory / "table.md").write_text(text_of(report, markdown), encoding="utf-8")
    points = ticks(report)
    if points:
        script = plot_script(points, directory / "tick.svg")
        (directory / "tick.gnuplot").write_text(script, encoding="utf-8")
        subprocess.run(["gnuplot", str(directory / "tick.gnuplot")], check=True)


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--times", type=pathlib.Path, required=True)
    parser.add_argument("--memory", type=pathlib.Path, required=True)
    parser.add_argument("--output", type=pathlib.Path, required=True)
    parser.add_argument("--compiler", default="")
    parser.add_argument("--no-verdict", action="store_true", help="for a run too short to judge by")
    return parser.parse_args()


def main() -> int:
    options = arguments()
    run = json.loads(options.times.read_text(encoding="utf-8"))
    memory = json.loads(options.memory.read_text(encoding="utf-8"))
    report = report_of(run, memory, options.compiler)
    if options.no_verdict:
        for row in report.rows:
            row.holds = None
    write_all(report, options.output, not options.no_verdict)
    print(text_of(report, table))
    if report.busy:
        print("The machine was busy when the run began: do not trust these figures.")
    if options.no_verdict:
        print("A short run: no verdict.")
        return 0
    missed = report.missed()
    print(f"{len(missed)} requirements missed" if missed else "Every requirement holds")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
