#!/usr/bin/env python3
"""Changes the sources of the engine in one small place at a time, and tells which changes no test notices.

Works on copies of the tree, one for each change that is tried at the same time. A change of a header is held against the tests
of that header alone, as all others would have to be compiled anew; a change of a source file first against the tests of its
own, then against all. A change that does not compile is none; one that makes a test run much longer than usual counts as
noticed. A program that fails is run again, as some measure time: only when it fails twice has it noticed the change.

Changes that make no difference to what the engine does are no defect of the tests: they are listed in survivors.txt as such,
and the share of the others is what counts.
"""

import argparse
import concurrent.futures
import json
import os
import pathlib
import queue
import random
import shutil
import subprocess
import sys
import time

sys.dont_write_bytecode = True

import mutants  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent

KILLED, SURVIVED, NO_CHANGE = "killed", "survived", "does not compile"

# How the reason for a change begins that does the same in another way, or at another cost.
SAME = "same: "


def read_survivors(text):
    """Changes that are known to survive, each with its reason: FILE | the line's text | change | reason."""
    known = {}
    for number, line in enumerate(text.splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        parts = [part.strip() for part in line.split(" | ")]
        if len(parts) != 4 or not all(parts):
            raise SystemExit(f"line {number} of the survivors is not FILE | text | change | reason: {line}")
        known[parts[0], parts[1], parts[2]] = parts[3]
    return known


class Tree:
    """A copy of the sources with a build of its own."""

    def __init__(self, directory):
        self.source = directory / "source"
        self.build = directory / "build"
        shutil.rmtree(self.source, ignore_errors=True)
        self.source.mkdir(parents=True)
        listed = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, stdout=subprocess.PIPE, check=True).stdout
        for name in filter(None, listed.decode().split("\0")):
            if (ROOT / name).is_file():
                (self.source / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(ROOT / name, self.source / name)
        # Beside each other two trees have the same objects.
        self.environment = dict(os.environ, CCACHE_BASEDIR=str(directory), CCACHE_NOHASHDIR="1")
        subprocess.run(["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                        "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DTAVRIN_BUILD_PLAYOUT=OFF", "-DTAVRIN_SHARE_TEST_HEADERS=ON",
                        "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
                        f"-DCMAKE_CXX_COMPILER_LAUNCHER={shutil.which('ccache') or ''}"],
                       check=True, stdout=subprocess.DEVNULL, env=self.environment)
        self.make("all", jobs=os.cpu_count(), check=True)
        self.programs = sorted(path for folder in ("Time", "Tools", "Logging", "Player")
                               for path in (self.build / "tests" / folder).glob("*Test") if path.is_file())
        self.usual = {program: self.seconds_of(program) for program in self.programs}
        self.sources = self.sources_of_programs()
        # From now on there is nothing that is worth to be kept.
        self.environment["CCACHE_READONLY"] = "1"

    def sources_of_programs(self):
        sources = {program: [] for program in self.programs}
        folders = {f"tests/{program.parent.name}/CMakeFiles/{program.name}.dir/": program for program in self.programs}
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            for folder, program in folders.items():
                if folder in entry["command"]:
                    sources[program].append(pathlib.Path(entry["file"]))
        return sources

    def make(self, *targets, jobs=1, check=False):
        return subprocess.run(["cmake", "--build", self.build, "-j", str(jobs), "--target", *targets], check=check,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=self.environment).returncode == 0

    def seconds_of(self, program):
        begin = time.monotonic()
        if not self.passes(program, 600):
            raise SystemExit(f"{program.name} fails without any change")
        return time.monotonic() - begin

    @staticmethod
    def run(program, seconds):
        """Its exit status; None when it took longer than that."""
        try:
            return subprocess.run([program, "--gtest_brief=1", "--gtest_fail_fast"], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, timeout=seconds, check=False, cwd=program.parent).returncode
        except subprocess.TimeoutExpired:
            return None

    def passes(self, program, seconds):
        return self.run(program, seconds) == 0

    def notices(self, program):
        """Whether the program fails, and does so again, or does not end."""
        seconds = 5 + 4 * self.usual[program]
        status = self.run(program, seconds)
        return status is None or (status != 0 and not self.passes(program, seconds))

    def tests_for(self, file):
        """Those of the file first, then, unless it is a header, the others from the quickest to the slowest."""
        stem = pathlib.Path(file).stem.removesuffix("Impl")
        own = [program for program in self.programs
               if any(source.name.startswith(stem) for source in self.sources[program])]
        if not own:
            own = [program for program in self.programs
                   if any(f"/{stem}.h\"" in source.read_text() for source in self.sources[program])]
        others = sorted((program for program in self.programs if program not in own), key=self.usual.get)
        own.sort(key=self.usual.get)
        return own if file.endswith(".h") and own else own + others

    def verdict_of(self, mutant):
        path = self.source / mutant.file
        original = path.read_text()
        tests = self.tests_for(mutant.file)
        path.write_text(mutant.applied_to(original))
        try:
            libraries = ["TavrinTime", "TavrinTools", "TavrinLogging", "TavrinPlayer"]
            targets = [program.name for program in tests] if mutant.file.endswith(".h") else libraries
            if not self.make(*targets):
                return NO_CHANGE
            return KILLED if any(self.notices(program) for program in tests) else SURVIVED
        finally:
            path.write_text(original)


def try_all(chosen, directory, jobs, seen):
    """The verdict of each, `jobs` at a time; `seen` is told of each as it comes."""
    trees = queue.SimpleQueue()
    for number in range(jobs):
        trees.put(Tree(directory / f"tree{number}"))

    def attempt(mutant):
        tree = trees.get()
        try:
            return mutant, tree.verdict_of(mutant)
        finally:
            trees.put(tree)

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for done in concurrent.futures.as_completed([pool.submit(attempt, mutant) for mutant in chosen]):
            seen(*done.result())


def choose(all_mutants, sample, seed):
    """In an order by chance: what a run that is broken off has tried is a sample, too."""
    return random.Random(seed).sample(all_mutants, sample if 0 < sample < len(all_mutants) else len(all_mutants))


def key_of(mutant):
    """What a reason is found by: it holds for all such changes of such a line."""
    return (mutant.file, mutant.before, mutant.text)


def place_of(mutant):
    """What one change is found by in a later run, also when lines have been added above it."""
    return (*key_of(mutant), mutant.column)


def report(results, known, least, out):
    """Whether enough of the changes were noticed and each of the others has its reason."""
    killed = sum(verdict == KILLED for _, verdict in results)
    survivors = sorted((mutant for mutant, verdict in results if verdict == SURVIVED), key=lambda one: (one.file, one.begin))
    reasons = [known.get(key_of(mutant)) for mutant in survivors]
    for mutant, reason in zip(survivors, reasons):
        print(f"{mutant}\n    {reason or 'NO REASON'}", file=out)
    same = sum(reason is not None and reason.startswith(SAME) for reason in reasons)
    tried = killed + len(survivors)
    different = tried - same
    percent = 100 * killed / different if different else 0
    print(f"{killed} of {different} changes noticed ({percent:.1f} %), {same} more make no difference, "
          f"{len(results) - tried} did not compile", file=out)
    return different > 0 and None not in reasons and percent >= least


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("folders", nargs="*", default=["Player", "Time"])
    parser.add_argument("--directory", type=pathlib.Path, default=ROOT / "build" / "mutation")
    parser.add_argument("--sample", type=int, default=0, help="so many changes, chosen at random (default: all)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--survivors", action="store_true", help="only those that survived the last run in this directory")
    parser.add_argument("--jobs", type=int, default=2, help="changes that are tried at the same time")
    parser.add_argument("--least", type=float, default=90, help="percent of the changes that must be noticed")
    options = parser.parse_args(arguments)
    files = sorted(path for folder in options.folders for pattern in ("*.cpp", "*.h")
                   for path in (ROOT / folder).glob(pattern))
    everything = [mutant for path in files
                  for mutant in mutants.mutants_of(str(path.relative_to(ROOT)), path.read_text())]
    record = options.directory / "results.json"
    before = {tuple(key): verdict for key, verdict in json.loads(record.read_text())} if options.survivors else {}
    chosen = choose(everything, options.sample, options.seed)
    if options.survivors:
        chosen = [mutant for mutant in chosen if before.get(place_of(mutant)) == SURVIVED]
    print(f"{len(everything)} changes, {len(chosen)} of them tried (seed {options.seed})", flush=True)
    results = []

    def note(mutant, verdict):
        results.append((mutant, verdict))
        print(f"{len(results)}/{len(chosen)} {verdict}: {mutant}", file=sys.stderr, flush=True)
        before[place_of(mutant)] = verdict
        record.write_text(json.dumps([[list(key), said] for key, said in before.items()], indent=1) + "\n")

    options.directory.mkdir(parents=True, exist_ok=True)
    try_all(chosen, options.directory, options.jobs, note)
    known = read_survivors((HERE / "survivors.txt").read_text())
    return 0 if report(results, known, options.least, sys.stdout) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
