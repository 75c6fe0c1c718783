#!/usr/bin/env python3
"""Changes the sources of the engine in one small place at a time, and tells which changes no test notices.

Works on a copy of the tree. A change of a header is held against the tests of that header alone, as all others would have to be
compiled anew; a change of a source file first against the tests of its own, then against all. A change that does not
compile is none; one that makes a test run much longer than usual counts as noticed.
"""

import argparse
import json
import pathlib
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

    def __init__(self, directory, jobs):
        self.source = directory / "source"
        self.build = directory / "build"
        self.jobs = str(jobs)
        shutil.rmtree(self.source, ignore_errors=True)
        self.source.mkdir(parents=True)
        listed = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, stdout=subprocess.PIPE, check=True).stdout
        for name in filter(None, listed.decode().split("\0")):
            if (ROOT / name).is_file():
                (self.source / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(ROOT / name, self.source / name)
        subprocess.run(["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                        "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DTAVRIN_BUILD_PLAYOUT=OFF"], check=True, stdout=subprocess.DEVNULL)
        self.make("all", check=True)
        self.programs = sorted(path for folder in ("Time", "Tools", "Logging", "Player")
                               for path in (self.build / "tests" / folder).glob("*Test") if path.is_file())
        self.usual = {program: self.seconds_of(program) for program in self.programs}

    def make(self, *targets, check=False):
        return subprocess.run(["cmake", "--build", self.build, "-j", self.jobs, "--target", *targets],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=check).returncode == 0

    def seconds_of(self, program):
        begin = time.monotonic()
        if not self.passes(program, 600):
            raise SystemExit(f"{program.name} fails without any change")
        return time.monotonic() - begin

    @staticmethod
    def passes(program, seconds):
        try:
            return subprocess.run([program, "--gtest_brief=1"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  timeout=seconds, check=False, cwd=program.parent).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def tests_for(self, file):
        """Those of the file first, then, unless it is a header, the others from the quickest to the slowest."""
        stem = pathlib.Path(file).stem.removesuffix("Impl")
        own = [program for program in self.programs if program.name.startswith(stem)]
        own += [program for program in self.programs
                if program not in own and f"/{stem}.h\"" in self.text_of(program)]
        others = sorted((program for program in self.programs if program not in own), key=self.usual.get)
        own.sort(key=self.usual.get)
        return own if file.endswith(".h") and own else own + others

    def text_of(self, program):
        path = self.source / program.relative_to(self.build).parent / (program.name + ".cpp")
        return path.read_text() if path.exists() else ""

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
            for program in tests:
                if not self.passes(program, 5 + 10 * self.usual[program]):
                    return KILLED
            return SURVIVED
        finally:
            path.write_text(original)


def choose(all_mutants, sample, seed):
    if sample == 0 or sample >= len(all_mutants):
        return all_mutants
    return sorted(random.Random(seed).sample(all_mutants, sample), key=lambda mutant: (mutant.file, mutant.begin))


def report(results, known, least, out):
    """Whether enough of the changes were noticed and each of the others has its reason."""
    killed = sum(verdict == KILLED for _, verdict in results)
    survivors = [mutant for mutant, verdict in results if verdict == SURVIVED]
    tried = killed + len(survivors)
    holds = tried > 0
    for mutant in survivors:
        reason = known.get((mutant.file, mutant.before, mutant.text))
        print(f"{mutant}\n    {reason or 'NO REASON'}", file=out)
        holds = holds and reason is not None
    percent = 100 * killed / tried if tried else 0
    print(f"{killed} of {tried} changes noticed ({percent:.1f} %), {len(results) - tried} did not compile", file=out)
    return holds and percent >= least


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("folders", nargs="*", default=["Player", "Time"])
    parser.add_argument("--directory", type=pathlib.Path, default=ROOT / "build" / "mutation")
    parser.add_argument("--sample", type=int, default=0, help="so many changes, chosen at random (default: all)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--least", type=float, default=90, help="percent of the changes that must be noticed")
    options = parser.parse_args(arguments)
    files = sorted(path for folder in options.folders for pattern in ("*.cpp", "*.h")
                   for path in (ROOT / folder).glob(pattern))
    everything = [mutant for path in files
                  for mutant in mutants.mutants_of(str(path.relative_to(ROOT)), path.read_text())]
    chosen = choose(everything, options.sample, options.seed)
    print(f"{len(everything)} changes, {len(chosen)} of them tried (seed {options.seed})", flush=True)
    tree = Tree(options.directory, options.jobs)
    results = []
    for number, mutant in enumerate(chosen, 1):
        results.append((mutant, tree.verdict_of(mutant)))
        print(f"{number}/{len(chosen)} {results[-1][1]}: {mutant}", file=sys.stderr, flush=True)
    known = read_survivors((HERE / "survivors.txt").read_text())
    (options.directory / "results.json").write_text(json.dumps(
        [{"change": str(mutant), "verdict": verdict} for mutant, verdict in results], indent=1) + "\n")
    return 0 if report(results, known, options.least, sys.stdout) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
