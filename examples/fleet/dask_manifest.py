#!/usr/bin/env python3
"""Stabilizes the clips of a manifest (see manifest.py) on the workers of a Dask cluster.

    dask-scheduler --host HOST --port 8786
    dask-worker tcp://HOST:8786 --nthreads 1        on every machine, as often as it has cores
    dask_manifest.py tcp://HOST:8786 MANIFEST LEDGER [--page PAGE.html] [-- OPTION...]

Every clip that ends adds a line of JSON to LEDGER; PAGE shows the progress. If a worker dies, another
one does its clip. Run it again after a break: clips whose results are there are left out. OPTIONs are
those of `framehold stabilize`.
Exit code: 0 all results are there; 1 clips failed; 3 the input of some had losses.
"""

from __future__ import annotations

import argparse
import base64
import collections
import html
import json
import os
import socket
import subprocess
import sys
import time
from typing import Any

import distributed

SHOWN = 12
"""Number of clips whose pictures are shown: those that ended last."""


def picture_of(clip: str, result: str) -> str:
    """A clip's frame after a second beside its result's, as JPEG in base64; "" without ffmpeg."""
    scale = "scale=240:-2"
    command = ["ffmpeg", "-v", "error", "-ss", "1", "-i", clip, "-ss", "1", "-i", result]
    command += ["-filter_complex", f"[0]{scale}[a];[1]{scale}[b];[a][b]hstack", "-frames:v", "1"]
    try:
        run = subprocess.run(command + ["-f", "mjpeg", "-"], capture_output=True)
    except FileNotFoundError:
        return ""
    return base64.b64encode(run.stdout).decode()


def stabilize(clip: str, result: str, options: list[str], wants_picture: bool) -> dict[str, Any]:
    """Stabilizes a clip, on a worker, and gives its line of the ledger."""
    start = time.time()
    os.makedirs(os.path.dirname(result), exist_ok=True)
    # It ends with its worker: nobody else would write the result then.
    command = ["setpriv", "--pdeathsig", "TERM", os.environ.get("FRAMEHOLD", "framehold")]
    command += ["stabilize", clip, "-o", result, "--skip-existing", "--json", "--quiet", *options]
    run = subprocess.run(command, capture_output=True, text=True)
    try:
        said = json.loads(run.stdout)["clips"][0]
    except ValueError:
        why = run.stderr.strip() or f"exit code {run.returncode}"
        said = {"status": "failed", "error": f"{clip}: {why}"}
    entry = {
        "clip": clip,
        "result": result,
        "status": said["status"],
        "frames": said.get("frames", 0),
        "error": said.get("error", ""),
        "warnings": said.get("warnings", []),
        "worker": f"{socket.gethostname()}:{os.getpid()}",
        "start": round(start, 3),
        "seconds": round(time.time() - start, 3),
        "processor_seconds": round(sum(said.get("processor_seconds", {}).values()), 3),
    }
    if wants_picture and said["status"].startswith("done"):
        entry["picture"] = picture_of(clip, result)
    return entry


