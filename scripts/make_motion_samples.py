#!/usr/bin/env python3
"""Makes samples of motion logs as apps and cameras write them, one folder each, from a simulated clip.

Usage: make_motion_samples.py FRAMEHOLD FOLDER [--clip FILE]

All hold the same motion, each on a clock, in units and in axes of its own. FOLDER/samples.csv is the
list: folder, name of the video, log, format, letters of the axes, how far the log's clock is ahead of
the motion's, a rate's precision, and 1 if the frames' times are on that clock too.
FOLDER/truth.gcsv is the motion itself, in device axes. --clip keeps the clip.
"""

import io
import math
import shutil
import struct
import subprocess
import sys
import tempfile
import zipfile
from pathlib import Path

from sample_containers import SCALE, box, field, movie, varint

G = 9.81
SETTINGS = "--size 320x240 --focal 260 --duration 3 --imu-rate 60 --readout 0.012 --pan 15 " \
           "--pan-period 4 --shake 1.5 --seed 7"


class Motion:
    """Readings (time, rate, gravity) in logged axes; orientations (time, x, y, z, w) of the device."""

    def __init__(self, readings, orientations, axes, offset):
        self.offset = offset
        self.readings = [(t + offset, logged(r, axes), logged(a, axes)) for t, r, a in readings]
        self.orientations = [(t + offset, *q) for t, *q in orientations]


def logged(device, letters):
    """A vector in the axes that are mapped to the device's by the letters, see docs/motion-logs.md."""
    vector = [0.0] * 3
    for value, letter in zip(device, letters):
        vector["XYZ".index(letter.upper())] = value if letter.isupper() else -value
    return vector


def numbers(values, digits=6, separator=","):
    return separator.join(f"{v:.{digits}f}" for v in values)


def table(motion, head, row, end="\n"):
    return "\n".join([*head, *(row(*reading) for reading in motion.readings)]) + end


def both(t, rate, gravity):
    return numbers([t, *rate, *gravity])


NAMES = "time,gx,gy,gz,ax,ay,az"


def gcsv(m):
    head = ["CAMERA IMU LOG", "version,1.3", "id,made_up", "tscale,0.001", "gscale,0.001",
            f"ascale,{1 / 2048}", "t,gx,gy,gz,ax,ay,az"]
    return table(m, head, lambda t, r, a: numbers([1000 * t]) + "," + numbers(
        [1000 * v for v in r] + [v / G * 2048 for v in a], 3))


def nanoseconds(t):
    return round(t * 1e9)


def xyz(m, which):
    return table(m, ["x,y,z,timestamp_ns"],
                 lambda t, *v: f"{numbers(v[which])},{nanoseconds(t)}")


def logger_app(m, which):
    return table(m, ["time,seconds_elapsed,z,y,x"], lambda t, *v: ",".join(
        [str(1700000000000000000 + nanoseconds(t)), f"{t:.6f}", numbers(reversed(v[which]))]))


def gyro_accel(m):
    """Nanoseconds, rates and accelerations in one table, as with movie.mp4."""
    return table(m, ["Timestamp[nanosec],gx[rad/s],gy[rad/s],gz[rad/s],ax[m/s^2],ay[m/s^2],az[m/s^2]"],
                 lambda t, r, a: f"{nanoseconds(t)},{numbers([*r, *a])}")


def frame_times(m, frames=90):
    """Of the frames, on the clock of the log."""
    return "".join(f"{nanoseconds(i / 30 + m.offset)}\n" for i in range(frames))


def frame_metadata(m, frames=90):
    lines = ["Timestamp[nanosec],fx[px],fy[px],Frame No.,Exposure time[nanosec],"
             "Sensor frame duration[nanosec],Frame readout time[nanosec],ISO"]
    for i in range(frames):
        lines.append(f"{nanoseconds(i / 30 + m.offset)},260.0,260.0,{i},100000,33333333,12000000,100")
    return "\n".join(lines) + "\n"


def euroc(m):
    return table(m, ["#timestamp [ns],w_RS_S_x [rad s^-1],w_RS_S_y [rad s^-1],w_RS_S_z [rad s^-1],"
                     "a_RS_S_x [m s^-2],a_RS_S_y [m s^-2],a_RS_S_z [m s^-2]"],
                 lambda t, r, a: f"{nanoseconds(t)},{numbers([*r, *a])}")


