"""Motion logs, calibration, measures and simulated cameras, as arrays.

Long work can be interrupted (Ctrl-C), and other Python threads run meanwhile.
"""

from __future__ import annotations

import math
import os
from collections.abc import Sequence
from dataclasses import dataclass, replace
from typing import NamedTuple, Union

import numpy as np
import numpy.typing as npt

from . import _core
from .checks import Doubles, focal_length_of, integer, number, seconds_of, times_of, vectors_of
from .errors import ParameterError
from .parameters import SensorType
from .paths import LensDistortion
from .stabilizer import SAMPLE_DTYPE

Path = Union[str, "os.PathLike[str]"]

_STANDARD_GRAVITY = 9.81  # m/s^2, as the library has it


def _axis_matrix(axes: object) -> Doubles:
    """Matrix by which logged axes become device axes. Raises ParameterError."""
    try:
        matrix: Doubles = _core.axis_matrix(str(axes))
    except ValueError:
        raise ParameterError("axes", repr(axes), "X, Y and Z, each once, as XYZ or YxZ") from None
    return matrix


@dataclass(frozen=True)
class MotionLog:
    """Motion log. Samples are in order of time and, until `in_device_axes`, in the logged axes.

    Attributes:
        format: the format that was found, with its version if it has one.
        files: what was read.
        notes: assumptions that were made, and what was left out.
        headers: keys and values of the log's head.
        rate_times: seconds, (N,).
        rates: angular rates about x, y, z in rad/s, (N, 3); each is the mean since the one before.
        gravity_times: seconds, (M,).
        gravity: along x, y, z in m/s^2, (M, 3); at rest it points up.
        orientation_times: seconds, (K,).
        orientations: unit quaternions w, x, y, z, (K, 4), from the logged axes to the world.
        axes: from logged to device axes: the logged axis that each device axis is read from, in
            lower case if negated, as "XYZ" or "YxZ".
        readout_time: seconds, if the log says it.
    """

    format: str
    files: list[str]
    notes: list[str]
    headers: dict[str, str]
    rate_times: Doubles
    rates: Doubles
    gravity_times: Doubles
    gravity: Doubles
    orientation_times: Doubles
    orientations: Doubles
    axes: str
    readout_time: float | None

    def in_device_axes(self, axes: str | None = None) -> MotionLog:
        """The log with rates and gravity in device axes, by `axes` or by the log's own.

        Logs of orientations are not turned: ValueError if axes differ from "XYZ".
        """
        letters = self.axes if axes is None else axes
        matrix = _axis_matrix(letters)
        if len(self.orientations) and letters != "XYZ":
            raise ParameterError("axes", letters, "XYZ for a log of orientations")
        return replace(
            self, rates=self.rates @ matrix.T, gravity=self.gravity @ matrix.T, axes="XYZ"
        )

    def samples(self, gravity: Sequence[float] | None = None) -> npt.NDArray[np.void]:
        """Array of `SAMPLE_DTYPE` to feed to a `Stabilizer`: one of gravity, then all rates.

        Gravity is that of the log's first second; `gravity` (x, y, z in m/s^2) replaces it, and
        where the log has none, the picture's top is taken for up. Call `in_device_axes` first.
        """
        if not len(self.rates):
            raise ValueError("the log holds no angular rates")
        if gravity is None:
            gravity = (_STANDARD_GRAVITY, 0.0, 0.0)
            first = self.gravity[self.gravity_times <= self.gravity_times[:1].sum() + 1.0]
            if len(first):
                # One after the other, so that the last bit is that of the program.
                gravity = [sum(first[:, axis].tolist()) / len(first) for axis in range(3)]
        samples = np.zeros(len(self.rates) + 1, SAMPLE_DTYPE)
        samples["type"] = SensorType.RATE_1
        samples["time"][1:] = self.rate_times
        samples["value"][1:, :3] = self.rates
        samples["type"][0] = SensorType.GRAVITY_1
        samples["time"][0] = self.rate_times[0]
        samples["value"][0, :3] = vectors_of("gravity", [gravity], 1)[0]
        return samples


def read_motion_log(path: Path) -> MotionLog:
    """Reads a motion log of any known format, or the telemetry in a video. Raises FileError."""
    fields = _core.read_motion_log(os.fsencode(path))
    return MotionLog(**fields)


