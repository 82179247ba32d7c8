"""Orientation of a camera, and path of the virtual camera, from a gyroscope's rates."""

from __future__ import annotations

from typing import NamedTuple

import numpy.typing as npt

from . import _core
from .checks import Doubles, require, times_of, vectors_of


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


class VirtualPath(NamedTuple):
    """Path of the virtual camera over a clip."""

    orientations: Doubles
    """Unit quaternions w, x, y, z, (N, 4), as those of `orientation_track`."""
    share_used: Doubles
    """Share of the margin that each frame uses, (N,): 0 for none, 1 if the output's border touches
    that of the input."""


def optimal_path(
    times: npt.ArrayLike,
    rate_times: npt.ArrayLike,
    rates: npt.ArrayLike,
    *,
    width: int,
    height: int,
    focal_length: float,
    readout_time: float,
    output_width: int = 0,
    output_height: int = 0,
    crop_percent: float = 80.0,
    smoothing_level: int = 9,
) -> VirtualPath:
    """Path of least speed, acceleration and jerk on which every output pixel has a source: what
    the program's offline engine follows for a camera without a lens, before it looks at the
    pictures.

    Args:
        times: seconds at which each frame's first row is read, (N,), in order, on the log's clock.
        rate_times: seconds, (M,).
        rates: rad/s about the device's axes, (M, 3).
        width: pixels of the input.
        height: pixels of the input.
        focal_length: pixels of the input, above 0.
        readout_time: seconds, at least 0.
        output_width: pixels; 0: the input's.
        output_height: pixels; 0: the input's.
        crop_percent: share of the input's sides that the output shows, above 0, at most 100.
        smoothing_level: 1 to 10.
    """
    require(
        ("width", width, width >= 2, "at least 2"),
        ("height", height, height >= 2, "at least 2"),
        ("focal_length", focal_length, focal_length > 0.0, "above 0 (pixels)"),
        ("readout_time", readout_time, readout_time >= 0.0, "at least 0 (seconds)"),
        ("output_width", output_width, output_width >= 0, "at least 0"),
        ("output_height", output_height, output_height >= 0, "at least 0"),
        ("crop_percent", crop_percent, 0.0 < crop_percent <= 100.0, "above 0, at most 100"),
        ("smoothing_level", smoothing_level, 1 <= smoothing_level <= 10, "1 to 10"),
    )
    orientations, share_used = _core.optimal_path(
        times_of("times", times, 1),
        *_rates(rate_times, rates),
        width,
        height,
        focal_length,
        readout_time,
        output_width or width,
        output_height or height,
        crop_percent / 100.0,
        smoothing_level,
    )
    return VirtualPath(orientations, share_used)
