#!/usr/bin/env python3
"""Runs the plain player, whose path is the only argument, on a small clip: it must see every picture."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

NB_PICTURES = 60
PROGRAM = ""


def run(*arguments):
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, check=False)


class StraightPlayer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.clip = str(pathlib.Path(cls.folder.name) / "clip.mp4")
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                        f"testsrc2=size=160x120:rate=25:duration={NB_PICTURES / 25}", "-pix_fmt", "yuv420p",
                        "-c:v", "libx264", "-preset", "veryfast", "-threads", "1", "-x264-params",
                        "keyint=12:bframes=2:scenecut=0", cls.clip], check=True)
        done = run(cls.clip, "--threads", "1,2", "--jumps", "8")
        assert done.returncode == 0, done.stderr
        cls.report = json.loads(done.stdout)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def cases(self, name):
        return [case for case in self.report["cases"] if case["case"] == name]

    def test_knows_the_clip(self):
        self.assertEqual((self.report["pictures"], self.report["groups"]), (NB_PICTURES, 5))

    def test_plays_every_picture_forward_and_backward(self):
        for name in ("straight", "backward"):
            self.assertEqual([case["pictures"] for case in self.cases(name)], [NB_PICTURES] * 2)

    def test_in_time_it_takes_as_long_as_the_clip(self):
        case = json.loads(run(self.clip, "--cases", "in-time", "--threads", "1").stdout)["cases"][0]
        self.assertEqual(case["pictures"], NB_PICTURES)
        self.assertLessEqual(case["picturesPerSecond"], 25 * NB_PICTURES / (NB_PICTURES - 1))

    def test_finds_every_picture_that_it_jumps_to(self):
        for name in ("seek", "seek-skip"):
            self.assertEqual([case["pictures"] for case in self.cases(name)], [8, 8])
            for case in self.cases(name):
                self.assertLessEqual(case["p50Ms"], case["p95Ms"])

    def test_reads_the_whole_file_and_little_more(self):
        for case in self.cases("straight"):
            self.assertGreaterEqual(case["bytesReadPerPicture"] * NB_PICTURES, self.report["packetBytes"])

    def test_group_that_does_not_fit_is_left_out(self):
        report = json.loads(run(self.clip, "--cases", "backward", "--threads", "1", "--memory", "0").stdout)
        self.assertIn("memory", report["cases"][0]["error"])

    def test_file_that_is_no_recording_fails(self):
        self.assertEqual(run("/dev/null").returncode, 1)


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main()
