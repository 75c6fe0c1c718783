#!/usr/bin/env python3
"""Tests of the media report with made-up figures."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True

import media_report  # noqa: E402  (nothing is to be left beside the sources)

SCRIPT = pathlib.Path(media_report.__file__)

STRAIGHT = {
    "pictures": 500,
    "packetBytes": 500 * 80_000,
    "cases": [
        {"case": "straight", "threads": 0, "picturesPerSecond": 200, "cpuMsPerPicture": 11},
        {"case": "straight", "threads": 1, "picturesPerSecond": 100, "cpuMsPerPicture": 10},
        {"case": "backward", "threads": 0, "picturesPerSecond": 180},
        {"case": "backward", "threads": 1, "error": "too much memory"},
        {"case": "seek", "threads": 0, "p50Ms": 150, "p95Ms": 280},
        {"case": "seek-skip", "threads": 0, "p50Ms": 100, "p95Ms": 200},
    ],
}

IN_TIME = {"rightPercent": 100, "behindTicks": 0, "standMs": 45, "tickMs": 40, "gapMs": 100, "newPerSecond": 13,
           "nearPercent": 60, "ticks": 250, "sleptThroughTicks": 0, "togetherPercent": 100, "saidSpeed": 0.5, "peakMiB": 350,
           "groupMiB": 150, "cpuMsPerPicture": 10.5, "bytesReadPerPicture": 81_000, "unreadPictures": 0}
COMMAND = {"p50Ms": 1, "p95Ms": 20, "p99Ms": 39, "maxMs": 39, "tickMs": 40, "wrong": 0, "wrongAfter": 0,
           "gapMs": 90}
EIGHT = {**IN_TIME, "newPerSecond": 8 * 12.5}
FAST = {"rightPercent": 100, "picturesPerSecond": 195, "peakMiB": 102, "atBeginMiB": 30, "budgetMiB": 40}

CASES = [f"play:{speed}" for speed in ("1", "2", "4", "1/2", "-1", "-2", "-1/2", "-4", "16", "-16")]
TRACKS = ["tracks:4-forward", "tracks:4-backward", "tracks:8-forward", "tracks:8-backward"]
COMMANDS = ["open:forward", "open:backward", "open:reverse-start", "step:back", "step:forward", "turn", "near",
            "jump", "drag"]
FASTS = ["fast:forward", "fast:forward-4-tracks", "fast:backward-2-groups", "fast:backward-quarter-group"]


def bench(**changed):
    """A run in which everything holds, but for the figures given as case=dict (":" and the like as in names)."""
    figures = {case: IN_TIME for case in CASES + TRACKS}
    figures.update({case: COMMAND for case in COMMANDS})
    figures.update({case: FAST for case in FASTS})
    figures.update({case: EIGHT for case in TRACKS if ":8" in case})
    results = [{"case": case, "figures": {"hasBarCode": 1, **value, **changed.get(case, {})}}
               for case, value in figures.items()]
    return {"results": results}


def rows_of(run):
    clip = media_report.Clip("clip.mp4", STRAIGHT, run, [[(STRAIGHT, run)]])
    return {row["case"]: row for row in media_report.make_rows(clip, [])}


def verdict(case, figures, label):
    return rows_of(bench(**{case: figures}))[label]["verdict"]


class Verdicts(unittest.TestCase):
    def test_all_hold_where_the_figures_are_good_enough(self):
        missed = [row for row in rows_of(bench()).values() if row["verdict"] == media_report.MISSED]
        self.assertEqual(missed, [])

    def test_each_figure_beyond_its_requirement_is_missed(self):
        for case, figures, label in (
                ("fast:forward", {"picturesPerSecond": 189}, "forward, fast"),
                ("fast:backward-2-groups", {"picturesPerSecond": 170}, "backward, fast, budget of two groups"),
                ("fast:backward-quarter-group", {"picturesPerSecond": 62},
                 "backward, fast, budget of a quarter of a group"),
                ("fast:backward-quarter-group", {"peakMiB": 103},
                 "backward, fast, budget of a quarter of a group"),
                ("play:1", {"rightPercent": 99.9}, "speed 1"),
                ("play:1", {"behindTicks": 1}, "speed 1"),
                ("play:-2", {"standMs": 61}, "speed -2"),
                ("play:1", {"sleptThroughTicks": 1}, "speed 1"),
                ("play:-4", {"rightPercent": 97.9}, "speed -4"),
                ("play:-4", {"behindTicks": 1}, "speed -4"),
                ("play:-4", {"rightPercent": 98, "sleptThroughTicks": 1}, "speed -4"),
                ("play:16", {"gapMs": 131}, "speed 16"),
                ("play:16", {"behindTicks": 1}, "speed 16"),
                ("play:-16", {"newPerSecond": 12}, "speed -16"),
                ("play:-16", {"nearPercent": 49}, "speed -16"),
                ("play:-16", {"nearPercent": 50, "sleptThroughTicks": 1}, "speed -16"),
                ("open:forward", {"p95Ms": 201}, "first picture after opening"),
                ("step:back", {"p99Ms": 41}, "step back"),
                ("turn", {"wrongAfter": 1}, "change of direction"),
                ("near", {"wrong": 1}, "jump inside what is cached"),
                ("fast:forward", {"rightPercent": 99.9}, "forward, fast"),
                ("jump", {"p50Ms": 151}, "random jump"),
                ("jump", {"p95Ms": 281}, "random jump"),
                ("drag", {"gapMs": 101}, "dragging"),
                ("drag", {"p95Ms": 301}, "dragging"),
                ("tracks:4-backward", {"rightPercent": 99}, "4 tracks backward"),
                ("tracks:4-forward", {"sleptThroughTicks": 1}, "4 tracks forward"),
                ("tracks:8-forward", {"togetherPercent": 99}, "8 tracks forward"),
                ("tracks:8-forward", {"saidSpeed": 0.526}, "8 tracks forward"),
                ("tracks:8-backward", {"saidSpeed": 0.474}, "8 tracks backward"),
                ("tracks:8-backward", {"saidSpeed": None}, "8 tracks backward"),
                ("play:-1", {"peakMiB": 361}, "memory at -1"),
                ("play:1", {"cpuMsPerPicture": 12.2}, "processor time a picture at 1"),
                ("play:-1", {"cpuMsPerPicture": 14.4}, "processor time a picture at -1"),
                ("play:-1", {"bytesReadPerPicture": 88_001}, "bytes read a picture at -1")):
            with self.subTest(label=label, figures=figures):
                self.assertEqual(verdict(case, figures, label), media_report.MISSED)

    def test_first_picture_backward_is_beyond_where_decoding_up_to_it_alone_takes_longer(self):
        slow = json.loads(json.dumps(STRAIGHT).replace('"p95Ms": 200', '"p95Ms": 280'))
        run = bench(**{"open:reverse-start": {"p95Ms": 281}, "open:forward": {"p95Ms": 281}})
        rows = {row["case"]: row for row in media_report.opening_rows(media_report.Clip("clip.mp4", slow, run))}
        self.assertEqual(rows["first picture after starting in reverse"]["verdict"], media_report.BEYOND)
        self.assertEqual(rows["first picture after opening"]["verdict"], media_report.MISSED)
        late = bench(**{"open:reverse-start": {"p95Ms": 286}})
        rows = {row["case"]: row for row in media_report.opening_rows(media_report.Clip("clip.mp4", slow, late))}
        self.assertEqual(rows["first picture after starting in reverse"]["verdict"], media_report.MISSED)
        quick = {"open:reverse-start": {"p95Ms": 281}}
        self.assertEqual(verdict("open:reverse-start", quick["open:reverse-start"],
                                 "first picture after starting in reverse"), media_report.MISSED)

    def test_speed_is_not_judged_where_the_ceiling_does_not_allow_it_twice_over(self):
        slow = json.loads(json.dumps(STRAIGHT).replace("200,", "199,", 1))
        self.assertEqual(slow["cases"][0]["picturesPerSecond"], 199)
        clip = media_report.Clip("clip.mp4", slow, bench(**{"play:4": {"rightPercent": 0}}))
        rows = {row["case"]: row for row in media_report.play_rows(clip)}
        self.assertEqual(rows["speed 4"]["verdict"], media_report.APART)
        self.assertEqual(rows["speed 2"]["verdict"], media_report.OK)

    def test_backward_a_group_that_does_not_fit_has_to_be_decoded_in_parts(self):
        # 3200 MiB are five parts of half the budget: three decodes a picture, 75 a second at -1.
        run = bench(**{case: {"groupMiB": 3200, "rightPercent": 0} for case in ("play:-1", "play:-1/2", "play:-2", "play:2")})
        rows = {row["case"]: row for row in media_report.play_rows(media_report.Clip("clip.mp4", STRAIGHT, run))}
        self.assertEqual([rows[f"speed {speed}"]["verdict"] for speed in ("-1", "-1/2", "-2", "2")],
                         [media_report.MISSED, media_report.MISSED, media_report.APART, media_report.MISSED])
        self.assertIn("150 needed (3.0 decodes a picture", rows["speed -2"]["beside"])

    def test_case_that_failed_is_missed_and_says_why(self):
        run = bench()
        run["results"] = [{"case": "jump", "error": "ended by signal 11"}]
        row = rows_of(run)["random jump"]
        self.assertEqual((row["verdict"], row["ours"]), (media_report.MISSED, "ended by signal 11"))

    def test_case_that_was_left_out_is_not_judged(self):
        run = {"results": [{"case": "fast:backward-2-groups", "error": "left out: so many pictures take 9 MiB"}]}
        self.assertEqual(rows_of(run)["backward, fast, budget of two groups"]["verdict"], media_report.APART)

    def test_eight_tracks_show_the_speed_that_is_said_and_the_one_that_is_held(self):
        ours = rows_of(bench(**{"tracks:8-forward": {"saidSpeed": 0.51}}))["8 tracks forward"]["ours"]
        self.assertEqual(ours, "100.0 % together, held 0.500, said 0.510")

    def test_ticks_that_were_slept_through_are_shown_and_not_right(self):
        ours = rows_of(bench(**{"play:-4": {"ticks": 240, "sleptThroughTicks": 10}}))["speed -4"]["ours"]
        self.assertEqual(ours, "96.0 % right, stands 45 ms, 10 slept through")

    def test_clip_without_a_bar_code_that_can_be_read_is_missed_in_every_row(self):
        run = bench()
        for result in run["results"]:
            result["figures"]["hasBarCode"] = 0
        self.assertEqual({row["verdict"] for row in rows_of(run).values()}, {media_report.MISSED})

    def test_pictures_that_could_not_be_read_are_missed_where_the_machine_is_too_slow_to_judge_as_well(self):
        slow = json.loads(json.dumps(STRAIGHT).replace("200,", "9,", 1).replace("100,", "9,", 1))
        for unread in ({"unreadPictures": 3}, {"hasBarCode": 0}):
            clip = media_report.Clip("clip.mp4", slow, bench(**{"play:4": unread}))
            rows = {row["case"]: row for row in media_report.play_rows(clip)}
            self.assertEqual((rows["speed 4"]["verdict"], rows["speed 1"]["verdict"]),
                             (media_report.MISSED, media_report.APART))

    def test_picture_that_could_not_be_read_is_never_beyond(self):
        slow = json.loads(json.dumps(STRAIGHT).replace('"p95Ms": 200', '"p95Ms": 280'))
        run = bench(**{"open:reverse-start": {"p95Ms": 281, "hasBarCode": 0}})
        rows = {row["case"]: row for row in media_report.opening_rows(media_report.Clip("clip.mp4", slow, run))}
        self.assertEqual(rows["first picture after starting in reverse"]["verdict"], media_report.MISSED)

    def test_missing_floor_is_missed(self):
        clip = media_report.Clip("clip.mp4", {"cases": []}, None, [[({"cases": []}, bench())]])
        self.assertEqual({row["verdict"] for row in media_report.jump_rows(clip)}, {media_report.MISSED})
        beside_plain = [row for row in media_report.cost_rows(clip) if not row["case"].startswith("memory")]
        self.assertEqual({row["verdict"] for row in beside_plain}, {media_report.MISSED})


class Turns(unittest.TestCase):
    def rows_of(self, ceilings, runs):
        turns = [(json.loads(json.dumps(STRAIGHT).replace("200,", f"{ceiling},", 1)), run)
                 for ceiling, run in zip(ceilings, runs)]
        clip = media_report.Clip("clip.mp4", None, None, [turns])
        return {row["case"]: row for row in media_report.fast_rows(clip) + media_report.cost_rows(clip)}

    def test_median_stands_for_rates_and_processor_time_and_ratios_are_those_of_a_turn(self):
        runs = [bench(**{"fast:forward": {"picturesPerSecond": rate}, "play:1": {"cpuMsPerPicture": cpu}})
                for rate, cpu in ((160, 11), (199, 99), (192, 12))]
        rows = self.rows_of((200, 150, 300), runs)
        self.assertEqual(rows["forward, fast"]["beside"], "200.0 /s")
        self.assertEqual(rows["forward, fast"]["ours"], "192.0 /s (0.80)")
        self.assertEqual(rows["processor time a picture at 1"]["ours"], "12.0 ms (1.09)")

    def test_a_machine_that_is_slower_in_one_turn_than_in_the_others_is_no_difference(self):
        runs = [bench(**{"fast:forward": {"picturesPerSecond": rate}}) for rate in (192, 96, 140)]
        row = self.rows_of((200, 100, 250), runs)["forward, fast"]
        self.assertEqual((row["beside"], row["ours"], row["verdict"]),
                         ("200.0 /s", "140.0 /s (0.96)", media_report.OK))

    def test_beside_a_case_stands_the_plain_program_of_its_own_turns(self):
        def turns_of(case, ceiling):
            plain = json.loads(json.dumps(STRAIGHT).replace("200,", f"{ceiling},", 1))
            return [(plain, {"results": [result for result in bench()["results"] if result["case"] == case]})] * 3
        clip = media_report.Clip("clip.mp4", None, None, [turns_of("fast:forward", 201), turns_of("play:1", 300)])
        self.assertEqual(media_report.fast_rows(clip)[0]["beside"], "201.0 /s")

    def test_cases_may_have_turns_of_their_own(self):
        def only(case):
            return {"results": [result for result in bench()["results"] if result["case"] == case]}
        fast = [(STRAIGHT, only("fast:forward"))] * 2
        clip = media_report.Clip("clip.mp4", None, None, [fast, [(STRAIGHT, only("play:1"))]])
        rows = {row["case"]: row["verdict"] for row in media_report.fast_rows(clip) + media_report.cost_rows(clip)}
        self.assertEqual((rows["forward, fast"], rows["processor time a picture at 1"]),
                         (media_report.OK, media_report.OK))
        self.assertEqual(rows["forward, fast, 4 tracks"], media_report.MISSED)

    def test_processor_time_is_beyond_where_a_plain_decoder_that_rests_takes_it_too(self):
        def row_of(in_time, ours, unread=0):
            plain = json.loads(json.dumps(STRAIGHT))
            plain["cases"].append({"case": "in-time", "threads": 0, "picturesPerSecond": 25, "cpuMsPerPicture": in_time})
            run = bench(**{"play:1": {"cpuMsPerPicture": ours, "unreadPictures": unread}})
            clip = media_report.Clip("clip.mp4", None, None, [[(plain, run)]])
            return next(row for row in media_report.cost_rows(clip) if row["case"] == "processor time a picture at 1")
        self.assertEqual(row_of(12.2, 12.5)["verdict"], media_report.BEYOND)
        self.assertEqual(row_of(12.2, 12.5)["beside"], "11.0 ms, in real time 12.2 ms (1.11)")
        self.assertEqual(row_of(12.2, 13.5)["verdict"], media_report.MISSED)
        # Resting costs the plain program no more than is allowed.
        self.assertEqual(row_of(12, 12.5)["verdict"], media_report.MISSED)
        self.assertEqual(row_of(12.2, 12)["verdict"], media_report.OK)
        self.assertEqual(row_of(12.2, 12.5, unread=1)["verdict"], media_report.MISSED)

    def test_one_bad_turn_is_enough_for_what_must_always_hold(self):
        good, bad = bench(), bench(**{"fast:forward": {"rightPercent": 99.9}, "play:-1": {"peakMiB": 361}})
        rows = self.rows_of((200, 200, 200), [good, bad, good])
        self.assertEqual(rows["forward, fast"]["verdict"], media_report.MISSED)
        self.assertEqual(rows["memory at -1"]["verdict"], media_report.MISSED)
        self.assertEqual(rows["forward, fast, 4 tracks"]["verdict"], media_report.OK)

    def test_memory_used_is_that_of_the_worst_turn(self):
        runs = [bench(**{"fast:backward-quarter-group": {"atBeginMiB": begin, "peakMiB": 110}})
                for begin in (37, 39, 80)]
        row = self.rows_of((200, 200, 200), runs)["backward, fast, budget of a quarter of a group"]
        self.assertIn("73 MiB of 40 + 32", row["ours"])
        self.assertEqual(row["verdict"], media_report.MISSED)

    def test_a_turn_that_failed_or_is_not_there_fails_its_case(self):
        failed = bench()
        failed["results"] = [{"case": "fast:forward", "error": "ended by signal 11"}]
        rows = self.rows_of((200, 200), [bench(), failed])
        self.assertEqual(rows["forward, fast"]["ours"], "ended by signal 11")
        self.assertEqual(rows["forward, fast, 4 tracks"]["ours"], "not measured")
        self.assertEqual(rows["forward, fast, 4 tracks"]["verdict"], media_report.MISSED)
        rows = self.rows_of((200, 200), [bench(), None])
        self.assertEqual(rows["forward, fast"]["verdict"], media_report.MISSED)


class Program(unittest.TestCase):
    def run_on(self, run, *options):
        with tempfile.TemporaryDirectory() as folder:
            directory = pathlib.Path(folder)
            (directory / "straight-clip.mp4.json").write_text(json.dumps(STRAIGHT))
            (directory / "bench-clip.mp4.json").write_text(json.dumps(run))
            for turn in ("fast-1", "fast-2", "time-1"):
                (directory / f"{turn}-straight-clip.mp4.json").write_text(json.dumps(STRAIGHT))
                (directory / f"{turn}-bench-clip.mp4.json").write_text(json.dumps(run))
            done = subprocess.run([sys.executable, str(SCRIPT), "--directory", folder, "--first", "clip.mp4",
                                   *options], capture_output=True, text=True, check=False)
            written = json.loads((directory / "media-report.json").read_text())
            self.assertEqual((directory / "media-report.md").read_text(), done.stdout)
        return done, written

    def test_ends_with_0_where_all_holds(self):
        done, written = self.run_on(bench())
        self.assertEqual(done.returncode, 0)
        self.assertEqual(len(done.stdout.splitlines()), len(written) + 2)

    def test_ends_with_1_where_something_is_missed(self):
        done, _ = self.run_on(bench(turn={"wrong": 1}))
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.count("MISSED"), 1)

    def test_judges_nothing_when_told_so(self):
        done, _ = self.run_on(bench(turn={"wrong": 1}), "--no-verdict")
        self.assertEqual(done.returncode, 0)
        self.assertNotIn("MISSED", done.stdout)


if __name__ == "__main__":
    unittest.main()
