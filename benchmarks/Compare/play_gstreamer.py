#!/usr/bin/env python3
"""Plays one case with GStreamer's playbin: an appsink that keeps time is its display.

Whatever the sink hands out was due on show at that moment. Only one line of each picture is looked at.
"""

import pathlib
import threading

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstVideo", "1.0")
from gi.repository import GLib, Gst, GstVideo  # noqa: E402  (the versions come first)

import bar_code  # noqa: E402
import player_run  # noqa: E402

VIDEO_ONLY = 1
FASTEST_WITH_ALL_PICTURES = 4


class Player:
    def __init__(self, options, log):
        Gst.init(None)
        self._log = log
        self._rate = options.rate
        self._tuned = options.tuned
        self._bin = Gst.ElementFactory.make("playbin", None)
        if self._bin is None:
            raise RuntimeError("GStreamer's playbin is not installed")
        sink = Gst.ElementFactory.make("appsink", None)
        sink.set_property("caps", Gst.Caps.from_string("video/x-raw,format={I420,YV12,NV12,Y42B,Y444}"))
        sink.set_property("sync", True)
        sink.set_property("emit-signals", True)
        sink.set_property("max-buffers", 1)
        sink.set_property("drop", True)
        sink.connect("new-sample", self._shown, "pull-sample")
        sink.connect("new-preroll", self._shown, "pull-preroll")
        self._bin.set_property("flags", VIDEO_ONLY)
        self._bin.set_property("video-sink", sink)
        self._bin.set_property("uri", pathlib.Path(options.clip).resolve().as_uri())
        self._error = None
        threading.Thread(target=GLib.MainLoop().run, daemon=True).start()

    def _shown(self, sink, how):
        sample = sink.emit(how)
        info = GstVideo.VideoInfo.new_from_caps(sample.get_caps())
        buffer = sample.get_buffer()
        meta = GstVideo.buffer_get_video_meta(buffer)
        stride = meta.stride[0] if meta is not None else info.stride[0]
        offset = (meta.offset[0] if meta is not None else 0) + bar_code.row_of(info.height) * stride
        number = bar_code.read(buffer.extract_dup(offset, info.width))
        if number is not None:
            self._log.note(number)
        return Gst.FlowReturn.OK

    def _await(self):
        status, _, _ = self._bin.get_state(20 * Gst.SECOND)
        if status == Gst.StateChangeReturn.FAILURE:
            raise RuntimeError("GStreamer cannot play the clip; gstreamer1.0-libav may be missing")

    def _begin(self, state):
        self._bin.set_state(state)
        self._await()

    def _seek(self, rate, picture):
        flags = Gst.SeekFlags.FLUSH | Gst.SeekFlags.ACCURATE
        if self._tuned and abs(rate) > FASTEST_WITH_ALL_PICTURES:
            flags = Gst.SeekFlags.FLUSH | Gst.SeekFlags.TRICKMODE | Gst.SeekFlags.TRICKMODE_KEY_UNITS
        elif self._tuned and abs(rate) > 1:
            flags |= Gst.SeekFlags.TRICKMODE
        # The middle of the picture: a time on its edge could be taken for its neighbour's.
        at = int((picture + 0.5) / self._rate * Gst.SECOND)
        begin, end, end_is = (at, -1, Gst.SeekType.NONE) if rate > 0 else (0, at, Gst.SeekType.SET)
        if not self._bin.seek(rate, Gst.Format.TIME, flags, Gst.SeekType.SET, begin, end_is, end):
            raise RuntimeError(f"GStreamer refuses to play at {rate}")

    def play(self, speed, options):
        if speed == 1:
            self._begin(Gst.State.PLAYING)
            return
        # A rate can be asked for once the file is open; what was shown until then does not count.
        self._begin(Gst.State.PAUSED)
        self._log.forget()
        self._seek(float(speed), 0 if speed > 0 else options.pictures - 1)
        self._bin.set_state(Gst.State.PLAYING)

    def stand(self, picture, _):
        self._begin(Gst.State.PAUSED)
        self._seek(1.0, picture)
        self._await()

    def step_back(self, picture):
        # There is no step back: a seek to the picture before is what its players do.
        self._seek(1.0, picture)

    def jump(self, picture):
        self._seek(1.0, picture)


if __name__ == "__main__":
    player_run.run(Player)
