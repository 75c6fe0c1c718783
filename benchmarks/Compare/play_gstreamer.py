#!/usr/bin/env python3
"""Plays one case with GStreamer's playbin, several tracks in one pipeline: an appsink that keeps time is the display.

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
    def __init__(self, options, logs):
        Gst.init(None)
        self._rate = options.rate
        self._tuned = options.tuned
        self._uri = pathlib.Path(options.clip).resolve().as_uri()
        self._logs = logs
        self._sinks = [self._make_sink(log) for log in logs]
        self._bin = self._make_playbin() if len(logs) == 1 else self._make_tracks()
        threading.Thread(target=GLib.MainLoop().run, daemon=True).start()

    def _make(self, name):
        element = Gst.ElementFactory.make(name, None)
        if element is None:
            raise RuntimeError(f"GStreamer's {name} is not installed")
        return element

    def _make_sink(self, log):
        sink = self._make("appsink")
        sink.set_property("caps", Gst.Caps.from_string("video/x-raw,format={I420,YV12,NV12,Y42B,Y444}"))
        sink.set_property("sync", True)
        sink.set_property("emit-signals", True)
        sink.set_property("max-buffers", 1)
        sink.set_property("drop", True)
        sink.connect("new-sample", self._shown, "pull-sample", log)
        sink.connect("new-preroll", self._shown, "pull-preroll", log)
        return sink

    def _make_playbin(self):
        playbin = self._make("playbin")
        playbin.set_property("flags", VIDEO_ONLY)
        playbin.set_property("video-sink", self._sinks[0])
        playbin.set_property("uri", self._uri)
        return playbin

    def _make_tracks(self):
        """One pipeline, so that all tracks have one clock, one state and one speed."""
        pipeline = Gst.Pipeline()
        for sink in self._sinks:
            source = self._make("uridecodebin")
            source.set_property("uri", self._uri)
            source.connect("pad-added", self._link, sink)
            pipeline.add(source)
            pipeline.add(sink)
        return pipeline

    @staticmethod
    def _link(_, pad, sink):
        if pad.get_current_caps().get_structure(0).get_name().startswith("video/"):
            pad.link(sink.get_static_pad("sink"))

    @staticmethod
    def _shown(sink, how, log):
        sample = sink.emit(how)
        if sample is None:  # It is being taken down.
            return Gst.FlowReturn.EOS
        info = GstVideo.VideoInfo.new_from_caps(sample.get_caps())
        buffer = sample.get_buffer()
        meta = GstVideo.buffer_get_video_meta(buffer)
        stride = meta.stride[0] if meta is not None else info.stride[0]
        offset = (meta.offset[0] if meta is not None else 0) + bar_code.row_of(info.height) * stride
        number = bar_code.read(buffer.extract_dup(offset, info.width))
        if number is not None:
            log.note(number)
        return Gst.FlowReturn.OK

    def _await(self):
        status, _, _ = self._bin.get_state(20 * Gst.SECOND)
        if status == Gst.StateChangeReturn.FAILURE:
            raise RuntimeError("GStreamer cannot play the clip; gstreamer1.0-libav may be missing")

    def _begin(self, state):
        self._bin.set_state(state)
        self._await()

    def _flags(self, rate):
        if self._tuned and abs(rate) > FASTEST_WITH_ALL_PICTURES:
            return Gst.SeekFlags.TRICKMODE | Gst.SeekFlags.TRICKMODE_KEY_UNITS
        if self._tuned and abs(rate) > 1:
            return Gst.SeekFlags.ACCURATE | Gst.SeekFlags.TRICKMODE
        return Gst.SeekFlags.ACCURATE

    def _seek(self, rate, picture, flags=None):
        # The middle of the picture: a time on its edge could be taken for its neighbour's.
        at = int((picture + 0.5) / self._rate * Gst.SECOND)
        # Without an end of its own, a seek forward would keep that of the one backward before it.
        begin, end = (at, -1) if rate > 0 else (0, at)
        flags = Gst.SeekFlags.FLUSH | (self._flags(rate) if flags is None else flags)
        if not self._bin.seek(rate, Gst.Format.TIME, flags, Gst.SeekType.SET, begin, Gst.SeekType.SET, end):
            raise RuntimeError(f"GStreamer refuses to play at {rate}")

    def play(self, speed, picture):
        if speed == 1 and picture == 0:
            self._begin(Gst.State.PLAYING)
            return
        # A place and a rate can be asked for once the file is open; what was shown until then does not count.
        self._begin(Gst.State.PAUSED)
        for log in self._logs:
            log.forget()
        self._play_from(speed, picture)

    def _play_from(self, speed, picture):
        self._seek(float(speed), picture)
        self._bin.set_state(Gst.State.PLAYING)

    def close(self):
        self._bin.set_state(Gst.State.NULL)

    def stand(self, picture):
        self._begin(Gst.State.PAUSED)
        self._seek(1.0, picture)
        self._await()

    stand_again = stand

    def play_backward_from(self, picture):
        self._play_from(-1.0, picture)

    def turn(self, speed, picture):
        self._seek(float(speed), picture)

    def step(self, picture, by):
        if by > 0:
            self._sinks[0].send_event(Gst.Event.new_step(Gst.Format.BUFFERS, by, 1.0, True, False))
        else:
            # There is no step back: a seek to the picture before is what its players do.
            self._seek(1.0, picture)

    def jump(self, picture):
        self._seek(1.0, picture)

    def drag(self, picture):
        """Exact, or, by a hand that knows its manual, to the nearest key frame until the mouse stops."""
        self._seek(1.0, picture, Gst.SeekFlags.KEY_UNIT | Gst.SeekFlags.SNAP_NEAREST if self._tuned else None)


if __name__ == "__main__":
    player_run.run(Player)
