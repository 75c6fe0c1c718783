#!/usr/bin/env python3
"""Plays one case with mpv, through its library: pictures are handed to us at the moment they are due on show.

The display is the library's own software renderer, and what it shows is cut to the strip with the bar code
before that (in mpv's filter chain, where cutting costs nothing), so that showing costs next to nothing.
"""

import ctypes
import ctypes.util
import threading

import bar_code
import player_run

WIDTH, STRIP = 640, 20  # Of what is shown of each track.
CROP = "crop=iw:floor(ih/36)*2:0:0"
RENDER_API_TYPE, RENDER_SW_SIZE, RENDER_SW_FORMAT, RENDER_SW_STRIDE, RENDER_SW_POINTER = 1, 17, 18, 19, 20
UPDATE_FRAME = 1
BYTES_PER_PIXEL = 4

# What somebody who knows its manual would set for playing to and fro; the defaults otherwise.
TUNED = {
    "hr-seek": "yes",
    "cache": "yes",
    "demuxer-max-bytes": "500MiB",
    "demuxer-max-back-bytes": "500MiB",
    "demuxer-seekable-cache": "yes",
    "video-reversal-buffer": "1GiB",
    "vd-queue-enable": "yes",
    "vd-queue-max-bytes": "600MiB",
    "vd-queue-max-samples": "250",
    "vd-queue-max-secs": "10",
}


class RenderParameter(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("data", ctypes.c_void_p)]


class Player:
    def __init__(self, options, logs):
        name = ctypes.util.find_library("mpv")
        if name is None:
            raise RuntimeError("libmpv is not installed")
        self._mpv = ctypes.CDLL(name)
        self._mpv.mpv_create.restype = ctypes.c_void_p
        self._mpv.mpv_render_context_update.restype = ctypes.c_uint64
        self._mpv.mpv_error_string.restype = ctypes.c_char_p
        self._logs = logs
        self._rate = options.rate
        self._clip = options.clip
        self._tuned = options.tuned
        self._handle = ctypes.c_void_p(self._mpv.mpv_create())
        settings = {"vo": "libmpv", "hwdec": "no", "ao": "null", "audio": "no", "config": "no",
                    "terminal": "no", "keep-open": "yes", "idle": "yes"}
        if len(logs) == 1:
            settings["vf"] = CROP
        else:
            settings.update(self._tracks(len(logs)))
        if options.tuned:
            settings.update(TUNED)
        for option, value in settings.items():
            self._set(option, value)
        self._check(self._mpv.mpv_initialize(self._handle), "mpv_initialize")
        self._begin_rendering()

    def _tracks(self, nb):
        """One file with the others beside it, their strips one above the other."""
        strips = "".join(f"[vid{track}]{CROP}[strip{track}];" for track in range(1, nb + 1))
        inputs = "".join(f"[strip{track}]" for track in range(1, nb + 1))
        return {"external-files": ":".join([self._clip] * (nb - 1)),
                "lavfi-complex": f"{strips}{inputs}vstack=inputs={nb}[vo]"}

    def _check(self, status, what):
        if status < 0:
            raise RuntimeError(f"{what}: {self._mpv.mpv_error_string(status).decode()}")

    def _set(self, option, value):
        self._check(self._mpv.mpv_set_option_string(self._handle, option.encode(), value.encode()),
                    f"{option}={value}")

    def _command(self, *words):
        array = (ctypes.c_char_p * (len(words) + 1))(*[word.encode() for word in words], None)
        self._check(self._mpv.mpv_command_async(self._handle, ctypes.c_uint64(0), array), " ".join(words))

    def _load(self, picture, **settings):
        for option, value in settings.items():
            self._set(option.replace("_", "-"), value)
        self._set("start", str(picture / self._rate))
        self._command("loadfile", self._clip)

    def _begin_rendering(self):
        self._context = ctypes.c_void_p()
        api = ctypes.create_string_buffer(b"sw")
        parameters = (RenderParameter * 2)((RENDER_API_TYPE, ctypes.cast(api, ctypes.c_void_p)), (0, None))
        self._check(self._mpv.mpv_render_context_create(ctypes.byref(self._context), self._handle, parameters),
                    "mpv_render_context_create")
        self._wake = threading.Event()
        callback = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
        self._callback = callback(lambda _: self._wake.set())
        self._mpv.mpv_render_context_set_update_callback(self._context, self._callback, None)
        threading.Thread(target=self._render, daemon=True).start()

    def _render(self):
        width, height = WIDTH, STRIP * len(self._logs)
        stride = width * BYTES_PER_PIXEL
        pixels = ctypes.create_string_buffer(stride * height + 64)
        address = (ctypes.addressof(pixels) + 63) // 64 * 64
        size = (ctypes.c_int * 2)(width, height)
        fmt = ctypes.create_string_buffer(b"rgb0")
        row_bytes = ctypes.c_size_t(stride)
        parameters = (RenderParameter * 5)(
            (RENDER_SW_SIZE, ctypes.cast(size, ctypes.c_void_p)),
            (RENDER_SW_FORMAT, ctypes.cast(fmt, ctypes.c_void_p)),
            (RENDER_SW_STRIDE, ctypes.cast(ctypes.byref(row_bytes), ctypes.c_void_p)),
            (RENDER_SW_POINTER, ctypes.c_void_p(address)),
            (0, None))
        while True:
            self._wake.wait()
            self._wake.clear()
            if self._mpv.mpv_render_context_update(self._context) & UPDATE_FRAME == 0:
                continue
            # Returns when the picture is due.
            if self._mpv.mpv_render_context_render(self._context, parameters) < 0:
                continue
            for track, log in enumerate(self._logs):
                row = STRIP * track + STRIP // 2
                number = bar_code.read(ctypes.string_at(address + row * stride, stride), BYTES_PER_PIXEL)
                if number is not None:
                    log.note(number)

    def play(self, speed, picture):
        self._load(picture, speed=str(abs(speed)), play_dir="backward" if speed < 0 else "forward")

    def close(self):
        self._command("stop")

    def stand(self, picture):
        self._load(picture, pause="yes")

    def stand_again(self, picture):
        self._set("pause", "yes")
        self._set("play-dir", "forward")
        self.jump(picture)

    def play_backward_from(self, picture):
        self._set("play-dir", "backward")
        self.jump(picture)
        self._set("pause", "no")

    def turn(self, speed, _):
        self._set("play-dir", "backward" if speed < 0 else "forward")

    def step(self, _, by):
        self._command("frame-step" if by > 0 else "frame-back-step")

    def jump(self, picture):
        self._command("seek", str(picture / self._rate), "absolute+exact")

    def drag(self, picture):
        """Exact, or, by a hand that knows its manual, to key frames until the mouse stops."""
        self._command("seek", str(picture / self._rate),
                      "absolute+keyframes" if self._tuned else "absolute+exact")


if __name__ == "__main__":
    player_run.run(Player)
