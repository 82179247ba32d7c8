"""Framehold: real-time video stabilization with motion sensors.

Angles are in radians and times in seconds unless a name or a comment says otherwise. Quaternions
rotate device coordinates into world coordinates; the order of their components is stated where
they are.
"""

from ._core import FileError, MediaError, __version__
from .errors import ParameterError
from .parameters import FieldOfViewMode, Parameters, SensorType, sensor_mask
from .paths import LensDistortion, VirtualPath, optimal_path, orientation_track
from .research import (
    Calibration,
    Clip,
    Lens,
    Measures,
    MotionLog,
    SensorReadings,
    SimulatedCamera,
    Value,
    calibrate,
    measure,
    read_motion_log,
)
from .stabilizer import SAMPLE_DTYPE, Frame, Sample, Stabilizer, smoothing_levels, stabilized

__all__ = [
    "SAMPLE_DTYPE",
    "Calibration",
    "Clip",
    "FieldOfViewMode",
    "FileError",
    "Frame",
    "Lens",
    "LensDistortion",
    "Measures",
    "MediaError",
    "MotionLog",
    "ParameterError",
    "Parameters",
    "Sample",
    "SensorReadings",
    "SensorType",
    "SimulatedCamera",
    "Stabilizer",
    "Value",
    "VirtualPath",
    "__version__",
    "calibrate",
    "measure",
    "optimal_path",
    "orientation_track",
    "read_motion_log",
    "sensor_mask",
    "smoothing_levels",
    "stabilized",
]
