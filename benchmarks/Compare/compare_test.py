#!/usr/bin/env python3
"""Tests of how players are judged: bar codes, ticks and the table, with made-up pictures and times."""

import sys
import types
import unittest
import unittest.mock

sys.dont_write_bytecode = True

import bar_code  # noqa: E402  (nothing is to be left beside the sources)
import compare  # noqa: E402
import judge  # noqa: E402
import player_run  # noqa: E402

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
        shown = [(100 + tick * PERIOD, 16 * tick + (16 if tick % 2 else 0)) for tick in range(32)]
        self.assertEqual(judged(shown, 16)["nearPercent"], 100)
        # At half the speed it is soon farther away.
        self.assertLess(judged(played(8, 32), 16)["nearPercent"], 20)

    def test_nothing_shown_is_said(self):
        self.assertIn("error", judged([], 1))


class Commands(unittest.TestCase):
    def test_percentiles_are_of_nearest_rank(self):
        values = list(range(1, 21))
        self.assertEqual(judge.percentile(values, 50), 10)
        self.assertEqual(judge.percentile(values, 95), 19)
        self.assertEqual(judge.percentile([7], 95), 7)

    def test_what_never_came_is_counted_as_wrong(self):
        figures = judge.judge_commands([0.1, None, 0.3, None, None])
        self.assertEqual((figures["tries"], figures["wrong"]), (5, 3))
        self.assertAlmostEqual(figures["p50Ms"], 100)

    def test_without_any_there_is_no_percentile(self):
        self.assertIsNone(judge.judge_commands([None, None])["p50Ms"])

    def test_nothing_tried_is_said(self):
        self.assertIn("error", judge.judge_commands([]))


class StillPlayer:
    """Shows at once what it is asked for, unless it is told to be deaf from some order on."""

    def __init__(self, log, deaf_after=10_000):
        self.log = log
        self.orders = []
        self.deaf_after = deaf_after

    def stand(self, picture):
        self.log.note(picture)

    def jump(self, picture):
        self.orders.append(picture)
        if len(self.orders) <= self.deaf_after:
            self.log.note(picture)

    def step(self, picture, _):
        self.jump(picture)


class Orders(unittest.TestCase):
    def command(self, case, pictures, tries, deaf_after=10_000):
        log = player_run.ShownLog()
        player = StillPlayer(log, deaf_after)
        options = types.SimpleNamespace(pictures=pictures, tries=tries)
        with unittest.mock.patch.object(player_run.ShownLog.wait_for, "__defaults__", (0.01,)):
            return player_run.command(player, options, log, case, 0), player.orders

    def test_steps_lead_to_the_neighbours_one_after_the_other(self):
        self.assertEqual(self.command("step:back", 100, 3)[1], [49, 48, 47])
        self.assertEqual(self.command("step:forward", 100, 3)[1], [51, 52, 53])

    def test_jumps_always_lead_to_another_picture(self):
        figures, orders = self.command("jump", 3, 60)
        self.assertEqual((figures["tries"], figures["wrong"], len(orders)), (60, 0, 60))
        self.assertEqual(set(orders), {0, 1, 2})
        self.assertTrue(all(here != there for here, there in zip([1] + orders, orders)))

    def test_try_that_cannot_be_made_does_not_count_as_never_come(self):
        figures, orders = self.command("step:back", 8, 20)
        self.assertEqual(orders, [3, 2, 1, 0])
        self.assertEqual((figures["tries"], figures["wrong"]), (4, 0))

    def test_try_whose_picture_does_not_come_does(self):
        figures, _ = self.command("step:back", 100, 5, deaf_after=3)
        self.assertEqual((figures["tries"], figures["wrong"]), (5, 2))


class Log(unittest.TestCase):
    def test_finds_a_picture_that_others_have_followed(self):
        log = player_run.ShownLog()
        for number in (7, 8, 9):
            log.note(number)
        self.assertIsNotNone(log.wait_since(1, lambda number: number == 8, 0))
        self.assertIsNone(log.wait_since(2, lambda number: number == 8, 0))


class Dragging(unittest.TestCase):
    def test_stays_inside_the_recording(self):
        places = [player_run.dragged_to(step / 60, 500) for step in range(3600)]
        self.assertTrue(0 <= min(places) < 50 and 450 < max(places) < 500)

    def test_gap_counts_from_the_beginning_and_to_the_end(self):
        shown = [(9.0, 1), (10.5, 2), (10.75, 3)]
        self.assertEqual(judge.longest_gap(shown, 10, 11), 0.5)
        self.assertEqual(judge.longest_gap(shown, 10.5, 12), 1.25)
        self.assertEqual(judge.longest_gap([], 10, 12), 2)


class Tracks(unittest.TestCase):
    def judged(self, tracks):
        return judge.judge_tracks(tracks, 1, RATE, 4.0, 499)

    def test_all_tracks_right_are_right_and_together(self):
        figures = self.judged([played(1, 100)] * 4)
        self.assertEqual((figures["rightPercent"], figures["togetherPercent"]), (100, 100))

    def test_track_that_stands_makes_the_tick_wrong(self):
        lame = [(when, min(number, 50)) for when, number in played(1, 51)]
        figures = self.judged([played(1, 100)] * 3 + [lame])
        self.assertLess(figures["rightPercent"], 55)
        self.assertLess(figures["togetherPercent"], 55)

    def test_tracks_that_each_play_well_but_apart_are_not_together(self):
        figures = self.judged([played(1, 100), played(1, 100, 3)])
        self.assertEqual((figures["rightPercent"], figures["togetherPercent"]), (100, 0))

    def test_track_that_never_began_is_said(self):
        self.assertIn("error", self.judged([played(1, 100), []]))


class Table(unittest.TestCase):
    RESULTS = {"playout": {"play:1": {"rightPercent": 100, "rightByClockPercent": 99.5, "gapMs": 41, "peakMiB": 300},
                           "drag": {"gapMs": 51, "p50Ms": 30, "p95Ms": 90, "wrong": 0}},
               "mpv": {"play:1": {"rightPercent": 78.5, "rightByClockPercent": 24.5, "gapMs": 637.3, "peakMiB": 293},
                       "drag": {"error": "no picture came"}}}

    def test_shows_players_side_by_side(self):
        table = compare.table(self.RESULTS, compare.PLAYS)
        self.assertIn("| case | | playout | mpv |", table)
        self.assertIn("| speed 1 | right % | 100.0 | 78.5 |", table)
        self.assertIn("| | by the clock % | 99.5 | 24.5 |", table)

    def test_has_no_rows_for_what_was_not_played(self):
        self.assertNotIn("speed 2", compare.table(self.RESULTS, compare.PLAYS))

    def test_says_what_failed_in_its_place_and_why_below(self):
        page = compare.page({"clip.mp4": self.RESULTS})
        self.assertIn("## clip.mp4", page)
        self.assertIn("| dragging | longest without a new picture, ms | 51 | failed |", page)
        self.assertIn("- mpv, dragging: no picture came", page)

    def test_every_case_can_be_played_by_the_other_players(self):
        self.assertEqual(sorted(compare.ALL), sorted(player_run.CASES))

    def test_takes_the_figures_of_the_bench(self):
        text = '{"results": [{"case": "play:1", "figures": {"rightPercent": 100}}, {"case": "jump", "error": "x"}]}'
        self.assertEqual(compare.figures_of_bench(text),
                         {"play:1": {"rightPercent": 100}, "jump": {"error": "x"}})


if __name__ == "__main__":
    unittest.main()
