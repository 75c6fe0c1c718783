#!/usr/bin/env python3
"""Tests of the coverage report with made-up figures."""

import io
import sys
import unittest

sys.dont_write_bytecode = True

import coverage_report  # noqa: E402  (nothing is to be left beside the sources)

SOURCE = "first();\nif (a || b) {\n    second();\n"


def figures(*counts):
    lines = [{"line_number": number, "count": count, "branches": []} for number, count in enumerate(counts, 1)]
    lines[1]["branches"] = [{"count": 1}, {"count": 0}]
    return {"files": [{"file": "Time/A.cpp", "lines": lines}]}


def run(what, reasons="", least=50):
    out = io.StringIO()
    holds = coverage_report.report(what, coverage_report.read_reasons(reasons), lambda _: SOURCE, least, out)
    return holds, out.getvalue()


class Report(unittest.TestCase):
    def test_all_covered_holds(self):
        self.assertEqual(run(figures(1, 1, 1)), (True, "Time     lines 3 of 3 (100.0 %), branches 1 of 2 (50.0 %)\n"))

    def test_line_without_a_reason_does_not_hold(self):
        holds, text = run(figures(1, 1, 0))
        self.assertFalse(holds)
        self.assertIn("Time/A.cpp:3: second();\n    NO REASON", text)

    def test_line_with_a_reason_holds_and_shows_it(self):
        holds, text = run(figures(1, 1, 0), "# remark\nTime/A.cpp | second(); | only when the disk burns\n")
        self.assertTrue(holds)
        self.assertIn("only when the disk burns", text)

    def test_text_of_a_line_may_hold_the_separator(self):
        self.assertTrue(run(figures(1, 0, 1), "Time/A.cpp | if (a || b) { | never\n")[0])

    def test_reason_for_a_line_that_is_covered_does_not_hold(self):
        self.assertFalse(run(figures(1, 1, 1), "Time/A.cpp | second(); | old\n")[0])

    def test_less_than_asked_for_does_not_hold(self):
        reasons = "Time/A.cpp | second(); | because\n"
        self.assertTrue(run(figures(1, 1, 0), reasons, least=66)[0])
        self.assertFalse(run(figures(1, 1, 0), reasons, least=67)[0])

    def test_nothing_counted_does_not_hold(self):
        self.assertFalse(run({"files": []})[0])

    def test_line_that_is_no_reason_is_refused(self):
        with self.assertRaises(SystemExit):
            coverage_report.read_reasons("Time/A.cpp second();\n")


if __name__ == "__main__":
    unittest.main()
