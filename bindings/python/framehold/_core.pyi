from typing import Any

import numpy as np

__version__: str
SAMPLE_DTYPE: np.dtype[np.void]

class Stabilizer:
    smoothing_level: int
    def __init__(self, parameters: Any, chooses_level: bool) -> None: ...
    @property
    def closed(self) -> bool: ...
    @property
    def last_addresses(self) -> tuple[int, int, int, int]: ...
    def push(self, sample: Any) -> None: ...
    def stabilize(self, frame: Any, time: float, out: Any = None) -> Any: ...
    def drain(self, out: Any = None) -> Any: ...
    def reset(self) -> None: ...
    def close(self) -> None: ...

def smoothing_levels(parameters: Any, samples: Any, times: Any, fed: Any) -> Any: ...

class FileError(RuntimeError): ...
class MediaError(RuntimeError): ...

def read_motion_log(path: Any) -> dict[str, Any]: ...
def axis_matrix(letters: str) -> Any: ...
def orientations_at(times: Any, rate_times: Any, rates: Any) -> Any: ...
def optimal_path(
    times: Any,
    rate_times: Any,
    rates: Any,
    width: int,
    height: int,
    focal_length: float,
    readout_time: float,
    lens: tuple[str, Any] | None,
    straightens: bool,
    output_width: int,
    output_height: int,
    crop_percent: float | None,
    zooms: bool,
    smoothing_level: int,
    gravity: tuple[Any, Any] | None,
    levelling: float,
) -> dict[str, Any]: ...
def calibrate(
    clips: Any,
    focal_length: float | None,
    readout_time: float | None,
    time_offset: float | None,
    axes: str | None,
    finds_lens: bool,
    range: float,
    max_frames: int,
) -> dict[str, Any]: ...
def measure(video: Any, cutoff: float) -> dict[str, Any]: ...

class SimulatedCamera:
    def __init__(
        self,
        width: int,
        height: int,
        focal_length: float,
        readout_time: float,
        shake: float,
        pan: float,
        walks: bool,
        seed: int,
    ) -> None: ...
    def frame(self, time: float) -> Any: ...
    def orientations(self, times: Any, steady: bool) -> Any: ...
    def sensors(
        self,
        start: float,
        end: float,
        rate: float,
        rate_noise: float,
        gravity_noise: float,
        seed: int,
    ) -> tuple[Any, Any, Any]: ...
