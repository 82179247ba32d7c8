"""Motion logs, paths, measures, calibration and simulation against what is known of them."""

from __future__ import annotations

import os
import signal
import struct
import subprocess
import sys
import threading
from pathlib import Path
from typing import Any, Callable

import framehold
import numpy as np
import pytest

EXAMPLE = Path(__file__).parents[2] / "examples" / "python" / "plot_shake.py"
SIZE = ["--size", "320x240", "--focal", "280"]


def simulate(folder: Path, *options: str) -> Path:
    program = os.environ["FRAMEHOLD_PROGRAM"]
    command = [program, "simulate", str(folder), *SIZE, "--shake", "1.5", "--quiet", *options]
    subprocess.run(command, check=True)
    return folder


@pytest.fixture(scope="module")
def clip(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return simulate(tmp_path_factory.mktemp("clip"), "--duration", "1.5", "--pan", "0")


def angle(a: np.ndarray, b: np.ndarray) -> np.ndarray:
    """Radians between two rotations each."""
    return 2.0 * np.arccos(np.clip(np.abs((a * b).sum(axis=1)), 0.0, 1.0))


def test_log_and_track_follow_the_truth(clip: Path) -> None:
    log = framehold.read_motion_log(clip / "imu.gcsv").in_device_axes()
    assert log.format.startswith("gcsv") and log.readout_time == pytest.approx(0.0299)
    assert log.rates.shape == (len(log.rate_times), 3)
    assert np.linalg.norm(log.gravity, axis=1).mean() == pytest.approx(9.81, abs=0.02)
    truth = np.loadtxt(clip / "truth.csv", delimiter=",", skiprows=1)
    track = framehold.orientation_track(truth[:, 1], log.rate_times, log.rates)
    # Both are of the same device; their worlds differ by one rotation.
    turns = [angle(track[:1], track[i : i + 1])[0] for i in range(len(track))]
    wxyz = truth[:, [5, 2, 3, 4]]
    wanted = [angle(wxyz[:1], wxyz[i : i + 1])[0] for i in range(len(wxyz))]
    np.testing.assert_allclose(turns, wanted, atol=2e-4)


def test_axes_turn_the_log(clip: Path) -> None:
    log = framehold.read_motion_log(clip / "imu.gcsv")
    x, y, z = log.rates.T
    turned = log.in_device_axes("YxZ")
    np.testing.assert_array_equal(turned.rates, np.stack([y, -x, z], axis=1))


def test_path_is_smoother_and_stays_inside() -> None:
    camera = framehold.SimulatedCamera(320, 240, focal_length=280.0, pan=0.0)
    times = 2.0 + np.arange(45) / 30.0
    sensors = camera.sensors(1.5, 4.0)
    track = framehold.orientation_track(times, sensors.times, sensors.rates)
    def find(**options: Any) -> framehold.VirtualPath:
        settings = {"width": 320, "height": 240, "focal_length": 280.0, **options}
        settings["readout_time"] = camera.readout_time
        path = framehold.optimal_path(times, sensors.times, sensors.rates, **settings)
        assert 0.0 < path.share_used.max() <= 1.001
        return path

    def speed(q: np.ndarray) -> float:
        return float(np.sqrt((angle(q[1:], q[:-1]) ** 2).mean()))

    path = find()
    assert speed(path.orientations) < 0.5 * speed(track)
    assert (path.zooms == 1.0).all() and path.crop_percent == 80.0
    assert path.focal_length == pytest.approx(280.0 / 0.8)
    chosen = find(crop_percent=None)
    assert 70.0 <= chosen.crop_percent <= 98.0
    assert speed(chosen.orientations) < 0.5 * speed(track)
    zooming = find(zooms=True).zooms
    assert 80.0 / 98.0 - 1e-9 <= zooming.min() < 0.99 and zooming.max() <= 1.0
    # The camera is level; by gravity of a camera that is rolled by some degrees it is not.
    roll = np.radians(3.0)
    rolled = sensors.gravity @ np.array(
        [[np.cos(roll), np.sin(roll), 0.0], [-np.sin(roll), np.cos(roll), 0.0], [0.0, 0.0, 1.0]]
    )
    for share in (0.0, 50.0, 100.0):
        level, tilted = (
            find(gravity_times=sensors.times, gravity=felt, horizon_percent=share).orientations
            for felt in (sensors.gravity, rolled)
        )
        assert angle(level, tilted).mean() == pytest.approx(roll * share / 100.0, abs=2e-3)
    # A lens's output has the same lens, unless straightened: tan t = t (1 + t^2 / 3 + ...).
    near_pinhole = framehold.LensDistortion("fisheye", 1.0 / 3.0, 2.0 / 15.0, 17.0 / 315.0)
    bent = find(lens=near_pinhole)
    assert angle(bent.orientations, path.orientations).max() < 1e-3
    straight = find(lens=framehold.LensDistortion("fisheye"), straightens=True)
    assert bent.focal_length == path.focal_length != pytest.approx(straight.focal_length, rel=0.01)


def test_measure_and_calibrate_find_the_simulated_camera(clip: Path) -> None:
    measures = framehold.measure(clip / "clip.mp4")
    assert measures.path.shape == measures.shake.shape == (45, 4)
    shake = measures.figures["shake_px"]
    assert shake is not None and 1.0 < shake < 20.0
    found = framehold.calibrate(
        [framehold.Clip(clip / "clip.mp4", clip / "imu.gcsv")], axes="XYZ", search_range=0.2
    )
    assert found.focal_length.confidence in ("well determined", "weak")
    assert found.focal_length.value == pytest.approx(280.0, rel=0.02)
    assert found.time_offsets[0].value == pytest.approx(0.0, abs=0.003)
    assert found.lens is None


def checksum(frame: np.ndarray) -> str:
    """FNV-1a, 64 bits."""
    value = 0xCBF29CE484222325
    for byte in frame.tobytes():
        value = (value ^ byte) * 0x100000001B3 & 0xFFFFFFFFFFFFFFFF
    return f"{value:016x}"


@pytest.mark.parametrize("smoothing,delay,pan", [("9", 5, "0"), ("auto", 0, "20")])
def test_bytes_equal_the_programs_live_engine(
    tmp_path: Path, smoothing: str, delay: int, pan: str
) -> None:
    """The program records what it gives the library; the package gets the same clip by itself."""
    clip = simulate(tmp_path, "--duration", "0.8", "--pan", pan, "--pan-period", "2")
    session = tmp_path / "run.session"
    command = [os.environ["FRAMEHOLD_PROGRAM"], "stabilize", str(clip / "clip.mp4"), "--engine"]
    command += ["live", "--delay", str(delay), "--clip", str(clip / "clip.json"), "--quiet"]
    # The recorded calls render to one frame, which would show through where there is no source.
    command += ["--smoothing", smoothing, "--crop", "60"]
    command += ["--record-session", str(session), "-o", str(tmp_path / "out.mp4")]
    subprocess.run(command, check=True)
    printed = subprocess.run(
        [os.environ["FRAMEHOLD_REPLAY"], str(session)], check=True, capture_output=True, text=True
    )
    expected = [line.split()[1] for line in printed.stdout.splitlines()]
    content = session.read_bytes()
    at = content.index(b"\n") + 1
    head = struct.unpack_from("<6id", content, at)
    width, height = head[1], head[2]
    frames = []
    at += struct.calcsize("<6ididdiiii")
    size = width * height * 3 // 2
    while at < len(content):
        tag = content[at : at + 1]
        if tag == b"S":
            at += 1 + 4 + 8 + 32
            continue
        if tag == b"L":
            at += 1 + 4
            continue
        assert tag == b"F"
        pixels = np.frombuffer(content, np.uint8, size, at + 9)
        frames.append(pixels.reshape(-1, width))
        at += 9 + size
    times = np.loadtxt(clip / "frames.csv", delimiter=",", skiprows=1)[:, 1]
    frames = frames[: len(times)]
    parameters = framehold.Parameters(
        width=width,
        height=height,
        field_of_view=280.0,
        field_of_view_mode=framehold.FieldOfViewMode.FOCAL_LENGTH,
        readout_time=0.0299,
        time_offset=0.0,
        delay_frames=delay,
        crop_percent=60,
    )
    samples = framehold.read_motion_log(clip / "imu.gcsv").in_device_axes().samples()
    chooses = smoothing == "auto"
    steady = list(
        framehold.stabilized(frames, times, samples, parameters, chooses_level=chooses)
    )
    assert [checksum(frame) for frame in steady[::4]] == expected[::4]
    assert len(steady) == len(expected) == 24
    levels = framehold.smoothing_levels(times, samples, parameters)
    assert (levels.min() < 9) == chooses


def path_with(**options: Any) -> framehold.VirtualPath:
    settings = {"width": 320, "height": 240, "focal_length": 280.0, "readout_time": 0.0, **options}
    return framehold.optimal_path([0.5], [0.0, 1.0], np.zeros((2, 3)), **settings)


LENS = framehold.LensDistortion
NO_GRAVITY = {"gravity_times": [0.0], "gravity": [[0.0, 0.0, 0.0]]}
REFUSED: list[tuple[str, Callable[[], Any]]] = [
    ("cutoff is 0", lambda: framehold.measure("x.mp4", cutoff=0.0)),
    ("width is 3", lambda: framehold.SimulatedCamera(3, 4)),
    ("rate_times is not in order", lambda: framehold.orientation_track([0], [2, 1], np.eye(2, 3))),
    ("rates is of shape", lambda: framehold.orientation_track([0], [1, 2], np.eye(3))),
    ("times is a str", lambda: framehold.orientation_track("now", [1, 2], np.eye(2, 3))),
    ("width is 320.5", lambda: path_with(width=320.5)),
    ("focal_length is None", lambda: path_with(focal_length=None)),
    ("crop_percent is 101", lambda: path_with(crop_percent=101)),
    ("smoothing_level is 11", lambda: path_with(smoothing_level=11)),
    ("0 without gravity", lambda: path_with(horizon_percent=50)),
    ("horizon_percent is nan", lambda: path_with(horizon_percent=float("nan"))),
    ("gravity is without a direction", lambda: path_with(**NO_GRAVITY, horizon_percent=50)),
    ("False without a lens", lambda: path_with(straightens=True)),
    ("lens is 'fisheye'", lambda: path_with(lens="fisheye")),
    ("lens.model is wide", lambda: path_with(lens=LENS("wide"))),
    ("lens.k2 is inf", lambda: path_with(lens=LENS("fisheye", 0.0, float("inf")))),
    ("picture's corners", lambda: path_with(lens=LENS("polynomial", -1.0))),
    ("clips is empty", lambda: framehold.calibrate([])),
    ("clips is with 'x.mp4'", lambda: framehold.calibrate(["x.mp4"])),  # type: ignore[list-item]
    ("axes is 'XXZ'", lambda: framehold.calibrate([framehold.Clip("x.mp4")], axes="XXZ")),
    ("shake is 1e+300", lambda: framehold.SimulatedCamera(64, 48, shake=1e300)),
    ("time is nan", lambda: framehold.SimulatedCamera(64, 48).frame(float("nan"))),
    ("start is nan", lambda: framehold.SimulatedCamera(64, 48).sensors(float("nan"), 1.0)),
    ("no.mp4", lambda: framehold.measure("no.mp4")),
    ("no.gcsv", lambda: framehold.read_motion_log("no.gcsv")),
]


@pytest.mark.parametrize("text,call", REFUSED)
def test_refusals_name_what_is_wrong(text: str, call: Callable[[], Any]) -> None:
    with pytest.raises((framehold.ParameterError, framehold.FileError, framehold.MediaError)) as e:
        call()
    assert text in str(e.value)


def test_interrupt_ends_long_work(clip: Path) -> None:
    timer = threading.Timer(0.02, os.kill, (os.getpid(), signal.SIGINT))
    is_done = False
    with pytest.raises(KeyboardInterrupt):
        timer.start()
        framehold.measure(clip / "clip.mp4")
        is_done = True
        timer.join()
    assert not is_done


def test_example_shows_less_shake(tmp_path: Path) -> None:
    pytest.importorskip("matplotlib")
    picture = tmp_path / "shake.png"
    run = subprocess.run(
        [sys.executable, str(EXAMPLE), str(picture)], check=True, capture_output=True, text=True
    )
    before, after = (float(word) for word in run.stdout.split() if word[0].isdigit())
    assert after < 0.7 * before
    assert picture.stat().st_size > 10000
