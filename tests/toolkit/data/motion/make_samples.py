#!/usr/bin/env python3
"""Writes the samples of layouts that apps write, beside this file. All hold the same motion."""

from pathlib import Path

FOLDER = Path(__file__).parent
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


rows()
