#!/usr/bin/env python3
"""Prints what the tests cover of each library, and the lines that they do not reach with the reason for each.

Reads the JSON of gcovr and a list of reasons, one in a line: FILE | the line's text | the reason. A line is named by its text
and not by its number, so that the list holds when the file grows. Ends with 1 when less of the lines is covered than
asked for, when a line that is not covered has no reason, and when a reason is for no such line.
"""

import argparse
import json
import pathlib
import sys


class Share:
    """How many there are and how many of them are covered."""

    def __init__(self):
        self.covered = 0
        self.all = 0

    def count(self, is_covered):
        self.all += 1
        self.covered += 1 if is_covered else 0

    @property
    def percent(self):
        return 100 * self.covered / self.all if self.all else 100

    def __str__(self):
        return f"{self.covered} of {self.all} ({self.percent:.1f} %)"


def read_reasons(text):
    """By file and text. A remark begins with #."""
    reasons = {}
    for number, line in enumerate(text.splitlines(), 1):
        if not line.strip() or line.lstrip().startswith("#"):
            continue
        parts = [part.strip() for part in line.split("|")]
        if len(parts) < 3 or not all((parts[0], parts[-1])):
            raise SystemExit(f"line {number} of the reasons is not FILE | text | reason: {line}")
        reasons[parts[0], "|".join(line.split("|")[1:-1]).strip()] = parts[-1]
    return reasons


def count(figures, sources):
    """For each library the shares of lines and branches, and the lines that are not covered as (file, number, text)."""
    lines, branches, uncovered = {}, {}, []
    for entry in figures["files"]:
        file = entry["file"]
        library = file.partition("/")[0]
        text = sources(file).splitlines()
        for line in entry["lines"]:
            if line.get("gcovr/noncode"):
                continue
            lines.setdefault(library, Share()).count(line["count"] > 0)
            for branch in line["branches"]:
                branches.setdefault(library, Share()).count(branch["count"] > 0)
            if line["count"] == 0:
                number = line["line_number"]
                uncovered.append((file, number, text[number - 1].strip()))
    return lines, branches, sorted(uncovered)


def report(figures, reasons, sources, least, out):
    """Whether all is as it must be."""
    lines, branches, uncovered = count(figures, sources)
    holds = bool(lines)
    for library in sorted(lines):
        print(f"{library:8} lines {lines[library]}, branches {branches.get(library, Share())}", file=out)
        if lines[library].percent < least:
            print(f"{library}: less than {least} % of the lines", file=out)
            holds = False
    for file, number, text in uncovered:
        reason = reasons.get((file, text))
        print(f"{file}:{number}: {text}\n    {reason or 'NO REASON'}", file=out)
        holds = holds and reason is not None
    for file, text in sorted(set(reasons) - {(file, text) for file, _, text in uncovered}):
        print(f"{file}: covered or gone, but there is a reason for it: {text}", file=out)
        holds = False
    return holds


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--figures", type=pathlib.Path, required=True)
    parser.add_argument("--reasons", type=pathlib.Path, required=True)
    parser.add_argument("--least", type=float, default=98, help="percent of the lines of each library")
    options = parser.parse_args(arguments)
    holds = report(json.loads(options.figures.read_text()), read_reasons(options.reasons.read_text()),
                   lambda file: pathlib.Path(file).read_text(), options.least, sys.stdout)
    return 0 if holds else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
