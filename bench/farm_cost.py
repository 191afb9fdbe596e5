#!/usr/bin/env python3
"""The model of what a farm takes, against real runs of its two engines with one and two workers on this machine.

Of each case the steps are measured by `vela submit --estimate`; then the same job runs: by sessions of openjd, as a farm's workers have them, and by
dask clusters of as many worker processes. A row has the seconds that the model tells and those that the job took, by the wall clock, and the same for the processor's
time of the busier worker. The wall clock is worth something on an idle machine alone: `share` is how much of a processor the estimate got of the one that it had.
`scripts/bench-farm` builds what it needs and runs it.

Usage: farm_cost.py COMMAND [--quick] [--json FILE] [--scene FILE]...
"""

from __future__ import annotations

import argparse
import dataclasses
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import time

import dask
import distributed
import psutil
import vela
import vela.dask

BANDS = 4
# What the model takes of openjd: Estimate.cpp has the same numbers.
SESSION, TASK = 0.6, 0.01


@dataclasses.dataclass
class Case:
    scene: pathlib.Path
    width: int
    frames: int
    samples: int = 4

    @property
    def name(self) -> str:
        return f"{self.scene.stem}, {self.width}, {self.frames}"

    def options(self) -> list[str]:
        return ["--size", f"{self.width}x{self.width * 9 // 16}", "--samples", str(self.samples), "--threads", "1"]


@dataclasses.dataclass
class Steps:
    """What the estimate measured, and its share of a processor."""

    start: float
    open: float
    build: float
    render: float
    write: float
    share: float


def run(words: list[str]) -> tuple[str, float, float]:
    """Standard output, seconds by the wall clock and of the processor, with all that the process waited for."""
    begin = time.monotonic()
    with tempfile.TemporaryFile("w+") as out:
        process = subprocess.Popen(words, stdout=out, stderr=subprocess.STDOUT)
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        text = out.read()
    if process.returncode != 0:
        sys.exit(f"farm_cost.py: error: {shlex.join(words)}\n{text}")
    return text, time.monotonic() - begin, used.ru_utime + used.ru_stime


