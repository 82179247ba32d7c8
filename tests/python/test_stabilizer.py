"""framehold.Stabilizer: bytes, memory, refusals and threads."""

from __future__ import annotations

import gc
import multiprocessing
import pickle
import threading
from typing import Any, Callable

import framehold
import numpy as np
import pytest
from framehold import FieldOfViewMode, ParameterError, Parameters, Sample, Stabilizer

from c_library import CLibrary, black, clip_of

SIZE: dict[str, Any] = {"width": 192, "height": 128}


def padded(frame: np.ndarray) -> np.ndarray:
    """The same pixels in rows that are further apart."""
    wide = np.zeros((frame.shape[0], frame.shape[1] + 24), np.uint8)
    wide[:, 8:-16] = frame
    return wide[:, 8:-16]


def backwards(frame: np.ndarray) -> np.ndarray:
    return frame[::-1].copy()[::-1]


def sparse(frame: np.ndarray) -> np.ndarray:
    return np.repeat(frame, 2, axis=1)[:, ::2]


def pair(frame: np.ndarray) -> Any:
    height = frame.shape[0] // 3 * 2
    return padded(frame[:height]), frame[height:].copy()


def pair_of_pairs(frame: np.ndarray) -> Any:
    height = frame.shape[0] // 3 * 2
    return frame[:height], padded(frame[height:]).reshape(height // 2, -1, 2)


def joined(frame: Any) -> np.ndarray:
    if not isinstance(frame, tuple):
        return frame
    luma, chroma = frame
    return np.concatenate([luma, chroma.reshape(-1, luma.shape[1])])


LAYOUTS: list[Callable[[np.ndarray], Any]] = [
    np.ascontiguousarray,
    padded,
    backwards,
    sparse,
    pair,
    pair_of_pairs,
]


@pytest.mark.parametrize("delay", [0, 3])
@pytest.mark.parametrize("layout", LAYOUTS)
def test_bytes_equal_the_c_library(layout: Callable[[np.ndarray], Any], delay: int) -> None:
    # With all of the picture shown, some pixels have no source.
    crop = 80 if delay else 100
    p = Parameters(
        **SIZE, output_width=128, output_height=64, delay_frames=delay, crop_percent=crop
    )
    c = CLibrary(p)
    outputs = 0
    with Stabilizer(p) as stabilizer:
        for frame, time, samples in clip_of(p, 12):
            expected = black(p)
            c.push(samples)
            stabilizer.push(samples)
            has_output = c.stabilize(frame, time, expected)
            steady = stabilizer.stabilize(layout(frame), time)
            assert (steady is not None) == has_output
            if has_output:
                np.testing.assert_array_equal(joined(steady), expected)
                outputs += 1
        rest = list(stabilizer.flush())
    assert outputs + len(rest) == 12
    for steady in rest:
        expected = black(p)
        assert c.stabilize(None, 0.0, expected)
        np.testing.assert_array_equal(joined(steady), expected)


def test_output_goes_where_it_is_wanted() -> None:
    p = Parameters(**SIZE)
    big = np.zeros((SIZE["height"] * 3 // 2 + 2, SIZE["width"] * 2), np.uint8)
    left, right = big[1:-1, : SIZE["width"]], big[1:-1, SIZE["width"] :]
    with Stabilizer(p) as a, Stabilizer(p) as b:
        for frame, time, samples in clip_of(p, 3):
            for stabilizer in (a, b):
                stabilizer.push(samples)
            fresh = a.stabilize(frame, time)
            right[:] = black(p)
            left[:] = frame
            steady = b.stabilize(left, time, out=right)
            # Input and output side by side in one array: nothing was copied.
            assert steady is right
            np.testing.assert_array_equal(right, fresh)
            np.testing.assert_array_equal(left, frame)
        assert not big[0].any() and not big[-1].any()


def addresses(frame: Any) -> list[int]:
    """Of luma and chroma."""
    planes = frame if isinstance(frame, tuple) else (frame, frame[SIZE["height"] :])
    return [plane.__array_interface__["data"][0] for plane in planes]


@pytest.mark.parametrize("delay", [0, 3])
@pytest.mark.parametrize("layout", LAYOUTS)
def test_the_library_gets_the_arrays_own_memory(layout: Callable[[np.ndarray], Any], delay: int) -> None:
    p = Parameters(**SIZE, delay_frames=delay)
    rows_adjacent = layout is np.ascontiguousarray
    in_place = layout not in (backwards, sparse) and (delay == 0 or rows_adjacent)
    for out_layout in (np.ascontiguousarray, padded, pair, pair_of_pairs):
        out = out_layout(black(p))
        with Stabilizer(p) as stabilizer:
            assert stabilizer.last_addresses == (0, 0, 0, 0)
            for frame, time, samples in clip_of(p, delay + 2):
                given = layout(frame)
                stabilizer.push(samples)
                steady = stabilizer.stabilize(given, time, out)
                assert (list(stabilizer.last_addresses[:2]) == addresses(given)) == in_place
                assert list(stabilizer.last_addresses[2:]) == addresses(out)
            assert steady is out
            fresh = stabilizer.stabilize(given, time + 0.03)
            assert list(stabilizer.last_addresses[2:]) == addresses(fresh)


def test_new_frames_keep_their_memory() -> None:
    """As long as a view looks at them, whatever becomes of the stabilizer and of later frames."""
    p = Parameters(**SIZE)
    kept: list[tuple[np.ndarray, np.ndarray]] = []
    for layout in (np.ascontiguousarray, pair) * 2:
        stabilizer = Stabilizer(p)
        for i, (frame, time, samples) in enumerate(clip_of(p, 12)):
            stabilizer.push(samples)
            steady = stabilizer.stabilize(layout(frame), time)
            if i % 3 == 0:
                view = (steady[1] if isinstance(steady, tuple) else steady)[-9:-1, ::2]
                kept.append((view, view.copy()))
        del stabilizer, steady
    for i, (view, content) in enumerate(kept):
        np.testing.assert_array_equal(view, content)
        assert not any(np.shares_memory(view, other) for other, _ in kept[:i])


BAD_PARAMETERS = [
    ("width", 191, "even, 2 to"),
    ("height", 0, "even, 2 to"),
    ("width", 192.5, "an integer"),
    ("output_width", 194, "even, 2 to 192"),
    ("output_height", 33, "even, 2 to 128"),
    ("sensor_mask", 64, "1 to 63"),
    ("field_of_view", 181.0, "above 0, at most 180 (degrees)"),
    ("field_of_view", float("nan"), "above 0"),
    ("field_of_view_mode", 5, "1 to 4"),
    ("readout_time", -0.01, "at least 0 (seconds)"),
    ("time_offset", float("inf"), "a finite number"),
    ("crop_percent", 101, "1 to 100"),
    ("smoothing_level", 0, "1 to 10"),
    ("delay_frames", -1, "0 to"),
    ("delay_frames", "ten", "an integer"),
]


@pytest.mark.parametrize("field,value,allowed", BAD_PARAMETERS)
def test_parameters_name_field_value_and_range(field: str, value: Any, allowed: str) -> None:
    with pytest.raises(ParameterError) as caught:
        Parameters(**{**SIZE, field: value})
    assert caught.value.field == field
    assert str(value) in caught.value.value
    assert allowed in str(caught.value)
    assert str(pickle.loads(pickle.dumps(caught.value))) == str(caught.value)


def test_focal_lengths_may_exceed_180() -> None:
    p = Parameters(**SIZE, field_of_view=557.0, field_of_view_mode=FieldOfViewMode.FOCAL_LENGTH)
    Stabilizer(p).close()


FRAME = np.zeros((192, 192), np.uint8)
READ_ONLY = FRAME.copy()
READ_ONLY.flags.writeable = False
BAD_FRAMES = [
    ("frame", {"frame": FRAME[:-1]}, "shape (191, 192)"),
    ("frame", {"frame": FRAME.astype(np.int8)}, "int8"),
    ("frame", {"frame": b"x"}, "bytes"),
    ("frame", {"frame": (FRAME,)}, "a tuple of 1"),
    ("frame[1]", {"frame": (FRAME[:128], FRAME[:63])}, "shape (63, 192)"),
    ("time", {"time": float("nan")}, "nan"),
    ("time", {"time": "now"}, "'now'"),
    ("out", {"out": READ_ONLY}, "read-only"),
    ("out", {"out": FRAME[::-1].copy()[::-1]}, "strides (-192, 1)"),
    ("out", {"out": np.zeros((192, 384), np.uint8)[:, ::2]}, "strides (384, 2)"),
    ("out", {"out": FRAME}, "sharing memory"),
    ("out[0]", {"out": (FRAME, FRAME)}, "shape (192, 192)"),
    ("out", {"out": (READ_ONLY.copy()[:128], FRAME[:64])}, "sharing memory"),
]


@pytest.mark.parametrize("field,arguments,value", BAD_FRAMES)
def test_frames_that_do_not_fit(field: str, arguments: dict[str, Any], value: str) -> None:
    with Stabilizer(Parameters(**SIZE)) as stabilizer:
        with pytest.raises(ParameterError) as caught:
            stabilizer.stabilize(**{"frame": FRAME, "time": 1.0, **arguments})
        assert caught.value.field == field
        assert value in caught.value.value
        assert stabilizer.stabilize(FRAME, 1.0) is not None


def test_levels_are_those_of_the_frames() -> None:
    """Chosen by what a stabilizer is fed, those of the samples alone; also after a reset."""
    p = Parameters(**SIZE, smoothing_level=8)
    clip = list(clip_of(p, 40))
    samples = np.concatenate([part for _, _, part in clip])
    samples["value"][(samples["time"] > 1.5) & (samples["type"] == 3), 0] += 1.0
    times = [time for _, time, _ in clip]
    levels = framehold.smoothing_levels(times, samples, p)
    assert levels.shape == (40,) and levels[0] == 8 and levels.min() < 8
    fed = 0
    with Stabilizer(p, chooses_level=True) as stabilizer:
        for _ in range(2):
            seen = []
            for time in times:
                end = time + p.time_offset + p.readout_time
                until = int((samples["time"] < end).sum()) + 1
                stabilizer.push(samples[fed:until])
                fed = until
                stabilizer.stabilize(FRAME, time)
                seen.append(stabilizer.smoothing_level)
            assert seen == levels.tolist()
            stabilizer.reset()
            fed = 0


def test_samples_that_are_not_enabled() -> None:
    samples = np.zeros(3, framehold.SAMPLE_DTYPE)
    samples["type"] = [1, 3, 5]
    with Stabilizer(Parameters(**SIZE)) as stabilizer:
        for bad in (samples, Sample(7, 0.0, 0.0, 0.0, 0.0), Sample(-2, 0.0, 0.0, 0.0, 0.0)):
            with pytest.raises(ParameterError, match="type is .* sensor_mask 5"):
                stabilizer.push(bad)
        for field, bad in (
            ("type", Sample("rate", 0.0, 0.0, 0.0, 0.0)),  # type: ignore[arg-type]
            ("x", Sample(3, 0.0, None, 0.0, 0.0)),  # type: ignore[arg-type]
        ):
            with pytest.raises(ParameterError, match=f"^{field} is .*(rate|None)"):
                stabilizer.push(bad)
        for other in (np.zeros(3), samples[:2].reshape(1, 2), 3):
            with pytest.raises(ParameterError, match="sample is .*SAMPLE_DTYPE|shape"):
                stabilizer.push(other)  # type: ignore[arg-type]
        stabilizer.push(Sample(1, 1.0, 9.81, 0.0, 0.0))
        stabilizer.push(samples[:2][::-1])


def test_closed_and_reset() -> None:
    p = Parameters(**SIZE, delay_frames=2)
    stabilizer = Stabilizer(p)
    assert stabilizer.drain() is None
    assert stabilizer.stabilize(FRAME, 1.0) is None
    stabilizer.smoothing_level = 3
    for level in (11, 2.5):
        with pytest.raises(ParameterError, match="smoothing_level is .*; allowed: .*1 to 10"):
            stabilizer.smoothing_level = level  # type: ignore[assignment]
    stabilizer.reset()
    assert list(stabilizer.flush()) == []
    with Stabilizer(p, chooses_level=True) as chooser:
        with pytest.raises(ParameterError, match="is chosen for every frame"):
            chooser.smoothing_level = 3
    assert stabilizer.parameters is p and not stabilizer.closed
    stabilizer.close()
    stabilizer.close()
    assert stabilizer.closed
    for call in (stabilizer.reset, stabilizer.drain, lambda: stabilizer.stabilize(FRAME, 1.0)):
        with pytest.raises(RuntimeError, match="is closed"):
            call()


@pytest.mark.parametrize("count", [0, 1, 4, 9])
def test_clips_keep_their_length(count: int) -> None:
    """Also clips that are shorter than the delay."""
    p = Parameters(**SIZE, delay_frames=5)
    clip = list(clip_of(p, count))
    parts = [samples for _, _, samples in clip] or [np.zeros(0, framehold.SAMPLE_DTYPE)]
    frames, times = [frame for frame, _, _ in clip], [time for _, time, _ in clip]
    steady = list(framehold.stabilized(frames, times, np.concatenate(parts), p))
    assert [frame.shape for frame in steady] == [(192, 192)] * count


def test_too_much_memory() -> None:
    with pytest.raises(MemoryError):
        Stabilizer(Parameters(width=65536, height=65536, delay_frames=2**31 - 1))


def test_threads_that_meet() -> None:
    """Calls at once: each does its work or says that it did not; and closing releases at the end."""
    p = Parameters(width=1280, height=720)
    frame = black(p)
    for _ in range(3):
        stabilizer = Stabilizer(p)
        done: list[str] = []
        started = threading.Event()

        def work() -> None:
            out = black(p)
            for i in range(20):
                try:
                    stabilizer.stabilize(frame, 1.0 + i, out)
                    done.append("done")
                    started.set()
                except RuntimeError as error:
                    done.append(str(error))

        threads = [threading.Thread(target=work) for _ in range(3)]
        for thread in threads:
            thread.start()
        assert started.wait(60)
        stabilizer.close()
        for thread in threads:
            thread.join()
        assert len(done) == 60 and "done" in done
        assert set(done) <= {
            "done",
            "the stabilizer is used by two threads at once",
            "the stabilizer is closed",
        }


def use_in_child(stabilizer: Stabilizer, queue: Any) -> None:
    try:
        stabilizer.stabilize(FRAME, 1.0)
    except RuntimeError as error:
        queue.put(str(error))
    del stabilizer
    gc.collect()


def test_forked_children_leave_it_alone() -> None:
    fork = multiprocessing.get_context("fork")
    queue = fork.Queue()
    with Stabilizer(Parameters(**SIZE)) as stabilizer:
        child = fork.Process(target=use_in_child, args=(stabilizer, queue))
        child.start()
        assert "forked" in queue.get(timeout=20)
        child.join(20)
        assert child.exitcode == 0
        assert stabilizer.stabilize(FRAME, 1.0) is not None
