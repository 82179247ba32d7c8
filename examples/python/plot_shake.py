#!/usr/bin/env python3
"""Plots the shake of a simulated clip before and after stabilizing.

Usage: plot_shake.py PICTURE

A camera in a shaking hand is simulated, its frames and sensors go through the stabilizer as on a
phone, and the camera's rotation is drawn beside the virtual camera's of the optimal path.
"""

import sys

import framehold
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

WIDTH, HEIGHT, FOCAL, RATE, SECONDS = 320, 240, 280.0, 30.0, 3.0

# %% A camera in a shaking hand, and what its sensors say.
camera = framehold.SimulatedCamera(WIDTH, HEIGHT, focal_length=FOCAL, pan=0.0)
times = 2.0 + np.arange(int(SECONDS * RATE)) / RATE
sensors = camera.sensors(times[0] - 0.5, times[-1] + 0.5)

# %% The path of the virtual camera: as smooth as the margin allows.
path = framehold.optimal_path(
    times,
    sensors.times,
    sensors.rates,
    width=WIDTH,
    height=HEIGHT,
    focal_length=FOCAL,
    readout_time=camera.readout_time,
)
track = framehold.orientation_track(times, sensors.times, sensors.rates)

# %% The same clip through the stabilizer.
samples = np.zeros(2 * len(sensors.times), framehold.SAMPLE_DTYPE)
for start, kind, values in ((0, 1, sensors.gravity), (1, 3, sensors.rates)):
    samples["type"][start::2] = kind
    samples["time"][start::2] = sensors.times
    samples["value"][start::2, :3] = values
parameters = framehold.Parameters(
    width=WIDTH,
    height=HEIGHT,
    field_of_view=FOCAL,
    field_of_view_mode=framehold.FieldOfViewMode.FOCAL_LENGTH,
    readout_time=camera.readout_time,
    time_offset=0.0,
    delay_frames=15,
)
frames = [camera.frame(time) for time in times]
steady = list(framehold.stabilized(frames, times, samples, parameters))


def change(pictures: list) -> np.ndarray:
    """Mean difference between neighbouring frames' luma in the middle, in grey levels."""
    middle = [p[HEIGHT // 4 : HEIGHT * 3 // 4, WIDTH // 4 : -WIDTH // 4] for p in pictures]
    return np.array([np.abs(b.astype(int) - a).mean() for a, b in zip(middle, middle[1:])])


before, after = change(frames), change(steady)


def turned(orientations: np.ndarray) -> np.ndarray:
    """Degrees about the picture's axes since the start: small rotations."""
    return np.degrees(2.0 * orientations[:, 1:] * np.sign(orientations[:, :1]))


# %% Before and after.
figure, (angles, pictures) = plt.subplots(2, 1, figsize=(8, 6), layout="constrained")
for axis, name in enumerate(("device x (pan)", "device y (tilt)")):
    (line,) = angles.plot(times, turned(track)[:, axis], alpha=0.4, label=f"camera, {name}")
    angles.plot(times, turned(path.orientations)[:, axis], color=line.get_color(), label="path")
angles.set_ylabel("degrees")
angles.legend()
pictures.plot(times[1:], before, label=f"input, mean {before.mean():.1f}")
pictures.plot(times[1:], after, label=f"output, mean {after.mean():.1f}")
pictures.set_xlabel("seconds")
pictures.set_ylabel("change from frame to frame, grey levels")
pictures.legend()
figure.savefig(sys.argv[1])
print(f"change from frame to frame: {before.mean():.2f} before, {after.mean():.2f} after")
