#!/usr/bin/env python3
"""Tests of how players are judged: bar codes, ticks and the table, with made-up pictures and times."""

import sys
import unittest

sys.dont_write_bytecode = True

import bar_code  # noqa: E402  (nothing is to be left beside the sources)
import compare  # noqa: E402
import judge  # noqa: E402

RATE = 25
PERIOD = 1 / RATE


def played(speed, nb, first=0, begin=100.0):
    """A player at the display's rate that does everything right."""
    return [(begin + tick * PERIOD, first + tick * speed) for tick in range(nb)]


def judged(shown, speed, seconds=4.0, last=499):
    return judge.judge_play(shown, speed, RATE, seconds, last)


class BarCode(unittest.TestCase):
    def test_reads_what_is_drawn(self):
        for number in (0, 1, 12, 13, 499, 40_000, 65_535):
            self.assertEqual(bar_code.read(bar_code.draw(number, 1920)), number)

    def test_reads_every_fourth_byte(self):
        line = b"".join(bytes([value, value, value, 0]) for value in bar_code.draw(321, 640))
        self.assertEqual(bar_code.read(line, 4), 321)

    def test_refuses_a_line_without_contrast(self):
        self.assertIsNone(bar_code.read(bytes([90] * 1920)))
        self.assertIsNone(bar_code.read(bytes(value // 4 for value in bar_code.draw(321, 1920))))

    def test_refuses_a_wrong_remainder(self):
        line = bytearray(bar_code.draw(320, 1920))
        first = line[0:48]
        line[0:48] = line[48:96]
        line[48:96] = first
        self.assertIsNone(bar_code.read(bytes(line)))


class Playing(unittest.TestCase):
    def test_all_ticks_of_a_perfect_run_are_right(self):
        for speed in (1, 2, 4, -1, -2, -4):
            figures = judged(played(speed, 100, 0 if speed > 0 else 499), speed)
            self.assertEqual(figures["rightPercent"], 100, speed)
            self.assertEqual(figures["rightByClockPercent"], 100, speed)

    def test_a_player_that_begins_half_a_tick_early_is_right(self):
        shown = played(1, 100)
        shown = [shown[0]] + [(time + PERIOD / 2, number) for time, number in shown[1:]]
        self.assertEqual(judged(shown, 1)["rightPercent"], 100)

    def test_jitter_of_a_third_of_a_tick_does_not_count(self):
        shown = [(time + (PERIOD / 3 if number % 2 else 0), number) for time, number in played(1, 100)]
        self.assertEqual(judged(shown, 1)["rightPercent"], 100)

    def test_all_pictures_that_pass_at_twice_the_speed_are_right(self):
        shown = [(100 + number * PERIOD / 2, number) for number in range(200)]
        self.assertEqual(judged(shown, 2)["rightPercent"], 100)

    def test_a_stand_is_wrong_while_it_lasts_and_late_by_the_clock_from_then_on(self):
        shown = [(time + (10 * PERIOD if number >= 50 else 0), number) for time, number in played(1, 100)]
        figures = judged(shown, 1)
        self.assertEqual(figures["ticks"], 99)
        self.assertAlmostEqual(figures["rightPercent"], 100 * (99 - 10) / 99, delta=1.1)
        self.assertAlmostEqual(figures["rightByClockPercent"], 100 * 50 / 99, delta=1.1)
        self.assertAlmostEqual(figures["gapMs"], 440, delta=1)

    def test_pictures_left_out_are_wrong_once(self):
        shown = [(time, number + (5 if number >= 50 else 0)) for time, number in played(1, 100)]
        self.assertAlmostEqual(judged(shown, 1)["rightPercent"], 100 * 98 / 99, delta=0.1)

    def test_the_wrong_way_is_wrong(self):
        self.assertLess(judged(played(1, 100), -1, last=499).get("rightPercent", 0), 5)

    def test_every_second_picture_at_half_the_rate_is_wrong(self):
        shown = [(100 + 2 * tick * PERIOD, tick) for tick in range(50)]
        self.assertLess(judged(shown, 1)["rightPercent"], 60)

    def test_no_more_is_judged_than_the_clip_has(self):
        figures = judged(played(4, 125), 4, seconds=8.0)
        self.assertEqual(figures["rightPercent"], 100)
        self.assertLessEqual(figures["ticks"], 125)

    def test_near_is_within_sixteen_pictures_of_the_clock(self):
        shown = [(100 + tick * PERIOD, 16 * tick + (16 if tick % 2 else 0)) for tick in range(25)]
        self.assertEqual(judged(shown, 16)["nearPercent"], 100)
        shown = [(time, number + (17 if tick else 0)) for tick, (time, number) in enumerate(played(16, 25))]
        self.assertLess(judged(shown, 16)["nearPercent"], 10)

    def test_nothing_shown_is_said(self):
        self.assertIn("error", judged([], 1))


class Commands(unittest.TestCase):
    def test_percentiles_are_of_nearest_rank(self):
        values = list(range(1, 21))
        self.assertEqual(judge.percentile(values, 50), 10)
        self.assertEqual(judge.percentile(values, 95), 19)
        self.assertEqual(judge.percentile([7], 95), 7)

    def test_what_never_came_is_counted_as_wrong(self):
        figures = judge.judge_commands([0.1, 0.3], 5)
        self.assertEqual(figures["wrong"], 3)
        self.assertAlmostEqual(figures["p50Ms"], 100)

    def test_without_any_there_is_no_percentile(self):
        self.assertIsNone(judge.judge_commands([], 2)["p50Ms"])


class Table(unittest.TestCase):
    def test_shows_players_side_by_side(self):
        results = {"playout": {"play:1": {"rightPercent": 100, "rightByClockPercent": 99.5, "gapMs": 41,
                                          "firstMs": 90, "peakMiB": 300}},
                   "mpv": {"play:1": {"rightPercent": 78.5, "rightByClockPercent": 24.5, "gapMs": 637.3,
                                      "firstMs": 1210.8, "peakMiB": 293}}}
        table = compare.table(results)
        self.assertIn("| case | | playout | mpv |", table)
        self.assertIn("| 1 | right % | 100.0 | 78.5 |", table)
        self.assertIn("| | by the clock % | 99.5 | 24.5 |", table)

    def test_says_what_failed_in_its_place(self):
        self.assertIn("failed", compare.table({"mpv": {"jump": {"error": "no picture came"}}}))

    def test_takes_the_figures_of_the_bench(self):
        text = '{"results": [{"case": "play:1", "figures": {"rightPercent": 100}}, {"case": "jump", "error": "x"}]}'
        self.assertEqual(compare.figures_of_bench(text),
                         {"play:1": {"rightPercent": 100}, "jump": {"error": "x"}})


if __name__ == "__main__":
    unittest.main()