def rotation_vector(m):
    """In axes yXZ: those of the device, turned by a quarter about z."""
    lines = ["timestamp_ms,qx,qy,qz,qw"]
    s = math.sqrt(0.5)
    for t, x, y, z, w in m.orientations:
        lines.append(numbers([1000 * t, s * (x + y), s * (y - x), s * (z + w), s * (w - z)], 7))
    return "\n".join(lines) + "\n"


def one_sensor_a_row(m):
    lines = ["timestamp_ms,sensor,x,y,z"]
    for t, rate, gravity in m.readings:
        time = f"{1000 * t:.3f}"
        lines += [f"{time},gyroscope,{numbers(rate)}", f"{time},magnetic field,21.4,-30.1,-18",
                  f"{time},accelerometer,{numbers(gravity)}"]
    return "\n".join(lines) + "\n"


def flight_controller(m):
    head = ['"Product","Flight data recorder"', '"looptime","16667"', '"acc_1G","2048"',
            '"loopIteration","time","gyroADC[0]","gyroADC[1]","gyroADC[2]",'
            '"accSmooth[0]","accSmooth[1]","accSmooth[2]"']
    rows = iter(range(len(m.readings)))
    return table(m, head, lambda t, r, a: f"{next(rows)},{1e6 * t:.0f}," + numbers(
        [math.degrees(v) for v in r] + [v / G * 2048 for v in a], 4))


def phone_columns(m):
    head = ("loggingTime(txt),motionTimestamp_sinceReboot(s),"
            "motionRotationRateX(rad/s),motionRotationRateY(rad/s),motionRotationRateZ(rad/s),"
            "accelerometerTimestamp_sinceReboot(s),accelerometerAccelerationX(G),"
            "accelerometerAccelerationY(G),accelerometerAccelerationZ(G)")
    return table(m, [head], lambda t, r, a: "2023-11-14 22:13:20," + numbers(
        [t, *r, t, *(-v / G for v in a)]))


def brackets(m):
    return table(m, ["Timestamp,Acceleration (X),Acceleration (Y),Acceleration (Z),"
                     "Rotation Rate (X),Rotation Rate (Y),Rotation Rate (Z)"],
                 lambda t, r, a: numbers([t, *(-v / G for v in a), *r]))


def alpha(m):
    return table(m, ["time,a_x,a_y,a_z,alpha_x,alpha_y,alpha_z"],
                 lambda t, r, a: numbers([t, *a, *r]))


DATE = 1700000000  # 2023-11-14 22:13:20 UTC
AXES = "gyro_x,gyro_y,gyro_z,accel_x,accel_y,accel_z"


def date_and_ms(m):
    def row(t, r, a):
        ms = round(1000 * (t - DATE))
        return f"2023-11-14 22:13:{20 + ms // 1000:02},{ms % 1000},{numbers([*r, *a])}"
    return table(m, ["date,ms," + AXES], row)


def iso_8601(m):
    def row(t, r, a):
        seconds = round(t - DATE, 6)
        return f"2023-11-14T23:13:{20 + seconds:09.6f}+01:00,{numbers([*r, *a])}"
    return table(m, ["timestamp," + AXES], row)


def decimal_commas(m):
    return table(m, ["# made up; with 1,5", NAMES.replace(",", ";")], lambda t, r, a: ";".join(
        f'"{v:.6f}"'.replace(".", ",") for v in [t, *r, *a]))


def polled(m):
    return table(m, [NAMES], lambda t, r, a: both(t, r, a) + "\n" + both(t + 0.008, r, a))


def torn(m):
    nan = numbers([m.readings[9][0] + 0.001]) + ",NaN,0,0,nan,0,0"
    lines = table(m, [NAMES], both).splitlines()
    return "\n".join([*lines[:11], nan, *lines[11:], lines[-1][:24]])


STEP = SCALE // 60  # ticks from reading to reading


def mett(m):
    def readings(which, mime):
        entry = box(b"mett", bytes(6), struct.pack(">H", 1), bytes(1), mime + bytes(1))
        return entry, [(struct.pack(">3f", *r[which]), STEP) for r in m.readings]
    return movie([readings(1, b"application/gyro"), readings(2, b"application/accel")],
                 m.readings[0][0])


def messages(m):
    """A stream of records, of motion alone."""
    records = [field(2, field(1, nanoseconds(t)) + field(2, struct.pack("<3f", *r)) +
                     field(4, struct.pack("<3f", *a))) for t, r, a in m.readings]
    return b"".join(varint(len(record)) + record for record in records)


