#!/usr/bin/env python3
"""Prints the manifest of an archive: for each clip below CLIPS a line with it, a tab, and its result.

Usage: manifest.py CLIPS RESULTS [--left]

Results lie below RESULTS as the clips do below CLIPS. --left prints only clips without a result.
"""

from __future__ import annotations

import argparse
import os
import sys
from pathlib import Path
from typing import Iterator

KEPT = {".mp4", ".mov", ".mkv"}
SUFFIXES = KEPT | {".3gp", ".avi", ".m4v", ".mpg", ".mts", ".ts", ".webm", ".y4m"}


def manifest(clips: Path, results: Path) -> Iterator[tuple[Path, Path]]:
    """Gives each clip with its result; the name of the result tells clips of one name apart."""
    seen: dict[Path, Path] = {}
    for folder, subfolders, names in os.walk(clips):
        subfolders[:] = sorted(name for name in subfolders if Path(folder, name) != results)
        for name in sorted(names):
            clip = Path(folder, name)
            suffix = clip.suffix.lower()
            if suffix not in SUFFIXES:
                continue
            if set("\t\n") & set(str(clip)):
                raise SystemExit(f"{str(clip)!r}: tabs and line ends cannot be in a manifest")
            result = results / clip.relative_to(clips)
            if suffix not in KEPT:
                result = result.with_name(name + ".mp4")
            if result in seen:
                raise SystemExit(f"{result} would be written for {seen[result]} and for {clip}")
            seen[result] = clip
            yield clip, result


def main() -> None:
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("clips", type=Path)
    parser.add_argument("results", type=Path)
    parser.add_argument("--left", action="store_true")
    given = parser.parse_args()
    if not given.clips.is_dir():
        raise SystemExit(f"{given.clips}: there is no such folder")
    # Tasks start in folders of their own.
    for clip, result in manifest(given.clips.absolute(), given.results.absolute()):
        if not (given.left and result.exists()):
            sys.stdout.write(f"{clip}\t{result}\n")


if __name__ == "__main__":
    main()