class Value(NamedTuple):
    """Value that was found by a calibration."""

    value: float
    deviation: float
    """One standard deviation."""
    confidence: str
    """"given", "well determined", "weak", or "unobservable": not usable."""


class Lens(NamedTuple):
    """Lens that is no pinhole's, see docs/program.md."""

    model: str
    k1: Value
    k2: Value

    @property
    def distortion(self) -> LensDistortion:
        """The lens for `optimal_path`."""
        return LensDistortion(self.model, self.k1.value, self.k2.value)


class Clip(NamedTuple):
    """Clip to calibrate with."""

    video: Path
    motion: Path | None = None
    """Motion log; None: the telemetry in the video."""
    times: Sequence[float] | Doubles = ()
    """Seconds of each frame, (N,); empty: the video's own timestamps."""


@dataclass(frozen=True)
class Calibration:
    """Camera and clocks of clips.

    Attributes:
        width: pixels.
        height: pixels.
        focal_length: pixels.
        readout_time: seconds.
        time_offsets: for each clip, seconds that are added to a frame's timestamp.
        clock_drifts: for each clip, seconds that the log's clock gains per second.
        axes: see `MotionLog.axes`.
        axes_confidence: see `Value.confidence`.
        lens: None for a pinhole.
        reprojection_error: pixels, median distance of tracked features from predicted.
        reprojection_error_at_rest: the same without the log.
        explained_variance: share of the picture's shake that the log explains, 0 to 1.
    """

    width: int
    height: int
    focal_length: Value
    readout_time: Value
    time_offsets: list[Value]
    clock_drifts: list[Value]
    axes: str
    axes_confidence: str
    lens: Lens | None
    reprojection_error: float
    reprojection_error_at_rest: float
    explained_variance: float


def calibrate(
    clips: Sequence[Clip],
    *,
    focal_length: float | None = None,
    readout_time: float | None = None,
    time_offset: float | None = None,
    axes: str | None = None,
    finds_lens: bool = False,
    search_range: float = math.inf,
    seconds: float = 60.0,
    frames_per_second: float = 30.0,
) -> Calibration:
    """Finds the camera of clips and their clocks; what is given is kept.

    Args:
        clips: clips of one camera and mode, each with its log.
        focal_length: pixels.
        readout_time: seconds.
        time_offset: seconds.
        axes: see `MotionLog.axes`.
        finds_lens: True: looks for a lens where the clips show one; the library knows none.
        search_range: seconds to either side in which time offsets are searched.
        seconds: of each clip that are looked at, at frames_per_second.

    Raises ParameterError; FileError and MediaError for files; RuntimeError for clips that are not
    enough.
    """
    files = []
    for clip in clips:
        if not isinstance(clip, Clip):
            raise ParameterError("clips", f"with {clip!r} in it", "a sequence of Clip")
        times = times_of("times", clip.times, 0).tolist()
        files.append((os.fsencode(clip.video), os.fsencode(clip.motion or clip.video), times))
    if not files:
        raise ParameterError("clips", "empty", "one or more")
    if axes is not None:
        _axis_matrix(axes)
    if search_range != math.inf:
        number("search_range", search_range, "above 0 (seconds)", above=0.0)
    looked_at = number("seconds", seconds, "above 0, at most 86400", above=0.0, most=86400.0)
    rate = number(
        "frames_per_second", frames_per_second, "above 0, at most 10000", above=0.0, most=1e4
    )
    found = _core.calibrate(
        files,
        None if focal_length is None else focal_length_of("focal_length", focal_length),
        None if readout_time is None else seconds_of("readout_time", readout_time, least=0.0),
        None if time_offset is None else seconds_of("time_offset", time_offset),
        axes,
        bool(finds_lens),
        search_range,
        math.ceil(looked_at * rate),
    )
    for field in ("focal_length", "readout_time"):
        found[field] = Value(*found[field])
    for field in ("time_offsets", "clock_drifts"):
        found[field] = [Value(*value) for value in found[field]]
    if found["lens"] is not None:
        model, k1, k2 = found["lens"]
        found["lens"] = Lens(model, Value(*k1), Value(*k2))
    return Calibration(**found)


