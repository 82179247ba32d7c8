"""The C library by ctypes, to compare the package's bytes with."""

from __future__ import annotations

import ctypes
import os
from typing import Iterator

import framehold
import numpy as np


class Image(ctypes.Structure):
    _fields_ = [
        ("format", ctypes.c_uint32),
        ("width", ctypes.c_int32),
        ("height", ctypes.c_int32),
        ("plane", ctypes.c_void_p * 4),
        ("pitch", ctypes.c_int32 * 4),
    ]


class Param(ctypes.Structure):
    _fields_ = [
        ("input_image", Image),
        ("output_image", Image),
        ("field_of_view", ctypes.c_double),
        ("field_of_view_mode", ctypes.c_int32),
        ("readout_time", ctypes.c_double),
        ("time_offset", ctypes.c_double),
        ("reserved", ctypes.c_uint8 * 24),
        ("sensor_mask", ctypes.c_int32),
        ("crop_percent", ctypes.c_int32),
        ("smoothing_level", ctypes.c_int32),
        ("delay_frames", ctypes.c_int32),
    ]


def image_of(width: int, height: int, pixels: np.ndarray | None = None) -> Image:
    image = Image(0x801, width, height)
    image.pitch[:2] = [width, width]
    if pixels is not None:
        image.plane[:2] = [pixels.ctypes.data, pixels.ctypes.data + width * height]
    return image


class CLibrary:
    """An instance of the library."""

    def __init__(self, p: framehold.Parameters) -> None:
        self.library = ctypes.CDLL(os.environ["FRAMEHOLD_LIBRARY"])
        self.parameters = p
        self.process = os.getpid()
        self.param = Param()
        self.handle = ctypes.c_void_p()
        assert self.library.ZPR_GetDefaultParam(ctypes.byref(self.param)) == 0
        self.param.input_image = image_of(p.width, p.height)
        self.param.output_image = image_of(p.output_width, p.output_height)
        for name, _ in Param._fields_[2:]:
            if hasattr(p, name):
                setattr(self.param, name, getattr(p, name))
        code = self.library.ZPR_Init(None, ctypes.byref(self.param), ctypes.byref(self.handle))
        assert code == 0

    def __del__(self) -> None:
        if self.process != os.getpid():  # a forked child has none of its threads
            return
        self.library.ZPR_Deinit(ctypes.byref(self.handle))

    def push(self, samples: np.ndarray) -> None:
        for i in range(len(samples)):
            record = samples[i : i + 1].ctypes.data
            assert self.library.ZPR_SetSensorData(self.handle, ctypes.c_void_p(record)) == 0

    def stabilize(self, frame: np.ndarray | None, time: float, output: np.ndarray) -> bool:
        """False if the frame was buffered, or there is none left."""
        p = self.parameters
        to = image_of(p.output_width, p.output_height, output)
        given = None if frame is None else ctypes.byref(image_of(p.width, p.height, frame))
        code = self.library.ZPR_Stabilize(
            self.handle, ctypes.c_double(time), given, ctypes.byref(to), None
        )
        assert code in ((0, 10) if frame is not None else (0, 2))
        return bool(code == 0)


def black(p: framehold.Parameters) -> np.ndarray:
    frame = np.full((p.output_height * 3 // 2, p.output_width), 16, np.uint8)
    frame[p.output_height :] = 128
    return frame


def clip_of(p: framehold.Parameters, count: int) -> Iterator[tuple[np.ndarray, float, np.ndarray]]:
    """Frames of noise, their times, and the samples of a shaking hand to feed before each."""
    rng = np.random.default_rng(7)
    end = 1.0
    first = True
    for i in range(count):
        time = 1.1 + i / 30.0
        times = np.arange(end, time + 0.06, 0.005)
        end = float(times[-1]) + 0.005
        samples = np.zeros(len(times) + first, framehold.SAMPLE_DTYPE)
        samples["type"] = framehold.SensorType.RATE_1
        samples["time"][-len(times) :] = times
        wave = 9.0 * samples["time"][:, None] + np.arange(3)
        samples["value"][:, :3] = 0.3 * np.sin(wave)
        if first:
            samples[0] = (framehold.SensorType.GRAVITY_1, times[0], (9.81, 0.0, 0.0, 0.0))
            first = False
        yield rng.integers(0, 256, (p.height * 3 // 2, p.width), np.uint8), time, samples
