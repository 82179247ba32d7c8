"""The stabilizer: frames and samples in, steady frames out."""

from __future__ import annotations

from collections.abc import Iterable, Iterator
from types import TracebackType
from typing import NamedTuple, Tuple, TypeVar, Union, overload

import numpy as np
import numpy.typing as npt

from . import _core
from .checks import seconds_of, times_of
from .errors import ParameterError
from .parameters import Parameters

Plane = npt.NDArray[np.uint8]
Frame = Union[Plane, Tuple[Plane, Plane]]
"""Two-plane 4:2:0 frame: an array (height * 3 / 2, width) of uint8, luma rows above rows of chroma
pairs; or a tuple of luma (height, width) and chroma (height / 2, width) or
(height / 2, width / 2, 2). The order of the two bytes of a pair does not matter."""

_Form = TypeVar("_Form", Plane, Tuple[Plane, Plane])
_Given = TypeVar("_Given", Plane, Tuple[Plane, Plane])

SAMPLE_DTYPE: np.dtype[np.void] = _core.SAMPLE_DTYPE
"""Record of an array of samples: `type` (see `SensorType`), `time` in seconds, and `value` of
shape (4,)."""


class Sample(NamedTuple):
    """Sample of a motion sensor, in device axes (Android's: x right, y up, z out of the screen)."""

    type: int
    """See `SensorType`, which says what x, y, z and w are, and their units."""
    time: float
    """Seconds, on the clock of the frames."""
    x: float
    y: float
    z: float
    w: float = 0.0


def _checked(parameters: Parameters) -> Parameters:
    if not isinstance(parameters, Parameters):
        raise TypeError(f"parameters is {parameters!r}; allowed: a Parameters")
    return parameters


class Stabilizer(_core.Stabilizer):
    """Stabilizes the frames of one camera, from them and the samples of its motion sensors.

    Times are seconds on one clock, and positive. Give every sample up to the end of a frame's
    readout before that frame, oldest first and gravity before rates; never a whole log first: the
    library holds a second or so. `stabilized` does all of this for a clip.

    A stabilizer is used by one thread at a time: a call that meets another thread's raises
    RuntimeError and changes nothing. So does every call but `close` once it is closed, and in a
    forked process. While the library works, other Python threads run.
    """

    def __init__(self, parameters: Parameters, *, chooses_level: bool = False) -> None:
        """Makes a stabilizer. Raises MemoryError if memory or threads are exhausted.

        Args:
            parameters: of the camera and the output.
            chooses_level: True: the smoothing level is chosen for every frame, as the program's
                `--smoothing auto` does: that of the parameters, and less in pans. Then
                `smoothing_level` is the last frame's, and cannot be set.
        """
        super().__init__(_checked(parameters), chooses_level)
        self._parameters = parameters

    @property
    def parameters(self) -> Parameters:
        """What the stabilizer was made with."""
        return self._parameters

    @property
    def last_addresses(self) -> tuple[int, int, int, int]:
        """Memory that the last `stabilize` gave to the library: addresses of the luma and the chroma
        of the input, then of the output. Those of the given arrays, where nothing was copied."""
        return super().last_addresses

    def push(self, sample: Sample | npt.NDArray[np.void]) -> None:
        """Takes a sample, or an array (N,) of `SAMPLE_DTYPE`. Samples that are not finite are
        dropped. Raises ParameterError for a type that sensor_mask does not enable; none is taken
        then.
        """
        if isinstance(sample, np.ndarray) and sample.dtype.names == SAMPLE_DTYPE.names:
            # NumPy leaves out the record's padding where it joins arrays.
            sample = sample.astype(SAMPLE_DTYPE, copy=False)
        super().push(sample)

    @overload
    def stabilize(self, frame: _Form, time: float, out: None = None) -> _Form | None: ...

    @overload
    def stabilize(self, frame: _Form, time: float, out: _Given) -> _Given | None: ...

    def stabilize(self, frame: Frame, time: float, out: Frame | None = None) -> Frame | None:
        """Takes a frame of width x height and gives the one of delay_frames calls before.

        The input is read where it is, whatever the distance of its rows. It is copied where the
        library needs that: into the delay, and before that once more if its rows are not adjacent
        (delay_frames > 0), if bytes of a row are apart, or if rows go backwards. The array is not
        needed after the call.

        Args:
            frame: the frame, see `Frame`.
            time: when it was taken, in seconds.
            out: array or arrays of output_width x output_height to write to, in the form of any
                `Frame`, whose memory is not the input's; bytes of a row adjacent, rows in order.
                Pixels without a source keep what they hold. Default: a new frame, black before,
                in the input's form. Giving the same array again and again is a little faster.

        Returns:
            `out`, or the new frame; None for the first delay_frames frames.
        """
        steady: Frame | None = super().stabilize(frame, seconds_of("time", time), out)
        return steady

    @overload
    def drain(self, out: None = None) -> Frame | None: ...

    @overload
    def drain(self, out: _Given) -> _Given | None: ...

    def drain(self, out: Frame | None = None) -> Frame | None:
        """Gives one of the frames that are still delayed; None if there is none.

        It looks ahead from where draining began, which can show as a small jump: to end a clip
        smoothly, give the last frame again, delay_frames times, at times that go on.
        """
        steady: Frame | None = super().drain(out)
        return steady

    def flush(self) -> Iterator[Frame]:
        """Gives all frames that are still delayed, one after the other; see `drain`."""
        while (frame := self.drain()) is not None:
            yield frame

    def reset(self) -> None:
        """Starts over with the next frame: forgets delayed frames and buffered samples."""
        super().reset()

    def close(self) -> None:
        """Releases memory and threads, at once or when the call that is running ends."""
        super().close()

    def __enter__(self) -> Stabilizer:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()


