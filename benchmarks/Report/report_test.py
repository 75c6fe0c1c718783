#!/usr/bin/env python3
"""Tests of the report with made-up figures."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True

import report  # noqa: E402  (nothing is to be left beside the sources)

SCRIPT = pathlib.Path(report.__file__)


def entry(name, time, **more):
    times = {"real_time": time, "cpu_time": time, "time_unit": "ns"}
    return {"name": name, "run_type": "iteration", "family_index": 0, **times, **more}


def pair(case, literal, engine, suffix="", **more):
    return [entry(f"{case} [literal]{suffix}", literal, **more), entry(f"{case} [engine]{suffix}", engine, **more)]


def run_where_all_holds():
    """Every case that something is required of, just good enough."""
    entries = []
    for case, least in report.AT_LEAST.items():
        engine = 1000.0
        entries += pair(case, least * engine, engine)
    entries += pair("Tick: 10,000 tracks, window 100", 19e7, 19e6)
    entries += pair("Tick: 10,000 tracks, window 1,000", 19e7, 19e6)
    entries += pair("Tick: 1,000 tracks, window 1,000", 15000, 1500)
    entries += pair("Registry: push, 10 queues", 100, 100, batch=10)
    entries += pair("Registry: push, 1,000 queues", 120, 120, batch=10)
    entries += pair("Workers: one order through 1 worker", 100, 130)
    entries += pair("Workers: one order through 2 workers", 100, 500)
    percentiles = {"literal_p50": 1000, "literal_p99": 2000, "engine_p50": 1300, "engine_p99": 2600}
    for place in ("same core", "other core"):
        case = f"Workers: push to an idle worker's call, {place}"
        entries += [entry(f"{case} [both]/iterations:1", 1, **percentiles)]
    return {"context": {"num_cpus": 2, "load_avg": [0.1]}, "benchmarks": entries}


def slower(run, case, factor):
    """The same run with the engine slower in one case."""
    for item in run["benchmarks"]:
        if item["name"].startswith((f"{case} [engine]", f"{case} [both]")):
            for key in ("real_time", "cpu_time", "engine_p50", "engine_p99"):
                if key in item:
                    item[key] *= factor
    return run


def report_of(run, memory=()):
    return report.report_of(run, list(memory), "g++")


def missed(run, memory=()):
    return [row.case for row in report_of(run, memory).missed()]


def row_of(run, case):
    return next(row for row in report_of(run).rows if row.case == case)


class Verdict(unittest.TestCase):
    def test_nothing_is_missed_when_every_figure_is_just_good_enough(self):
        self.assertEqual(missed(run_where_all_holds()), [])

    def test_each_least_ratio_is_missed_by_a_hundredth(self):
        for case in report.AT_LEAST:
            with self.subTest(case=case):
                self.assertIn(case, missed(slower(run_where_all_holds(), case, 1.01)))

    def test_a_case_without_a_requirement_of_its_own_must_reach_095(self):
        run = run_where_all_holds()
        run["benchmarks"] += pair("Cache: FindMultiples, 100 entries", 94, 100)
        self.assertEqual(missed(run), ["Cache: FindMultiples, 100 entries"])

    def test_a_hand_off_that_takes_more_than_1_3_times_the_bare_one_is_missed(self):
        case = "Workers: one order through 1 worker"
        self.assertEqual(missed(slower(run_where_all_holds(), case, 1.01)), [case])

    def test_both_percentiles_of_the_latency_are_judged(self):
        case = "Workers: push to an idle worker's call, same core"
        self.assertEqual(missed(slower(run_where_all_holds(), case, 1.01)), [f"{case}, p50", f"{case}, p99"])

    def test_nothing_is_required_of_two_workers(self):
        case = "Workers: one order through 2 workers"
        self.assertEqual(missed(slower(run_where_all_holds(), case, 10)), [])

    def test_a_longer_window_that_costs_more_than_1_5_times_is_missed(self):
        case = "Tick: 1,000 tracks, window 1,000"
        self.assertEqual(
            missed(slower(run_where_all_holds(), case, 1.01)), [f"{case}, against window 100, engine alone"]
        )

    def test_a_push_among_more_queues_that_costs_more_than_1_2_times_is_missed(self):
        case = "Registry: push, 1,000 queues"
        self.assertIn(
            f"{case}, against 10 queues, engine alone", missed(slower(run_where_all_holds(), case, 1.01))
        )

    def test_a_tick_of_ten_thousand_tracks_that_takes_20_ms_is_missed(self):
        case = "Tick: 10,000 tracks, window 100"
        self.assertEqual(missed(slower(run_where_all_holds(), case, 20 / 19)), [f"{case}, engine alone"])

    def test_an_entry_that_takes_more_than_1_5_times_the_plain_memory_is_missed(self):
        case = "Memory: an entry of a window of 100"
        memory = [{"case": case, "literal": 100, "engine": 151}]
        self.assertEqual(missed(run_where_all_holds(), memory), [case])

    def test_a_required_case_that_was_not_measured_is_missed(self):
        for case in [*report.AT_LEAST, "Workers: one order through 1 worker", "Tick: 10,000 tracks, window 100"]:
            with self.subTest(case=case):
                run = run_where_all_holds()
                run["benchmarks"] = [e for e in run["benchmarks"] if not e["name"].startswith(f"{case} [")]
                self.assertTrue(any(case in name and "not measured" in name for name in missed(run)))


class Figures(unittest.TestCase):
    def test_the_median_of_the_repetitions_counts(self):
        run = run_where_all_holds()
        for engine in (10.0, 11.0, 500.0):
            run["benchmarks"] += pair("Cache: FindMultiples, 100 entries", 110.0, engine)
        self.assertEqual(row_of(run, "Cache: FindMultiples, 100 entries").engine, 11.0)

    def test_the_tools_own_aggregates_do_not_count(self):
        run = run_where_all_holds()
        aggregate = entry("Cache: FindMultiples, 100 entries [engine]_mean", 5.0)
        run["benchmarks"].append({**aggregate, "run_type": "aggregate"})
        self.assertFalse(any("FindMultiples" in row.case for row in report_of(run).rows))

    def test_a_batch_is_divided_by_its_size(self):
        self.assertEqual(row_of(run_where_all_holds(), "Registry: push, 10 queues").engine, 10.0)

    def test_units_are_told_apart(self):
        run = run_where_all_holds()
        more = pair("Cache: FindMultiples, 100 entries", 3.0, 2.0)
        for item in more:
            item["time_unit"] = "us"
        run["benchmarks"] += more
        self.assertEqual(row_of(run, "Cache: FindMultiples, 100 entries").engine, 2000.0)

    def test_the_threads_own_time_counts_where_a_case_measures_none(self):
        run = run_where_all_holds()
        run["benchmarks"] += pair("Cache: FindMultiples, 100 entries", 9.0, 9.0, cpu_time=2.0)
        self.assertEqual(row_of(run, "Cache: FindMultiples, 100 entries").engine, 2.0)

    def test_the_time_counts_that_a_case_measures_itself(self):
        run = run_where_all_holds()
        run["benchmarks"] += pair("Cache: intake", 9.0, 9.0, "/manual_time", cpu_time=2.0)
        self.assertEqual(row_of(run, "Cache: intake").engine, 9.0)

    def test_rows_stand_in_the_order_of_the_sources(self):
        run = run_where_all_holds()
        run["benchmarks"] += pair("Cache: FindMultiples, 100 entries", 3.0, 2.0, family_index=-1)
        self.assertEqual(report_of(run).rows[0].case, "Cache: FindMultiples, 100 entries")

    def test_a_case_that_failed_is_refused(self):
        run = run_where_all_holds()
        run["benchmarks"][0]["error_occurred"] = True
        with self.assertRaises(ValueError):
            report_of(run)

    def test_a_case_with_one_version_is_refused(self):
        run = run_where_all_holds()
        run["benchmarks"].pop(0)
        with self.assertRaises(ValueError):
            report_of(run)

    def test_a_rate_in_a_name_is_no_suffix(self):
        run = run_where_all_holds()
        run["benchmarks"] += pair("TimePoint: FromRatio, 30000/1001", 3.0, 2.0, "/manual_time")
        self.assertEqual(row_of(run, "TimePoint: FromRatio, 30000/1001").literal, 3.0)

    def test_the_machines_limits_stand_apart(self):
        run = run_where_all_holds()
        run["benchmarks"].append(entry("Machine: lock and unlock [machine]", 4.0))
        run["benchmarks"].append(entry("Machine: futex wake [machine]", 1.0, p50=5.0, p99=6.0))
        limits = {"lock and unlock": 4.0, "futex wake, p50": 5.0, "futex wake, p99": 6.0}
        self.assertEqual(report_of(run).limits, limits)
        self.assertFalse(any("lock and unlock" in row.case for row in report_of(run).rows))

    def test_a_busy_machine_is_noticed(self):
        run = run_where_all_holds()
        run["context"]["load_avg"] = [1.5]
        self.assertTrue(report_of(run).busy)


class Program(unittest.TestCase):
    def run_program(self, run, *options):
        with tempfile.TemporaryDirectory() as directory:
            folder = pathlib.Path(directory)
            (folder / "times.json").write_text(json.dumps(run), encoding="utf-8")
            (folder / "memory.json").write_text("[]", encoding="utf-8")
            command = [sys.executable, str(SCRIPT), "--times", str(folder / "times.json"), "--memory"]
            command += [str(folder / "memory.json"), "--output", str(folder / "out"), *options]
            result = subprocess.run(command, capture_output=True, text=True, check=False)
            written = {file.name: file.read_text(encoding="utf-8") for file in (folder / "out").iterdir()}
        return result, written

    def test_it_ends_well_when_all_holds(self):
        result, _ = self.run_program(run_where_all_holds())
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_it_ends_with_1_and_names_what_is_missed(self):
        case = "Cache: exact lookup, 1,000 entries"
        result, written = self.run_program(slower(run_where_all_holds(), case, 2))
        self.assertEqual(result.returncode, 1)
        line = next(line for line in result.stdout.splitlines() if line.startswith(case))
        self.assertTrue(line.endswith("MISSED"), line)
        rows = {row["case"]: row["verdict"] for row in json.loads(written["report.json"])["rows"]}
        self.assertEqual(rows[case], "MISSED")
        self.assertIn("MISSED", written["table.md"])

    def test_it_says_nothing_about_requirements_without_a_verdict(self):
        case = "Cache: exact lookup, 1,000 entries"
        result, written = self.run_program(slower(run_where_all_holds(), case, 2), "--no-verdict")
        self.assertEqual(result.returncode, 0)
        self.assertNotIn("MISSED", result.stdout + written["table.md"] + written["report.json"])

    def test_it_plots_the_ticks(self):
        _, written = self.run_program(run_where_all_holds())
        self.assertIn("<svg", written["tick.svg"])


if __name__ == "__main__":
    unittest.main()