class Progress:
    """Counts of what has ended, and the page that shows them."""

    def __init__(self, page: str | None, clips: int) -> None:
        self.page = page
        self.clips = clips
        self.start = time.time()
        self.written = 0.0
        self.statuses: collections.Counter[str] = collections.Counter()
        self.workers: dict[str, list[float]] = {}
        self.failures: list[dict[str, Any]] = []
        self.latest: collections.deque[dict[str, Any]] = collections.deque(maxlen=SHOWN)

    def add(self, entry: dict[str, Any]) -> None:
        """Counts a clip that has ended."""
        self.statuses[entry["status"]] += 1
        if entry["status"] == "failed":
            self.failures.append(entry)
        if entry.get("picture"):
            self.latest.appendleft(entry)
        if "worker" in entry:
            done = self.workers.setdefault(entry["worker"], [0, 0, 0.0])
            done[0] += 1
            done[1] += entry["frames"]
            done[2] += entry["seconds"]

    def text(self) -> str:
        """One line: how many ended how, and the time that is left."""
        ended = sum(self.statuses.values())
        worked = ended - self.statuses["skipped"]
        parts = [f"{count} {status}" for status, count in sorted(self.statuses.items())]
        text = f"{ended} of {self.clips} clips: {', '.join(parts) or 'none ended'}"
        if 0 < worked and ended < self.clips:
            seconds = (time.time() - self.start) / worked * (self.clips - ended)
            hours = seconds / 3600.0
            text += f"; about {hours:.0f} hours" if hours >= 2.0 else f"; about {60.0 * hours:.0f} minutes"
            text += " left"
        return text

    def write(self, workers: int, at_once: bool = False) -> None:
        """Writes the page whole, at most once in two seconds."""
        now = time.time()
        if not self.page or (now - self.written < 2.0 and not at_once):
            return
        self.written = now
        ended = sum(self.statuses.values())
        pictures = "".join(
            f'<figure><img src="data:image/jpeg;base64,{e["picture"]}" alt="before and after">'
            f'<figcaption>{html.escape(os.path.basename(e["clip"]))}</figcaption></figure>'
            for e in self.latest
        )
        failures = "".join(
            f"<li>{html.escape(e['error'])}" for e in self.failures[-100:]
        )
        rows = "".join(
            f"<tr><td>{html.escape(name)}<td>{clips:.0f}<td>{frames / max(seconds, 1e-3):.1f}"
            for name, (clips, frames, seconds) in sorted(self.workers.items())
        )
        refresh = '<meta http-equiv="refresh" content="5">' if ended < self.clips else ""
        text = f"""<!DOCTYPE html><html lang="en"><meta charset="utf-8">{refresh}
<title>{ended} of {self.clips} clips</title>
<style>body {{ font: 16px sans-serif; margin: 2em }} progress {{ width: 100% }}
figure {{ display: inline-block; margin: 0.3em }} td, th {{ padding: 0 1em; text-align: right }}</style>
<h1>{html.escape(self.text())}</h1>
<progress max="{self.clips}" value="{ended}"></progress>
<p>{time.strftime("%F %T")}, workers: {workers}</p>
<h2>Last results, each on the right of its source</h2>{pictures or "none yet"}
<h2>{len(self.failures)} failed</h2><ul>{failures}</ul>
<h2>Workers</h2><table><tr><th>worker<th>clips<th>frames per second{rows}</table></html>
"""
        temporary = f"{self.page}.{os.getpid()}.part"
        with open(temporary, "w", encoding="utf-8") as file:
            file.write(text)
        os.replace(temporary, self.page)


def run(client: distributed.Client, clips: list[list[str]], given: argparse.Namespace) -> Progress:
    """Has every clip stabilized; a line of the ledger for each that ends."""
    progress = Progress(given.page, len(clips))
    names = {}
    waiting = distributed.as_completed()
    for clip, result in clips:
        future = client.submit(
            stabilize, clip, result, given.options, bool(given.page), key=result, pure=False
        )
        names[result] = clip
        waiting.add(future)
        # The scheduler would have the results of a worker that dies computed again as long as
        # anything refers to them.
        del future
    with open(given.ledger, "a", encoding="utf-8") as ledger:
        for future in waiting:
            try:
                entry = future.result()
            # The program's failures are in the entry; this is a clip that several workers died of.
            except Exception as error:
                clip = names[future.key]
                entry = {"clip": clip, "result": future.key, "status": "failed"}
                entry["error"] = f"{clip}: {error!r}"
            future.release()
            progress.add(entry)
            kept = {name: value for name, value in entry.items() if name != "picture"}
            ledger.write(json.dumps(kept) + "\n")
            ledger.flush()
            os.fsync(ledger.fileno())
            where = entry.get("worker", "no worker")
            print(f"{entry['clip']}: {entry['status']} on {where} {entry['error']}", flush=True)
            progress.write(len(client.scheduler_info()["workers"]))
    progress.write(len(client.scheduler_info()["workers"]), at_once=True)
    return progress


def main() -> int:
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("scheduler")
    parser.add_argument("manifest")
    parser.add_argument("ledger")
    parser.add_argument("--page")
    end = (sys.argv + ["--"]).index("--")
    given = parser.parse_args(sys.argv[1:end])
    given.options = sys.argv[end + 1 :]
    with open(given.manifest, encoding="utf-8") as manifest:
        clips = [line.rstrip("\n").split("\t") for line in manifest]
    with distributed.Client(given.scheduler) as client:
        progress = run(client, clips, given)
    print(progress.text())
    if progress.statuses["failed"]:
        return 1
    return 3 if progress.statuses["done with losses"] else 0


if __name__ == "__main__":
    sys.exit(main())
