"""Orientation of a camera, and path of the virtual camera, from a gyroscope's rates."""

from __future__ import annotations

from typing import NamedTuple

import numpy.typing as npt

from . import _core
from .checks import Doubles, focal_length_of, integer, number, seconds_of, times_of, vectors_of
from .errors import ParameterError


def _rates(times: npt.ArrayLike, rates: npt.ArrayLike) -> tuple[Doubles, Doubles]:
    seconds = times_of("rate_times", times, 2)
    return seconds, vectors_of("rates", rates, len(seconds))


def orientation_track(
    times: npt.ArrayLike, rate_times: npt.ArrayLike, rates: npt.ArrayLike
) -> Doubles:
    """Orientation of a camera over time, by its gyroscope.

    Args:
        times: seconds, (N,), in order, on the log's clock.
        rate_times: seconds, (M,).
        rates: rad/s about the device's axes, (M, 3).

    Returns:
        Unit quaternions w, x, y, z, (N, 4), from the device's axes to its axes at the first rate.
    """
    orientations: Doubles = _core.orientations_at(
        times_of("times", times, 0), *_rates(rate_times, rates)
    )
    return orientations


class LensDistortion(NamedTuple):
    """Lens that is no pinhole's: distance r of a ray's pixel from the picture's middle, in focal
    lengths, by the ray's angle t from the optical axis.

    The formulas are those of OpenCV's modules calib3d and calib3d::fisheye, radial part:

    - "polynomial": r = s (1 + k1 s^2 + k2 s^4 + k3 s^6) / (1 + k4 s^2), s = tan t
    - "fisheye": r = t (1 + k1 t^2 + k2 t^4 + k3 t^6 + k4 t^8)
    - "none": r = tan t
    """

    model: str
    k1: float = 0.0
    k2: float = 0.0
    k3: float = 0.0
    k4: float = 0.0


def _checked_lens(lens: LensDistortion) -> tuple[str, tuple[float, ...]]:
    if not isinstance(lens, LensDistortion):
        raise ParameterError("lens", repr(lens), "a LensDistortion or None")
    coefficients = (
        number(f"lens.k{i}", k, "a finite number") for i, k in enumerate(lens[1:], 1)
    )
    return str(lens.model), tuple(coefficients)


class VirtualPath(NamedTuple):
    """Path of the virtual camera over a clip."""

    orientations: Doubles
    """Unit quaternions w, x, y, z, (N, 4), as those of `orientation_track`."""
    share_used: Doubles
    """Share of the margin that each frame uses, (N,): 0 for none, 1 if the output's border touches
    that of the input."""
    zooms: Doubles
    """Factor of the output's focal length at each frame, (N,): below 1 where more is shown than the
    crop."""
    crop_percent: float
    """Share of the input's sides that the output shows where the zoom is 1: as given, or chosen."""
    focal_length: float
    """Pixels of the output, where the zoom is 1."""


def optimal_path(
    times: npt.ArrayLike,
    rate_times: npt.ArrayLike,
    rates: npt.ArrayLike,
    *,
    width: int,
    height: int,
    focal_length: float,
    readout_time: float,
    lens: LensDistortion | None = None,
    straightens: bool = False,
    output_width: int = 0,
    output_height: int = 0,
    crop_percent: float | None = 80.0,
    zooms: bool = False,
    smoothing_level: int = 9,
    gravity_times: npt.ArrayLike | None = None,
    gravity: npt.ArrayLike | None = None,
    horizon_percent: float = 0.0,
) -> VirtualPath:
    """Path of least speed, acceleration and jerk on which every output pixel has a source: what
    the program's offline engine follows, before it looks at the pictures.

    Args:
        times: seconds at which each frame's first row is read, (N,), in order, on the log's clock.
        rate_times: seconds, (M,).
        rates: rad/s about the device's axes, (M, 3).
        width: pixels of the input, 2 to 65536.
        height: pixels of the input, 2 to 65536.
        focal_length: pixels of the input in the picture's middle, above 0.
        readout_time: seconds, at least 0.
        lens: of the input; None for a pinhole.
        straightens: True: the output shows straight lines as such; False: it has the input's lens.
        output_width: pixels; 0: the input's.
        output_height: pixels; 0: the input's.
        crop_percent: share of the input's sides that the output shows, above 0, at most 100; None:
            the largest from 70 to 98 that forces no shake into the path that can be seen.
        zooms: True: shows up to 98 % where the path leaves room.
        smoothing_level: 1 to 10; the path follows motion slower than about 1.3^(level - 9) s.
        gravity_times: seconds, (K,), at least one.
        gravity: m/s^2 along the device's axes, (K, 3), as in `MotionLog.gravity`.
        horizon_percent: share of the camera's roll that is levelled, 0 to 100, as far as the margin
            leaves room; above 0 only with gravity.

    Raises ParameterError.
    """
    width = integer("width", width, 2, 65536)
    height = integer("height", height, 2, 65536)
    if crop_percent is not None:
        crop_percent = number(
            "crop_percent", crop_percent, "above 0, at most 100; or None", above=0.0, most=100.0
        )
    horizon_percent = number("horizon_percent", horizon_percent, "0 to 100", least=0.0, most=100.0)
    samples = None
    if horizon_percent > 0.0:
        if gravity is None or gravity_times is None:
            raise ParameterError("horizon_percent", horizon_percent, "0 without gravity")
        felt = times_of("gravity_times", gravity_times, 1)
        samples = (felt, vectors_of("gravity", gravity, len(felt)))
    found = _core.optimal_path(
        times_of("times", times, 1),
        *_rates(rate_times, rates),
        width,
        height,
        focal_length_of("focal_length", focal_length),
        seconds_of("readout_time", readout_time, least=0.0),
        None if lens is None else _checked_lens(lens),
        bool(straightens),
        integer("output_width", output_width, 0, 65536) or width,
        integer("output_height", output_height, 0, 65536) or height,
        crop_percent,
        bool(zooms),
        integer("smoothing_level", smoothing_level, 1, 10),
        samples,
        horizon_percent / 100.0,
    )
    return VirtualPath(**found)
