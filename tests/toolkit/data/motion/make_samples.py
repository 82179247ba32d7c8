#!/usr/bin/env python3
"""Writes the samples of layouts that apps write, beside this file. All hold the same motion."""

import struct
import sys
from pathlib import Path

FOLDER = Path(__file__).parent
sys.path.insert(0, str(FOLDER.parents[3] / "scripts"))
from sample_containers import SCALE, box, field, movie, varint

COUNT = 10


def rate(i):
    return [0.1 + 0.01 * i, -0.2 + 0.02 * i, 0.05 - 0.005 * i]


def gravity(i):
    return [0.4 + 0.02 * i, 9.78 - 0.01 * i, 0.3 + 0.05 * i]


def seconds(i):
    return 0.1 + 0.005 * i


def numbers(values, digits=4, separator=","):
    return separator.join(f"{v:.{digits}f}" for v in values)


def row(i):
    return numbers([seconds(i), *rate(i), *gravity(i)])


def write(name, lines, encoding="utf-8", end="\n"):
    path = FOLDER / name
    path.parent.mkdir(exist_ok=True)
    path.write_bytes(("\n".join(lines) + end).encode(encoding))


def rows():
    head = "time,gx,gy,gz,ax,ay,az"
    table = [row(i) for i in range(COUNT)]
    quoted = [
        ";".join(f'"{v:.4f}"'.replace(".", ",") for v in [seconds(i), *rate(i), *gravity(i)])
        for i in range(COUNT)
    ]
    write(
        "rows/decimal-commas.csv",
        ["# made by a script", "# a comment; with 1,5", head.replace(",", ";"), *quoted[:5], "# 6"]
        + quoted[5:],
    )
    write("rows/cut-off.csv", [head, *table, row(COUNT)[:24]], end="")
    broken = numbers([seconds(2) + 0.001]) + ",NaN,0,0,0,nan,0"
    write("rows/nan.csv", [head, *table[:3], broken, *table[3:]])
    write("rows/utf-16.csv", [head, *table], encoding="utf-16")
    polled = [r for i in range(COUNT) for r in (row(i), numbers([seconds(i) + 0.0025]) + row(i)[6:])]
    write("rows/polled.csv", [head, *polled])


def columns():
    write(
        "iphone/rotation-rate.csv",
        ["Timestamp,Acceleration (X),Acceleration (Y),Acceleration (Z),"
         "Rotation Rate (X),Rotation Rate (Y),Rotation Rate (Z)"]
        + [numbers([seconds(i), *(-v / 9.81 for v in gravity(i)), *rate(i)], 6)
           for i in range(COUNT)],
    )
    write("android/alpha.csv", ["time,a_x,a_y,a_z,alpha_x,alpha_y,alpha_z"]
          + [numbers([seconds(i), *gravity(i), *rate(i)]) for i in range(COUNT)])
    axes = "gyro_x,gyro_y,gyro_z,accel_x,accel_y,accel_z"
    # 20 ms before a new second.
    write("times/date-and-ms.csv", ["date,ms," + axes]
          + [f"2023-11-14 22:13:{19 + (980 + 5 * i) // 1000},{(980 + 5 * i) % 1000},"
             + numbers(rate(i) + gravity(i)) for i in range(COUNT)])
    write("times/iso-8601.csv", ["timestamp," + axes]
          + [f"2023-11-14T23:13:20.{100 + 5 * i:03}+01:00," + numbers(rate(i) + gravity(i))
             for i in range(COUNT)])
    write("times/no-names.csv", [row(i) for i in range(COUNT)])


def long():
    lines = ["timestamp_ms,sensor,x,y,z"]
    for i in range(COUNT):
        time = f"{1000 * seconds(i):.0f}"
        lines += [f"{time},gyroscope,{numbers(rate(i))}", f"{time},magnetic field,21.4,-30.1,-18",
                  f"{time},accelerometer,{numbers(gravity(i))}"]
    write("android/one-sensor-a-row.csv", lines)


def flight():
    degrees = 57.29577951308232
    lines = ['"Product","Flight data recorder"', '"looptime","125"', '"acc_1G","2048"',
             '"loopIteration","time","gyroADC[0]","gyroADC[1]","gyroADC[2]",'
             '"accSmooth[0]","accSmooth[1]","accSmooth[2]"']
    for i in range(COUNT):
        values = [v * degrees for v in rate(i)] + [v / 9.81 * 2048 for v in gravity(i)]
        lines.append(f"{40 * i},{100000 + 5000 * i}," + numbers(values))
    write("flight/log.csv", lines)
    loops = [",".join(line.split(",")[:1] + line.split(",")[2:]) for line in lines[3:]]
    write("flight/loops.csv", lines[:3] + loops)


def timed_metadata():
    def track(mime, values):
        entry = box(b"mett", bytes(6), struct.pack(">H", 1), bytes(1), mime + bytes(1))
        return entry, [(struct.pack(">3f", *values(i)), SCALE // 200) for i in range(COUNT)]

    file = movie([track(b"application/gyro", rate), track(b"application/accel", gravity)], seconds(0))
    (FOLDER / "timed-metadata.mp4").write_bytes(file)


def nanoseconds(i):
    return round(1e9 * seconds(i))


def motion(i):
    drift = [0.25, 0.5, -0.125]
    vectors = [[r + d for r, d in zip(rate(i), drift)], drift, gravity(i), [0, 0, 0]]
    return field(1, nanoseconds(i)) + b"".join(
        field(2 + n, struct.pack("<3f", *v)) for n, v in enumerate(vectors))


def frame(i):
    shift = field(1, nanoseconds(i) + 1000) + field(2, 1.5 * i) + field(3, -0.5 * i)
    return (field(1, nanoseconds(i)) + field(2, i) + field(3, 8000000) + field(4, 33000000) +
            field(5, 21000000 + i) + field(6, 100) + field(7, 4.25) + field(8, 1500.0) +
            field(10, shift))


def sessions():
    size = field(1, 1920) + field(2, 1080)
    camera = field(3, 1) + field(11, size) + field(12, field(1, 4032) + field(2, 3024))
    names = field(1, b"a gyroscope") + field(5, 200.0)
    motions = [motion(i) for i in range(COUNT)]
    frames = [frame(i) for i in range(3)]
    whole = [field(1, field(1, 1700000000)), field(2, camera), field(3, names)]
    whole += [field(4, m) for m in motions] + [field(5, f) for f in frames]
    records = [field(1, camera), field(3, names)] + [field(2, m) for m in motions]
    records[5:5] = [field(4, f) for f in frames]
    folder = FOLDER / "sessions"
    folder.mkdir(exist_ok=True)
    (folder / "whole.pb3").write_bytes(b"".join(whole))
    (folder / "stream.pb3").write_bytes(b"".join(varint(len(r)) + r for r in records))


rows()
columns()
sessions()
timed_metadata()
long()
flight()
