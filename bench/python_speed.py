#!/usr/bin/env python3
"""Frames per second of the Python package beside the C library.

Usage: PYTHONPATH=build/release/python:tests/python \
       FRAMEHOLD_LIBRARY=build/release/libzpr_framehold.so bench/python_speed.py [ROUNDS]

Both stabilize the same frames of 1280x720, in rounds that alternate; medians of all rounds of the time
that passes and of the processors' time, which other programs disturb less. The output is one array,
and for Python new memory as well. C is called by ctypes with arguments that
are ready made, so that little of Python's time counts for it.
"""

import ctypes
import statistics
import sys
import time
from typing import Callable

import framehold
import numpy as np
from c_library import CLibrary, black, clip_of, image_of

ROUNDS = int(sys.argv[1]) if len(sys.argv) > 1 else 31
FRAMES = 60
parameters = framehold.Parameters(width=1280, height=720)
clip = list(clip_of(parameters, FRAMES))
out = black(parameters)


def milliseconds(push: Callable, stabilize: Callable) -> tuple[float, float]:
    """Of a frame, passed and of all processors, for the frames alone: samples are fed in between."""
    passed = used = 0.0
    for i, (_, when, samples) in enumerate(clip):
        push(samples)
        start, start_used = time.perf_counter(), time.process_time()
        stabilize(i, when)
        used += time.process_time() - start_used
        passed += time.perf_counter() - start
    return 1000.0 * passed / FRAMES, 1000.0 * used / FRAMES


def c_round() -> tuple[float, float]:
    c = CLibrary(parameters)
    inputs = [image_of(1280, 720, frame) for frame, _, _ in clip]
    output = image_of(1280, 720, out)
    stabilize, handle, to = c.library.ZPR_Stabilize, c.handle, ctypes.byref(output)
    given = [(ctypes.c_double(when), ctypes.byref(inputs[i])) for i, (_, when, _) in enumerate(clip)]
    return milliseconds(c.push, lambda i, when: stabilize(handle, *given[i], to, None))


def python_round(output: np.ndarray | None) -> tuple[float, float]:
    with framehold.Stabilizer(parameters) as s:
        return milliseconds(s.push, lambda i, when: s.stabilize(clip[i][0], when, output))


rounds = {"C": c_round, "Python": lambda: python_round(out), "fresh": lambda: python_round(None)}
times: dict[str, list[tuple[float, float]]] = {name: [] for name in rounds}
names = list(rounds)
for i in range(ROUNDS):
    for name in names[i % 3 :] + names[: i % 3]:
        times[name].append(rounds[name]())
print(f"1280x720, {FRAMES} frames, medians of {ROUNDS} rounds")
for name, what in (("C", "C"), ("Python", "Python, one output"), ("fresh", "Python, new output")):
    texts = []
    for kind, unit in enumerate(("passed", "of the processors")):
        own = [pair[kind] for pair in times[name]]
        ratio = statistics.median(a / b[kind] for a, b in zip(own, times["C"]))
        texts.append(f"{statistics.median(own):7.3f} ms {unit} ({ratio:.3f} of C)")
    fps = 1000.0 / statistics.median(pair[0] for pair in times[name])
    print(f"{what:20} {fps:7.1f} frames/s, {', '.join(texts)}")