@dataclass(frozen=True)
class Measures:
    """Shake of a clip, see docs/measures.md.

    Attributes:
        width: pixels.
        height: pixels.
        times: seconds of each frame, (N,).
        path: of the whole picture, (N, 4): pixels to the right, pixels down, radians clockwise for
            the viewer, natural logarithm of the scale.
        shake: the part of the path above the cut-off frequency, (N, 4).
        figures: what `framehold measure` prints, by its names, which end in the unit.
        lost_frames: number of frames whose motion was not found.
        losses: what of the video could not be read.
    """

    width: int
    height: int
    times: Doubles
    path: Doubles
    shake: Doubles
    figures: dict[str, float | None]
    lost_frames: int
    losses: list[str]


def measure(video: Path, *, cutoff: float = 1.0) -> Measures:
    """Measures a clip. cutoff: Hz; slower motion is not shake. Raises MediaError."""
    cutoff = number("cutoff", cutoff, "0.05 to 10 (Hz)", least=0.05, most=10.0)
    return Measures(**_core.measure(os.fsencode(video), cutoff))


class SensorReadings(NamedTuple):
    """Readings of a simulated phone's sensors, in device axes."""

    times: Doubles
    """Seconds, (N,)."""
    rates: Doubles
    """rad/s, (N, 3), each the mean since the reading before."""
    gravity: Doubles
    """m/s^2, (N, 3), pointing up, with the camera's acceleration."""


def _clip_time(field: str, time: object) -> float:
    return number(field, time, "-1e6 to 1e6 (seconds)", least=-1e6, most=1e6)


class SimulatedCamera:
    """Hand-held camera with a rolling shutter before a made-up world, all of whose motion is known.

    Args:
        width: pixels, even, at least 2.
        height: pixels, even, at least 2.
        focal_length: pixels, above 0.
        readout_time: seconds, at least 0.
        shake: degrees, amplitude of the hand's shake, 0 to 180.
        pan: degrees by which the camera pans to and fro, in 12 s; -3600 to 3600.
        walks: True: through a street, with steps; False: before a far town.
        seed: of the shake.
    """

    def __init__(
        self,
        width: int = 1280,
        height: int = 720,
        *,
        focal_length: float = 1000.0,
        readout_time: float = 0.0299,
        shake: float = 1.0,
        pan: float = 20.0,
        walks: bool = False,
        seed: int = 1,
    ) -> None:
        self.width = integer("width", width, 2, 65536, 2)
        self.height = integer("height", height, 2, 65536, 2)
        self.focal_length = focal_length_of("focal_length", focal_length)
        self.readout_time = seconds_of("readout_time", readout_time, least=0.0)
        self._camera = _core.SimulatedCamera(
            self.width,
            self.height,
            self.focal_length,
            self.readout_time,
            number("shake", shake, "0 to 180 (degrees)", least=0.0, most=180.0),
            number("pan", pan, "-3600 to 3600 (degrees)", least=-3600.0, most=3600.0),
            bool(walks),
            integer("seed", seed, 0, 2**32 - 1),
        )

    def frame(self, time: float) -> npt.NDArray[np.uint8]:
        """Frame whose first row is read at a time in seconds: (height * 3 / 2, width), luma rows
        above rows of chroma pairs, limited range.
        """
        picture: npt.NDArray[np.uint8] = self._camera.frame(_clip_time("time", time))
        return picture

    def orientations(self, times: npt.ArrayLike, *, steady: bool = False) -> Doubles:
        """True orientations at times (N,): unit quaternions w, x, y, z, (N, 4), from device to
        world. steady: without shake and steps.
        """
        track: Doubles = self._camera.orientations(times_of("times", times, 0), steady)
        return track

    def sensors(
        self,
        start: float,
        end: float,
        *,
        rate: float = 200.0,
        rate_noise: float = 0.0,
        gravity_noise: float = 0.0,
        seed: int = 1,
    ) -> SensorReadings:
        """Readings from `start` to `end` in seconds, `rate` per second. Standard deviations of the
        noise: rad/s and m/s^2.
        """
        start = _clip_time("start", start)
        end = _clip_time("end", end)
        if end < start:
            raise ParameterError("end", end, f"at least start, {start}")
        rate = number("rate", rate, "above 0 (Hz)", above=0.0)
        if (end - start) * rate > 1e8:
            raise ParameterError("rate", rate, "at most 1e8 readings in all")
        return SensorReadings(
            *self._camera.sensors(
                start,
                end,
                rate,
                number("rate_noise", rate_noise, "at least 0 (rad/s)", least=0.0),
                number("gravity_noise", gravity_noise, "at least 0 (m/s^2)", least=0.0),
                integer("seed", seed, 0, 2**32 - 1),
            )
        )
