"""Framehold: real-time video stabilization with motion sensors.

Angles are in radians and times in seconds unless a name or a comment says otherwise. Quaternions
rotate device coordinates into world coordinates; the order of their components is stated where
they are.
"""

from ._core import __version__
from .errors import ParameterError
from .parameters import FieldOfViewMode, Parameters, SensorType, sensor_mask
from .stabilizer import SAMPLE_DTYPE, Frame, Sample, Stabilizer, stabilized

__all__ = [
    "SAMPLE_DTYPE",
    "FieldOfViewMode",
    "Frame",
    "ParameterError",
    "Parameters",
    "Sample",
    "SensorType",
    "Stabilizer",
    "__version__",
    "sensor_mask",
    "stabilized",
]
