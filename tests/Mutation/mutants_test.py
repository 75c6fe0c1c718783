#!/usr/bin/env python3
"""Tests of how sources are changed."""

import sys
import unittest

sys.dont_write_bytecode = True

import mutants  # noqa: E402


def changed(source):
    return [mutant.applied_to(source) for mutant in mutants.mutants_of("Player/A.cpp", source)]


class Mutants(unittest.TestCase):
    def test_operators_between_values(self):
        self.assertEqual(changed("return a <= b;\n"), ["return a < b;\n", "return a > b;\n"])
        self.assertEqual(changed("return a + b;\n"), ["return a - b;\n"])
        self.assertEqual(changed("return a && b;\n"), ["return a || b;\n"])
        self.assertEqual(changed("++nb;\n"), ["--nb;\n"])

    def test_signs_pointers_and_templates_are_left_alone(self):
        for source in ("Cache* cache = &other;\n", "std::vector<Run> runs;\n", "T&& moved;\n", "a->b();\n", "x <=> y;\n"):
            self.assertEqual(changed(source), [], source)

    def test_numbers_and_truth(self):
        self.assertEqual(changed("return 5;\n"), ["return 6;\n"])
        self.assertEqual(changed("return 1;\n"), ["return 2;\n", "return 0;\n"])
        self.assertEqual(changed("return true;\n"), ["return false;\n"])
        self.assertEqual(changed("std::int64_t a;\n"), [])

    def test_conditions_are_turned_round(self):
        self.assertEqual(changed("if (IsReady(x)) {\n"), ["if (!(IsReady(x))) {\n"])
        self.assertEqual(changed("while (Pop(out)) {\n"), ["while (!(Pop(out))) {\n"])

    def test_what_is_no_code_is_left_alone(self):
        for source in ("// a + b, 1\n", "/* a + b\n 1 */\n", 'return "a + b 1";\n', "#if A < 1\n", "static_assert(1 < 2);\n",
                       "virtual bool IsReady() = 0;\n"):
            self.assertEqual(changed(source), [], source)

    def test_lines_are_counted(self):
        self.assertEqual([mutant.line for mutant in mutants.mutants_of("A.cpp", "/* \n */\nint a;\nreturn a - b;\n")], [4])


if __name__ == "__main__":
    unittest.main()
