"""Parameters of a stabilizer."""

from __future__ import annotations

import math
from dataclasses import dataclass
from enum import IntEnum

from .checks import integer, number, seconds_of

_INT_MAX = 2**31 - 1


class SensorType(IntEnum):
    """Kind of a motion sensor's samples."""

    GRAVITY_1 = 1
    """Gravity (accelerometer) along device x, y, z in m/s^2; at rest it points up."""
    GRAVITY_2 = 2
    """Another name for the same input."""
    RATE_1 = 3
    """Angular rate about device x, y, z in rad/s."""
    RATE_2 = 4
    """Another name for the same input."""
    ROTATION_1 = 5
    """Orientation, device to world, unit quaternion x, y, z, w; used before all others."""
    ROTATION_2 = 6
    """Orientation; used if ROTATION_1 is not enabled."""


class FieldOfViewMode(IntEnum):
    """Meaning of `Parameters.field_of_view`."""

    WIDTH = 1
    """Degrees across the input width."""
    HEIGHT = 2
    """Degrees across the input height."""
    DIAGONAL = 3
    """Degrees across the input diagonal."""
    FOCAL_LENGTH = 4
    """Focal length in input pixels."""


def sensor_mask(*types: int) -> int:
    """Mask that enables these sensor types, for `Parameters.sensor_mask`."""
    mask = 0
    for sensor_type in types:
        mask |= 1 << (SensorType(sensor_type) - 1)
    return mask


@dataclass(frozen=True, kw_only=True, match_args=False)
class Parameters:
    """Parameters of a `Stabilizer`. Values out of their range raise `ParameterError`.

    The defaults of field_of_view, readout_time and time_offset are those of one camera: every
    phone has its own, for each camera and mode. `calibrate` finds them from a clip.

    Attributes:
        width: pixels of every input frame; even, at least 2.
        height: rows of every input frame; even, at least 2.
        sensor_mask: sensor types that are enabled, 1 to 63; see the function `sensor_mask`.
            Orientations come from type 5 if enabled, else from 6, else from the fusion of rates
            (3, 4) with gravity (1, 2), which needs both kinds. Default: gravity and rates, 1 and 3.
        output_width: pixels of every output frame; even, at most width. Default: width.
        output_height: rows of every output frame; even, at most height. Default: height.
        field_of_view: degrees over the dimension that field_of_view_mode names, above 0, at most
            180; for FOCAL_LENGTH the focal length in input pixels, above 0.
        field_of_view_mode: see `FieldOfViewMode`, 1 to 4.
        readout_time: seconds from the exposure of a frame's first row to that of its last, at
            least 0.
        time_offset: seconds that are added to a frame's time to bring it to the sensors' clock.
        crop_percent: share of the input's width and height that the output shows, 1 to 100; the
            rest is the margin for corrections.
        smoothing_level: strength, 1 (follow the hand) to 10 (strongest).
        delay_frames: frames that are held back so that the smoother sees the coming motion, at
            least 0. With a delay, samples may come at some 470 (30 frames) to 890 (15) per second.
    """

    width: int
    height: int
    sensor_mask: int = 5
    output_width: int = 0
    output_height: int = 0
    field_of_view: float = 65.4002
    field_of_view_mode: int = FieldOfViewMode.WIDTH
    readout_time: float = 0.0299
    time_offset: float = -0.0411
    crop_percent: int = 80
    smoothing_level: int = 9
    delay_frames: int = 0

    def __post_init__(self) -> None:
        def put(field: str, value: float) -> None:
            object.__setattr__(self, field, value)

        for side in ("width", "height"):
            put(side, integer(side, getattr(self, side), 2, _INT_MAX - 1, 2))
            output = getattr(self, "output_" + side) or getattr(self, side)
            put("output_" + side, integer("output_" + side, output, 2, getattr(self, side), 2))
        for field, low, high in (
            ("sensor_mask", 1, 63),
            ("field_of_view_mode", 1, 4),
            ("crop_percent", 1, 100),
            ("smoothing_level", 1, 10),
            ("delay_frames", 0, _INT_MAX),
        ):
            put(field, integer(field, getattr(self, field), low, high))
        is_focal = self.field_of_view_mode == FieldOfViewMode.FOCAL_LENGTH
        view = "above 0 (pixels)" if is_focal else "above 0, at most 180 (degrees)"
        limits = {"above": 0.0, "most": math.inf if is_focal else 180.0}
        put("field_of_view", number("field_of_view", self.field_of_view, view, **limits))
        put("readout_time", seconds_of("readout_time", self.readout_time, least=0.0))
        put("time_offset", seconds_of("time_offset", self.time_offset))
