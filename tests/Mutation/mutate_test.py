#!/usr/bin/env python3
"""Tests of what is made of the verdicts."""

import io
import sys
import unittest

sys.dont_write_bytecode = True

import mutants  # noqa: E402
import mutate  # noqa: E402

CHANGES = mutants.mutants_of("Player/A.cpp", "return a <= b;\nreturn c + d;\n")


class Verdicts(unittest.TestCase):
    def judged(self, verdicts, known, least=90):
        out = io.StringIO()
        return mutate.report(list(zip(CHANGES, verdicts)), known, least, out), out.getvalue()

    def test_enough_noticed(self):
        holds, text = self.judged([mutate.KILLED, mutate.KILLED, mutate.NO_CHANGE], {})
        self.assertTrue(holds)
        self.assertIn("2 of 2 changes noticed (100.0 %), 0 more make no difference, 1 did not compile", text)

    def test_too_few_noticed(self):
        known = {mutate.key_of(CHANGES[0]): "a tie, which either may win"}
        verdicts = [mutate.SURVIVED, mutate.KILLED, mutate.KILLED]
        self.assertFalse(self.judged(verdicts, known)[0])
        self.assertTrue(self.judged(verdicts, known, least=60)[0])

    def test_a_survivor_without_a_reason(self):
        holds, text = self.judged([mutate.SURVIVED, mutate.KILLED, mutate.KILLED], {}, least=60)
        self.assertFalse(holds)
        self.assertIn("Player/A.cpp:1: return a <= b; -> <\n    NO REASON", text)

    def test_what_makes_no_difference_does_not_count(self):
        known = {mutate.key_of(CHANGES[0]): "same: either way the loop ends there"}
        holds, text = self.judged([mutate.SURVIVED, mutate.KILLED, mutate.KILLED], known)
        self.assertTrue(holds)
        self.assertIn("2 of 2 changes noticed (100.0 %), 1 more make no difference", text)

    def test_nothing_tried(self):
        self.assertFalse(self.judged([mutate.NO_CHANGE] * 3, {})[0])


class Choices(unittest.TestCase):
    def test_the_same_seed_chooses_the_same(self):
        self.assertEqual(mutate.choose(CHANGES, 2, 5), mutate.choose(CHANGES, 2, 5))
        self.assertEqual(len(mutate.choose(CHANGES, 2, 5)), 2)

    def test_without_a_number_all(self):
        for sample in (0, 3, 4):
            self.assertEqual(set(mutate.choose(CHANGES, sample, 5)), set(CHANGES))

    def test_two_changes_of_a_line_have_two_places_and_one_reason(self):
        first, second = mutants.mutants_of("A.cpp", "return a == b && c == d;\n")[::2]
        self.assertEqual(mutate.key_of(first), mutate.key_of(second))
        self.assertNotEqual(mutate.place_of(first), mutate.place_of(second))


class Survivors(unittest.TestCase):
    def test_read(self):
        text = "# none\n\nA.cpp | return a <= b; | < | a tie\n"
        self.assertEqual(mutate.read_survivors(text), {("A.cpp", "return a <= b;", "<"): "a tie"})

    def test_one_without_a_reason_is_refused(self):
        with self.assertRaises(SystemExit):
            mutate.read_survivors("A.cpp | return a <= b; | <\n")


if __name__ == "__main__":
    unittest.main()
