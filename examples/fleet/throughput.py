#!/usr/bin/env python3
"""Measures how much of a clip one core stabilizes in a second, and what an archive takes then.

Usage: throughput.py FRAMEHOLD [--hours 100000] [--megabits 17] [--rounds 3]

Simulated clips are stabilized on one core, as by a worker of a fleet. Processor time counts, and the
bytes that the program reads and writes. --hours is the length of the archive, and --megabits a second
the rate of its clips, which simulated ones do not tell.
"""

from __future__ import annotations

import argparse
import os
import statistics
import subprocess
import tempfile
from pathlib import Path

SECONDS = 4.0
RATE = 30
SIZES = ("1280x720", "1920x1080")
ENGINES = ("live", "offline")
NETWORK_BITS = 10e9


def run(command: list[str]) -> tuple[float, int]:
    """Runs the program on one core; gives processor seconds and bytes read."""
    core = max(os.sched_getaffinity(0))
    child = subprocess.Popen(command, preexec_fn=lambda: os.sched_setaffinity(0, {core}))
    os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOWAIT)
    counts = dict(line.split(": ") for line in Path(f"/proc/{child.pid}/io").read_text().splitlines())
    _, status, usage = os.wait4(child.pid, 0)
    if status != 0:
        raise SystemExit(f"{' '.join(command)}: ended with {os.waitstatus_to_exitcode(status)}")
    return usage.ru_utime + usage.ru_stime, int(counts["rchar"])


def main() -> None:
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("framehold")
    parser.add_argument("--hours", type=float, default=100000.0)
    parser.add_argument("--megabits", type=float, default=17.0)
    parser.add_argument("--rounds", type=int, default=3)
    given = parser.parse_args()
    bits = given.megabits * 1e6
    seconds = given.hours * 3600.0
    print(f"{SECONDS:.0f} s of {RATE} frames a second on one core, medians of {given.rounds} rounds")
    print(f"{'size':>10} {'engine':>8} {'frames/core-s':>14} {'core-s/clip-s':>14} {'times read':>11}")
    rows = []
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        for size in SIZES:
            clip = folder / size / "clip.mp4"
            command = [given.framehold, "simulate", str(clip.parent), "--size", size, "-q"]
            subprocess.run(command + ["--duration", str(SECONDS)], check=True)
            command = [given.framehold, "stabilize", str(clip), "-q", "--overwrite", "-o"]
            command += [str(folder / "result.mp4")]
            measured: dict[str, list[tuple[float, int]]] = {engine: [] for engine in ENGINES}
            for _ in range(given.rounds):
                for engine in ENGINES:
                    measured[engine].append(run(command + ["--engine", engine]))
            for engine, runs in measured.items():
                ratio = statistics.median(cpu for cpu, _ in runs) / SECONDS
                reads = statistics.median(count for _, count in runs) / clip.stat().st_size
                rows.append((size, engine, ratio, reads))
                print(f"{size:>10} {engine:>8} {RATE / ratio:14.1f} {ratio:14.2f} {reads:11.1f}", flush=True)
    print(f"\n{given.hours:,.0f} hours at {given.megabits:g} Mbit/s are {seconds * bits / 8e12:,.0f} TB;")
    print(f"results at the same rate, and {NETWORK_BITS / 1e9:g} Gbit/s to the storage:")
    print(f"{'size':>10} {'engine':>8} {'core-hours':>11} {'cores for 30 days':>18}", end="")
    print(f" {'Mbit/s per core':>16} {'cores that fill the network':>28}")
    for size, engine, ratio, reads in rows:
        each = bits * (reads + 1.0) / ratio
        print(f"{size:>10} {engine:>8} {given.hours * ratio:11,.0f} {given.hours * ratio / 720:18,.0f}"
              f" {each / 1e6:16.1f} {NETWORK_BITS / each:28,.0f}")


if __name__ == "__main__":
    main()