def estimate(command: str, case: Case, folder: pathlib.Path) -> tuple[Steps, dict[tuple[bool, int], float]]:
    """The steps, and the model's seconds for frames and bands by openjd on one and two machines."""
    text, wall, used = run([command, "submit", str(case.scene), "--frames", f"1-{case.frames}", "-o", str(folder / "f.####.exr"),
                            *case.options(), "--estimate", "--machines", "1,2", "--tiles", str(BANDS)])
    number = r"([\d.]+) s"
    found = re.search(rf"start {number}, open {number}\n.*build {number}, trace {number}, shade {number}, write {number}", text)
    if not found:
        sys.exit(f"farm_cost.py: error: an estimate of another form:\n{text}")
    start, open_, build, trace, shade, write = map(float, found.groups())

    def task(frames_built: float, rendered: float, written: float) -> float:
        return TASK + start + open_ + frames_built * build + rendered * (trace + shade) + written * write

    # The command's tables are rounded to tenths: the same sums, as decision 9 has them.
    model = {}
    for machines in (1, 2):
        session = SESSION + start + open_
        most = -(-case.frames // machines)
        model[False, machines] = session + most * task(1, 1, 1)
        bands = -(-case.frames * BANDS // machines)
        model[True, machines] = session + bands * task(1, 1 / BANDS, 1 / BANDS) + most * task(1, 0, 2)
    return Steps(start, open_, build, trace + shade, write, used / wall), model


def run_openjd(command: str, case: Case, folder: pathlib.Path, isCut: bool, workers: int) -> tuple[float, float]:
    """Seconds until the last of the workers is done, and of the processor of the busiest."""
    job = folder / "job.json"
    line, _, _ = run([command, "submit", str(case.scene), "--frames", f"1-{case.frames}", "-o", str(folder / "f.####.exr"), *case.options(),
                      "--job", str(job), "--command", command, *(["--tiles", str(BANDS)] if isCut else [])])
    words = shlex.split(next(text for text in line.splitlines() if text.startswith("openjd ")))
    parameters = words[words.index("-p"):]
    frames = range(1, case.frames + 1)
    steps = [("Render", [{"Frame": str(f), "Tile": str(t)} for f in frames for t in range(1, BANDS + 1)]), ("Join", [{"Frame": str(f)} for f in frames])]
    if not isCut:
        steps = [("Render", [{"Frame": str(f)} for f in frames])]
    wall, busiest = 0.0, [0.0] * workers
    for step, tasks in steps:
        begin = time.monotonic()
        running = []
        for worker in range(workers):
            chosen = json.dumps(tasks[worker::workers])
            running.append(subprocess.Popen([sys.executable, "-m", "openjd", "run", str(job), "--step", step, "--tasks", chosen, *parameters],
                                            stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT))
        for worker, process in enumerate(running):
            _, status, used = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
            if process.returncode != 0:
                sys.exit(f"farm_cost.py: error: a worker of openjd ended with {process.returncode} in step {step}")
            busiest[worker] += used.ru_utime + used.ru_stime
        wall += time.monotonic() - begin
    return wall, max(busiest)


def run_dask(case: Case, folder: pathlib.Path, isCut: bool, workers: int) -> tuple[float, float]:
    """The same on a cluster that is there already, as it is between jobs."""
    def spent() -> float:
        times = psutil.Process().cpu_times()
        return times.user + times.system

    size = (case.width, case.width * 9 // 16)
    with distributed.LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=":0") as cluster, distributed.Client(cluster) as client:
        client.run(lambda: __import__("vela.dask"))
        before = client.run(spent)
        begin = time.monotonic()
        if isCut:
            for frame in range(1, case.frames + 1):
                vela.dask.tiles(client, case.scene, count=BANDS, time=frame, size=size, samples=case.samples).result()
        else:
            vela.dask.render(client, case.scene, frames=f"1-{case.frames}", output=folder / "f.####.exr", size=size, samples=case.samples).result()
        wall = time.monotonic() - begin
        after = client.run(spent)
    return wall, max(after[worker] - before[worker] for worker in after)


def main() -> None:
    root = pathlib.Path(__file__).resolve().parents[1]
    parser = argparse.ArgumentParser()
    parser.add_argument("command")
    parser.add_argument("--quick", action="store_true", help="one small case")
    parser.add_argument("--json", help="writes the rows there")
    parser.add_argument("--scene", action="append", default=[], type=pathlib.Path, help="one more, at width 320, 4 frames")
    given = parser.parse_args()
    command = str(pathlib.Path(given.command).resolve())
    demo = root / "examples/demo/demo.usda"
    cases = [Case(demo, 64, 4, 1)] if given.quick else [Case(demo, 320, 12), Case(demo, 640, 4), Case(demo, 64, 12, 1)]
    cases += [Case(scene.resolve(), 320, 4) for scene in given.scene]
    dask.config.set({"logging.distributed": "error"})
    rows = []
    print("| scene, width, frames | engine | cut | workers | share | model | taken | error | processor: model | taken | error |\n|" + "---|" * 11)
    for case in cases:
        with tempfile.TemporaryDirectory(prefix="vela-farm-cost-") as name:
            folder = pathlib.Path(name)
            for isCut in (False, True):
                for workers in (1, 2):
                    for engine in ("openjd", "dask"):
                        # What is there would be left alone.
                        for made in folder.glob("f.*"):
                            made.unlink()
                        # Measured anew for each row: a machine is not always as quick.
                        steps, model = estimate(command, case, folder)
                        if engine == "openjd":
                            seconds = model[isCut, workers]
                            if isCut:  # bands and joins run in a session each here, where a farm may keep one
                                seconds += SESSION + steps.start + steps.open
                            taken, used = run_openjd(command, case, folder, isCut, workers)
                        else:
                            # No starts: a worker opens the scene once, one to plan the job and the others behind it, and builds a
                            # frame once for all of its bands.
                            most = -(-case.frames // workers)
                            seconds = min(workers, 2) * steps.open + (case.frames * (steps.build + steps.render / workers) if isCut
                                                    else most * (steps.build + steps.render + steps.write))
                            taken, used = run_dask(case, folder, isCut, workers)
                        scaled = seconds * steps.share
                        rows.append({"case": case.name, "engine": engine, "bands": BANDS if isCut else 1, "workers": workers, "share": steps.share,
                                     "model": seconds, "taken": taken, "processorModel": scaled, "processorTaken": used})
                        print(f"| {case.name} | {engine} | {f'{BANDS} bands' if isCut else 'frames'} | {workers} | {steps.share:.2f} | {seconds:.1f} s | {taken:.1f} s | "
                              f"{100 * (seconds / taken - 1):+.0f} % | {scaled:.1f} s | {used:.1f} s | {100 * (scaled / used - 1):+.0f} % |", flush=True)
    if given.json:
        pathlib.Path(given.json).write_text(json.dumps(rows, indent=1) + "\n")


if __name__ == "__main__":
    main()