def camm(m):
    packets = []
    for _, rate, gravity in m.readings:
        packets += [(struct.pack("<HH3f", 0, 2, *rate), 0), (struct.pack("<HH3f", 0, 3, *gravity), STEP)]
    return movie([(box(b"camm", bytes(6), struct.pack(">H", 1)), packets)], m.readings[0][0])


def record(key, kind, size, data):
    head = key + kind + struct.pack(">BH", size, len(data) // size)
    return head + data + bytes(-len(data) % 4)


def gpmf(m):
    """Channels Z, X, Y of the camera are the device's x, y, z: so is ORIN."""
    def stream(key, unit, scale, which, part, count):
        values = [round(v * scale) for reading in part for v in reading[which]]
        return record(b"STRM", b"\0", 1, b"".join([
            record(b"TSMP", b"L", 4, struct.pack(">I", count)),
            record(b"SIUN", b"c", len(unit), unit),
            record(b"SCAL", b"s", 2, struct.pack(">h", scale)),
            record(b"ORIN", b"c", 1, b"ZXY"),
            record(key, b"s", 6, struct.pack(f">{len(values)}h", *values))]))
    packets = []
    for first in range(0, len(m.readings), 60):
        part = m.readings[first:first + 60]
        count = first + len(part)
        device = (record(b"DVID", b"L", 4, struct.pack(">I", 1))
                  + stream(b"GYRO", b"rad/s", 8000, 1, part, count)
                  + stream(b"ACCL", b"m/s\xb2", 1000, 2, part, count))
        packets.append((record(b"DEVC", b"\0", 1, device), STEP * len(part)))
    entry = box(b"gpmd", bytes(6), struct.pack(">HI", 1, 0))
    return movie([(entry, packets)], m.readings[0][0])


def session(m):
    camera = field(11, field(1, 320) + field(2, 240)) + field(12, field(1, 640) + field(2, 480))
    records = [field(1, camera)]
    for t, rate, gravity in m.readings:
        records.append(field(2, field(1, nanoseconds(t)) + b"".join(
            field(2 + i, struct.pack("<3f", *v))
            for i, v in enumerate((rate, [0] * 3, gravity, [0] * 3)))))
    for i in range(90):
        records.append(field(4, field(1, nanoseconds(i / 30 + m.offset)) + field(3, 2000000)
                             + field(5, 12000000) + field(8, 260.0)))
    return b"".join(varint(len(r)) + r for r in records)


def archive(m):
    bytes_ = io.BytesIO()
    with zipfile.ZipFile(bytes_, "w", zipfile.ZIP_DEFLATED) as file:
        for name, which in (("Gyroscope.csv", 0), ("Accelerometer.csv", 1)):
            # The date is fixed, so that the bytes are.
            file.writestr(zipfile.ZipInfo("session/" + name), logger_app(m, which),
                          zipfile.ZIP_DEFLATED)
    return bytes_.getvalue()


VID = "VID_20231114_221320"
# Folder, video, files by name (the log first), format, axes, clock, precision of a rate.
SAMPLES = [
    ("logger-app", "clip", {"Gyroscope.csv": lambda m: logger_app(m, 0),
                            "Accelerometer.csv": lambda m: logger_app(m, 1)},
     "sensor CSV", "YxZ", 0.037, 1e-6),
    ("video-name", VID, {f"{VID}gyro.csv": lambda m: xyz(m, 0), f"{VID}accel.csv": lambda m: xyz(m, 1),
                         f"{VID}_timestamps.csv": frame_times},
     "x,y,z,timestamp_ns", "yXZ", 4211.25, 1e-6),
    ("date-folder", VID, {f"20231114/{VID}_gyro.csv": lambda m: xyz(m, 0),
                          f"20231114/{VID}_accel.csv": lambda m: xyz(m, 1),
                          f"20231114/{VID}_timestamps.csv": frame_times},
     "x,y,z,timestamp_ns", "ZYx", 77.5, 1e-6),
    ("movie", "movie", {"gyro_accel.csv": gyro_accel, "frame_timestamps.txt": frame_times,
                        "movie_metadata.csv": frame_metadata},
     "sensor CSV", "XZy", 538148.5, 1e-6),
    ("zip", "walk", {"walk.zip": archive}, "sensor CSV", "yZX", 41.5, 1e-6),
    ("gcsv", "walk", {"walk.gcsv": gcsv}, "gcsv 1.3", "xyZ", -0.118, 1e-6),
    ("euroc", "walk", {"walk.csv": euroc}, "EuRoC", "zXy", 1403636579.75, 1e-6),
    ("rotation-vector", "walk", {"walk.csv": rotation_vector}, "rotation vector", "yXZ", 2.5, 0),
    ("one-sensor-a-row", "walk", {"walk.csv": one_sensor_a_row}, "one sensor a row", "ZXY", 1.25, 1e-6),
    ("no-names", "walk", {"walk.csv": lambda m: table(m, [], both)}, "rows without names", "yzX", 12.5,
     1e-6),
    ("flight-controller", "walk", {"walk.csv": flight_controller}, "flight-controller log", "zyx", 31.25,
     2e-6),
    ("phone-columns", "walk", {"walk.csv": phone_columns}, "sensor CSV", "XYZ", 8123.5, 1e-6),
    ("brackets", "walk", {"walk.csv": brackets}, "sensor CSV", "yxz", 1.5, 1e-6),
    ("a-and-alpha", "walk", {"walk.csv": alpha}, "sensor CSV", "YZX", 1.125, 1e-6),
    ("date-and-ms", "walk", {"walk.csv": date_and_ms}, "sensor CSV", "xZY", DATE + 2.0, 1e-6),
    ("iso-8601", "walk", {"walk.csv": iso_8601}, "sensor CSV", "Zxy", DATE + 3.0, 1e-6),
    ("decimal-commas", "walk", {"walk.csv": decimal_commas}, "sensor CSV", "YXz", 0.25, 1e-6),
    ("utf-16", "walk", {"walk.csv": lambda m: table(m, [NAMES], both).encode("utf-16")}, "sensor CSV",
     "xYz", 1.0625, 1e-6),
    ("polled", "walk", {"walk.csv": polled}, "sensor CSV", "Xyz", 1.375, 1e-6),
    ("torn-end", "walk", {"walk.csv": torn}, "sensor CSV", "zxY", 1.75, 1e-6),
    ("messages", "video_recording", {"video_meta.pb3": messages}, "protobuf session", "zyX", 987.5, 1e-6),
    ("mett", "walk", {"telemetry.bin": mett}, "mett", "YxZ", 1.05, 1e-6),
    ("session", "walk", {"telemetry.bin": session}, "protobuf session", "zYX", 902.5, 1e-6),
    ("camm", "walk", {"telemetry.bin": camm}, "CAMM", "xzy", 1.1,
     1e-6),
    ("gpmf", "walk", {"telemetry.bin": gpmf}, "GPMF", "XYZ", 1.15, 1e-4),
]


def read_table(path, first):
    """Rows of numbers after the line that starts with `first`."""
    lines = path.read_text().splitlines()
    start = next(i for i, line in enumerate(lines) if line.startswith(first))
    return [[float(v) for v in line.split(",")] for line in lines[start + 1:]]


def main():
    framehold, folder = sys.argv[1], Path(sys.argv[2])
    with tempfile.TemporaryDirectory() as work:
        clip = Path(work)
        subprocess.run([framehold, "simulate", work, "-q", "--overwrite", *SETTINGS.split()], check=True)
        readings = [(t * 1e-6, r, [G * v for v in a])
                    for t, *v in read_table(clip / "imu.gcsv", "t,gx") for r, a in [(v[:3], v[3:])]]
        orientations = [row[1:6] for row in read_table(clip / "truth.csv", "frame,")]
        folder.mkdir(exist_ok=True)
        shutil.copy(clip / "imu.gcsv", folder / "truth.gcsv")
        if sys.argv[3:4] == ["--clip"]:
            shutil.copy(clip / "clip.mp4", sys.argv[4])
    lines = ["folder,video,log,format,axes,clock_s,precision_rad_s,has_frame_times"]
    for name, video, files, kind, axes, offset, precision in SAMPLES:
        motion = Motion(readings, orientations, axes, offset)
        for file, make in files.items():
            path = folder / name / file
            path.parent.mkdir(parents=True, exist_ok=True)
            content = make(motion)
            path.write_bytes(content if isinstance(content, bytes) else content.encode())
        log = next(iter(files))
        if log == "telemetry.bin":
            (folder / name / f"{video}.json").write_text('{"imu": {"file": "telemetry.bin"}}\n')
        lines.append(f'{name},{video},{log},"{kind}",{axes},{offset},{precision},'
                     f"{int(frame_times in files.values() or name == 'session')}")
    (folder / "samples.csv").write_text("\n".join(lines) + "\n")


main()