def _checked_samples(samples: npt.NDArray[np.void]) -> npt.NDArray[np.void]:
    names = SAMPLE_DTYPE.names
    if not (isinstance(samples, np.ndarray) and samples.ndim == 1 and samples.dtype.names == names):
        raise ParameterError("samples", repr(samples)[:60], "an array (N,) of SAMPLE_DTYPE")
    return samples


def _shift(first_time: float, samples: npt.NDArray[np.void], parameters: Parameters) -> float:
    """Seconds from the samples' clock to one on which all times of a clip are positive."""
    start = float(samples["time"][0]) if len(samples) else 0.0
    return 1.0 - min(first_time + parameters.time_offset, start)


def _fed(
    times: npt.ArrayLike, samples: npt.NDArray[np.void], parameters: Parameters
) -> npt.NDArray[np.int64]:
    """Number of samples that are fed before frames at times, (N,)."""
    ends = np.asarray(times, np.float64) + parameters.time_offset + parameters.readout_time
    first_after = np.searchsorted(samples["time"], ends, side="left")
    return np.minimum(first_after + 1, len(samples)).astype(np.int64)


def stabilized(
    frames: Iterable[_Form],
    times: Iterable[float],
    samples: npt.NDArray[np.void],
    parameters: Parameters,
    *,
    frame_period: float = 1.0 / 30.0,
    chooses_level: bool = False,
) -> Iterator[_Form]:
    """Stabilizes a clip as the program's live engine does, and gives each as a new frame.

    Samples are fed in step with the frames, and the last frame is repeated until those are out
    that were delayed: there are as many frames as were given, and each is that of its input.

    Args:
        frames: the frames, see `Frame`.
        times: seconds of each frame, on a clock that time_offset brings to that of the samples.
        samples: array (N,) of `SAMPLE_DTYPE` in order of time, gravity first; see
            `MotionLog.samples`.
        parameters: of the stabilizer.
        frame_period: seconds between the frames that repeat the last one.
        chooses_level: False: the smoothing level of the parameters (the program's `--smoothing 9`
            or another one); True: one for every frame (`--smoothing auto`).
    """
    _checked_samples(samples)
    with Stabilizer(parameters, chooses_level=chooses_level) as stabilizer:
        fed = 0
        shift = 0.0

        def render(frame: _Form, time: float) -> _Form | None:
            nonlocal fed
            until = max(fed, int(_fed(time, samples, parameters)))
            batch = samples[fed:until].copy()
            batch["time"] += shift
            stabilizer.push(batch)
            fed = until
            return stabilizer.stabilize(frame, time + shift)

        waiting = 0
        last: tuple[_Form, float] | None = None
        for frame, time in zip(frames, times):
            if last is None:
                shift = _shift(time, samples, parameters)
            last = (frame, time)
            steady = render(frame, time)
            if steady is None:
                waiting += 1
            else:
                yield steady
        repeats = 0
        while waiting > 0 and last is not None:
            repeats += 1
            steady = render(last[0], last[1] + repeats * frame_period)
            if steady is not None:
                waiting -= 1
                yield steady


def smoothing_levels(
    times: npt.ArrayLike, samples: npt.NDArray[np.void], parameters: Parameters
) -> npt.NDArray[np.int32]:
    """Smoothing level of every frame that `stabilized` with chooses_level gives to the library,
    from motion alone.

    With delay_frames of n, frame i is rendered with the level of frame i + n, and the last n with
    those of repeated frames.

    Args:
        times: seconds of each frame, (N,), in order of time.
        samples: array (M,) of `SAMPLE_DTYPE`, as for `stabilized`.
        parameters: of the stabilizer; smoothing_level is the strongest that is chosen.

    Returns:
        Levels, 1 to 10, (N,).
    """
    taken = times_of("times", times, 0)
    shifted = _checked_samples(samples).astype(SAMPLE_DTYPE)
    if not len(taken):
        return np.zeros(0, np.int32)
    shift = _shift(taken[0], samples, _checked(parameters))
    fed = _fed(taken, samples, parameters)
    shifted["time"] += shift
    levels: npt.NDArray[np.int32] = _core.smoothing_levels(parameters, shifted, taken + shift, fed)
    return levels
