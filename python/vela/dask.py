"""Frames, bands of a huge frame and batches of rays on the workers of a dask cluster, with the results of one process.

Each function takes a `distributed.Client` and gives a `Job` when a worker has read the scene; `Job.result()` waits for all
of it. A worker process reads a scene once and keeps it for all tasks and jobs. Before anything is rendered every worker is
asked whether it has this version of Vela, sees every file of the scene and may write to the folders.

The page is docs/guide/farm.md. Needs the package `distributed`, which `import vela` does not.

>>> import distributed, vela.dask
>>> with distributed.Client(n_workers=1, threads_per_worker=1, processes=False, dashboard_address=None) as client:
...     job = vela.dask.render(client, "examples/demo/demo.usda", frames="1-3", size=(32, 18), samples=1, layers=["depth"])
...     pictures = job.result()
>>> len(pictures), pictures[0]["depth"].shape
(3, (18, 32))
"""

from __future__ import annotations

import concurrent.futures
import dataclasses
import os
import queue
import time as _time
import typing
import uuid
import warnings

import numpy
import numpy.typing

try:
    import distributed
    from distributed import Client, Future
    from distributed.scheduler import KilledWorker
except ImportError as _error:
    raise ImportError(f"vela.dask needs the package distributed ({_error}): pip install 'dask[distributed]'") from None

import vela
from vela import _farm, _render
from vela._results import SurfaceHits
from vela._vela.picture import Picture, file_format
from vela._vela.scene import CasterKind, MeshFilter, has_frame_place, name_of_frame, parse_frames
from vela._warnings import VelaWarning

T = typing.TypeVar("T")
FileName = typing.Union[str, "os.PathLike[str]"]
Frames = typing.Union[str, typing.Iterable[float]]

__all__ = ["Job", "JobError", "WorkerError", "connect", "forget", "intersect", "render", "tiles"]


class WorkerError(RuntimeError):
    """Workers that cannot do a job, found before anything of it was done.

    `workers` says of each by its address why: another version of Vela, a file or folder that it does not see.

    >>> print(vela.dask.WorkerError({"tcp://10.0.0.7:4011": "it does not see /shots/a.usda"}))
    tcp://10.0.0.7:4011: it does not see /shots/a.usda
    """

    def __init__(self, workers: dict[str, str]) -> None:
        super().__init__(workers)
        self.workers = workers

    def __str__(self) -> str:
        return "; ".join(f"{worker}: {why}" for worker, why in self.workers.items())


class JobError(RuntimeError):
    """What of a job failed, when all the rest is done.

    `failed` says of each part by its name (`frame 7`) why; `results` has those of the others by their names.

    >>> print(vela.dask.JobError({"frame 7": "no room"}, {"frame 8": None}))
    1 of 2 failed: frame 7: no room
    """

    def __init__(self, failed: dict[str, str], results: dict[str, typing.Any]) -> None:
        super().__init__(failed, results)
        self.failed, self.results = failed, results

    def __str__(self) -> str:
        # Hundreds of frames may fail for one reason: each reason once.
        reasons: dict[str, list[str]] = {}
        for name, why in self.failed.items():
            reasons.setdefault(why, []).append(name)
        told = "; ".join(f"{', '.join(names)}: {why}" for why, names in reasons.items())
        return f"{len(self.failed)} of {len(self.failed) + len(self.results)} failed: {told}"


@dataclasses.dataclass
class _Part:
    """A part of a job: its name, how it is sent to the cluster, and where it was tried in vain."""

    name: str
    submit: typing.Callable[..., "Future[typing.Any]"]
    tried: list[str] = dataclasses.field(default_factory=list)


class Job(typing.Generic[T]):
    """A job that runs on a cluster: what `render`, `tiles` and `intersect` give.

    `result()` waits for it, `progress()` shows dask's bar, `cancel()` stops it. `futures` are its tasks, for whoever wants to
    watch them by dask's own means. Threads: one at a time may call its methods, but for `cancel`.

    >>> import distributed, vela.dask
    >>> with distributed.Client(n_workers=1, threads_per_worker=1, processes=False, dashboard_address=None) as client:
    ...     job = vela.dask.intersect(client, "examples/demo/demo.usda", [[0, 1000, 0]], [[0, -1, 0]])
    ...     hits = job.result()
    >>> job, hits.hit.tolist()
    (<Job of 1 task>, [True])
    """

    def __init__(self, client: Client, plan: _farm.Plan, parts: list[_Part],
                 collect: typing.Callable[[list[typing.Any]], T],
                 last: typing.Callable[["list[Future[typing.Any]]"], _Part] | None = None) -> None:
        # Half of dask's own functions have no types.
        self._client = typing.cast(typing.Any, client)
        self._plan, self._collect, self._last = plan, collect, last
        self._parts = parts
        self._hung: dict[str, str] = {}
        hung = self._hung

        def hear(event: tuple[typing.Any, typing.Any]) -> None:
            # Of the record alone: dask keeps this function longer than the job lives.
            told = event[1]
            if isinstance(told, dict) and "key" in told:
                hung[told["key"]] = told["reason"]

        self._client.subscribe_topic(_farm.topic_of(plan.request.job), hear)
        self.futures: list[Future[typing.Any]] = [part.submit() for part in parts]
        self._is_cancelled = False
        self._results: list[typing.Any] | None = None

    def __repr__(self) -> str:
        return f"<Job of {len(self._parts)} task{'' if len(self._parts) == 1 else 's'}>"

    def progress(self, **options: typing.Any) -> typing.Any:
        """Dask's own bar: in a terminal it returns when all tasks are done, in a notebook at once with a widget. Options are
        those of `distributed.progress`."""
        bar: typing.Any = distributed.progress
        return bar(self.futures, **options)

    def cancel(self) -> None:
        """Ends the job: tasks that wait never begin, those that run stop within a second, but for one that is opening a
        scene, which stops when that is open. What is written is whole. `result` then raises CancelledError."""
        self._is_cancelled = True
        self._client.cancel(list(self.futures))

    def result(self, timeout: float | None = None) -> T:
        """Waits for the results, at most `timeout` seconds. May be called again.

        What fails on one worker for reasons of its own, such as a full disk, is sent to others first, and told by a
        VelaWarning; so are the scene's problems, each once. The rest of a job is done whatever fails. JobError names what
        failed, TimeoutError when time is up (the job goes on), CancelledError after `cancel`, ConnectionError when the
        scheduler is lost. Ctrl-C cancels the job.
        """
        if self._results is None:
            try:
                self._results = self._finish(timeout)
            except KeyboardInterrupt:
                self.cancel()
                raise
        return self._collect(self._results)

    def _finish(self, timeout: float | None) -> list[typing.Any]:
        """Waits for all parts, and for the one that takes them all where there is such a one."""
        end = _time.monotonic() + timeout if timeout is not None else None
        failed = self._wait(range(len(self._parts)), end)
        if self._last and not failed:
            self._parts.append(self._last(list(self.futures)))
            self.futures.append(self._parts[-1].submit())
            failed = self._wait(range(len(self._parts) - 1, len(self._parts)), end)
        names = [part.name for part in self._parts]
        done = [i for i in range(len(names)) if i not in failed]
        if self._last:
            done = done[-1:] if not failed else []
        outcomes = self._client.gather([self.futures[i] for i in done])
        self._client.unsubscribe_topic(_farm.topic_of(self._plan.request.job))
        for problem in dict.fromkeys(problem for outcome in outcomes for problem in outcome.problems):
            warnings.warn(problem, VelaWarning, stacklevel=4)
        if failed:
            raise JobError({names[i]: why for i, why in failed.items()},
                           {names[i]: outcome.value for i, outcome in zip(done, outcomes)})
        return [outcome.value for outcome in outcomes]

    def _wait(self, indices: typing.Iterable[int], end: float | None) -> dict[int, str]:
        """Waits for parts and sends elsewhere what failed where it was. What failed for good, by index."""
        ended: queue.SimpleQueue[int] = queue.SimpleQueue()

        def follow(i: int) -> None:
            task: typing.Any = self.futures[i]
            task.add_done_callback(lambda future: ended.put(i))

        waiting = set(indices)
        failed: dict[int, str] = {}
        for i in waiting:
            follow(i)
        while waiting:
            try:
                i = ended.get(timeout=0.2)
            except queue.Empty:
                self._look_after(waiting, failed, end)
                continue
            if i not in waiting:
                continue
            why = self._why_failed(i)
            if why == "":
                waiting.discard(i)
            elif why is None:
                follow(i)
            else:
                waiting.discard(i)
                failed[i] = why
        return dict(sorted(failed.items()))

    def _look_after(self, waiting: set[int], failed: dict[int, str], end: float | None) -> None:
        """What no task says of itself."""
        if self._client.status != "running":
            raise ConnectionError(f"the scheduler is lost, and {len(waiting)} tasks are not done: render the rest with "
                                  "skip_existing when it is there again")
        if end is not None and _time.monotonic() > end:
            raise TimeoutError(f"{len(waiting)} of {len(self._parts)} tasks are not done")
        for i in [i for i in waiting if str(self.futures[i].key) in self._hung]:
            waiting.discard(i)
            failed[i] = self._hung[str(self.futures[i].key)]
            self._client.cancel([self.futures[i]])

    def _why_failed(self, i: int) -> str | None:
        """Of a task that has ended: empty when it is done, None when it was sent elsewhere, else why it failed."""
        future: typing.Any = self.futures[i]
        part = self._parts[i]
        if future.status == "finished":
            return ""
        if self._is_cancelled or future.status == "cancelled":
            if not self._is_cancelled and self._client.status != "running":
                raise ConnectionError("the scheduler is lost: render the rest with skip_existing when it is there again")
            if future.key in self._hung:
                return self._hung[future.key]
            raise concurrent.futures.CancelledError("the job was cancelled")
        error = future.exception()
        if isinstance(error, (_farm.WorkerTrouble, ImportError)):
            if isinstance(error, _farm.WorkerTrouble):
                part.tried.append(error.worker.split(" ")[0])
            else:  # one that has joined since, with another Vela or none: it could not even read the task
                part.tried += _find_unable(self._client, _question(), self._plan.request.version, [], [])
            others = [worker for worker in _workers(self._client) if worker not in part.tried]
            if others:
                warnings.warn(f"{part.name}: {error}; it is sent to another worker", VelaWarning, stacklevel=5)
                # Where those are gone by then any other will do.
                self.futures[i] = part.submit(workers=others, allow_other_workers=True)
                return None
        if isinstance(error, KilledWorker):
            return f"the workers that had it were lost, the last of them {error.last_worker.address}"
        return str(error) or type(error).__name__


def connect(address: str, *, timeout: float = 10.0) -> Client:
    """A client of the scheduler at an address such as `tcp://farm:8786`. ConnectionError, one line, when none answers within
    `timeout` seconds. `distributed.Client` does as well.

    >>> vela.dask.connect("tcp://127.0.0.1:9", timeout=1)
    Traceback (most recent call last):
        ...
    ConnectionError: no scheduler answers at tcp://127.0.0.1:9: start one by `dask scheduler`, or see that this machine reaches it
    """
    make: typing.Any = Client
    try:
        return typing.cast(Client, make(address, timeout=timeout, set_as_default=False))
    except (OSError, ValueError, TimeoutError):
        raise ConnectionError(f"no scheduler answers at {address}: start one by `dask scheduler`, or see that this machine "
                              "reaches it") from None


def _workers(client: Client) -> dict[str, typing.Any]:
    """The workers by their addresses."""
    return typing.cast("dict[str, typing.Any]", client.scheduler_info(n_workers=-1)["workers"])


def _find_unable(client: Client, question: typing.Callable[..., str], *arguments: typing.Any) -> dict[str, str]:
    """Asks every worker whether it can do something: those that cannot by their addresses, and why."""
    answers = typing.cast(typing.Any, client).run(question, *arguments, on_error="return")
    there = _workers(client)
    # What a worker says that left meanwhile does no harm.
    return {worker: str(answer) for worker, answer in sorted(answers.items())
            if answer and (isinstance(answer, str) or worker in there)}


def _require_able(client: Client, question: typing.Callable[..., str], *arguments: typing.Any) -> None:
    """WorkerError with the workers that cannot do a job."""
    unable = _find_unable(client, question, *arguments)
    if unable:
        names = {worker: str(known["name"]) for worker, known in _workers(client).items()}
        raise WorkerError({worker if names.get(worker, worker) == worker else f"{worker} ({names[worker]})": why
                           for worker, why in unable.items()})


def _question() -> typing.Callable[..., str]:
    """What is asked before a task is sent. It goes to the workers as it is, not by its name: they may have another Vela, or
    none."""

    def can_do(version: str, files: list[str], folders: list[str]) -> str:
        import os

        try:
            import vela
        except ImportError as error:
            return f"it has no vela: {error}"
        if vela.version() != version:
            return f"it has vela {vela.version()}, and this is vela {version}"
        for file in files:
            if not os.path.isfile(file):
                return f"it does not see {file}"
        for folder in folders:
            if not os.path.isdir(folder):
                return f"it does not see the folder {folder}"
            if not os.access(folder, os.W_OK):
                return f"it may not write to the folder {folder}"
        return ""

    return can_do


def _prepare(client: Client, request: _farm.Request, *, skip_existing: bool, inputs: list[str], outputs: list[str]) -> _farm.Plan:
    """Settles what a job is about, or says why it cannot be done."""
    if client.asynchronous:
        raise ValueError("the client is asynchronous: vela.dask takes one that waits")
    if client.status != "running":
        raise ConnectionError(f"the client is not connected to a scheduler: it is {client.status}")
    if not _workers(client):
        address = client.scheduler_info()["address"]
        raise ConnectionError(f"no worker has joined the scheduler at {address}: start some by `dask worker {address}`")
    folders = sorted({os.path.dirname(name) for name in outputs})
    _require_able(client, _question(), request.version, [request.scene, *inputs], folders)
    if not skip_existing:
        request = dataclasses.replace(request, outputs=tuple(outputs))
    planned = client.submit(_farm.make_plan, request, key=f"vela-plan-{request.job}", pure=False, priority=100)
    # What this machine sees counts as well: all workers may lack a texture. It looks while a worker reads the scene.
    seen = _farm.files_seen(request)
    try:
        plan = planned.result()
    except _farm.WorkerTrouble as error:
        raise WorkerError({error.worker: error.reason}) from None
    plan = dataclasses.replace(plan, files=tuple(dict([*seen, *plan.files]).items()))
    _require_able(client, _farm.find_lacks, plan)
    return plan


def _request(scene: FileName, variants: typing.Iterable[str], options: typing.Any = None) -> _farm.Request:
    return _farm.Request(uuid.uuid4().hex[:12], vela.version(), os.path.abspath(os.fspath(scene)), tuple(variants), options)


def _output_name(output: FileName | None, frames: typing.Sequence[float | None]) -> list[str] | None:
    """The file of each frame."""
    if output is None:
        return None
    name = os.path.abspath(os.fspath(output))
    if len(frames) > 1 and not has_frame_place(name):
        raise ValueError(f"{output}: one name for several frames: give it a place for the frame, such as ####")
    return [name if frame is None else name_of_frame(name, frame) for frame in frames]


def _check_format(output: FileName | None, save: dict[str, typing.Any]) -> None:
    if output is not None and "format" not in save and file_format(os.fspath(output)) is None:
        raise ValueError(f"{output}: expected a name that ends with .exr, .png or .jpg, or a format")


def _submitter(client: Client, key: str, function: typing.Callable[..., typing.Any],
               *arguments: typing.Any) -> typing.Callable[..., "Future[typing.Any]"]:
    """Sends a task; each time under a name of its own, so that one that was given up does not come back as its answer."""
    times = iter(range(1 << 30))

    def submit(**where: typing.Any) -> "Future[typing.Any]":
        return client.submit(function, *arguments, key=f"{key}-{next(times)}", pure=False, **where)

    return submit


def _frame_name(frame: float | None) -> str:
    return "the frame" if frame is None else f"frame {frame:.12g}"


@typing.overload
def render(client: Client, scene: FileName, *, frames: Frames, output: None = None, skip_existing: bool = False,
           save: dict[str, typing.Any] | None = None, variants: typing.Iterable[str] = (), threads: int = 1,
           timeout: float | None = None, **choices: typing.Unpack[_render.RenderChoices]) -> Job[list[Picture]]: ...


@typing.overload
def render(client: Client, scene: FileName, *, frames: Frames, output: FileName, skip_existing: bool = False,
           save: dict[str, typing.Any] | None = None, variants: typing.Iterable[str] = (), threads: int = 1,
           timeout: float | None = None, **choices: typing.Unpack[_render.RenderChoices]) -> Job[list[str]]: ...


def render(client: Client, scene: FileName, *, frames: Frames, output: FileName | None = None, skip_existing: bool = False,
           save: dict[str, typing.Any] | None = None, variants: typing.Iterable[str] = (), threads: int = 1,
           timeout: float | None = None, **choices: typing.Unpack[_render.RenderChoices]) -> Job[typing.Any]:
    """Renders frames, a task each.

    `frames` are numbers, or a text such as `1-100x2`. Without `output` the result is a list of pictures in their order. With
    it the workers write them where they are: a name with a place for the frame (`shot.####.exr`), in a folder that all of
    them see; the result is the list of names. `save` has options of `Picture.save`. A file appears whole, and is written by
    one worker once; those that are there already are replaced, or left alone with `skip_existing`, so that a job that was
    stopped is resumed. `threads` are those of one task, `timeout` the seconds that it may take. `choices` are those of
    `vela.render`, with whose pictures these are equal.

    WorkerError, ConnectionError or ValueError when the job cannot begin. See `Job.result` for what fails later.

    >>> import distributed, tempfile, vela.dask
    >>> with distributed.Client(n_workers=1, threads_per_worker=2, processes=False, dashboard_address=None) as client:
    ...     with tempfile.TemporaryDirectory() as folder:
    ...         job = vela.dask.render(client, "examples/demo/demo.usda", frames=[1, 2], output=f"{folder}/a.##.exr",
    ...                                size=(32, 18), samples=1)
    ...         [name[-8:] for name in job.result()]
    ['a.01.exr', 'a.02.exr']
    """
    chosen: list[float] = parse_frames(frames) if isinstance(frames, str) else [float(frame) for frame in frames]
    if not chosen:
        raise ValueError("frames: there are none")
    chosen = list(dict.fromkeys(chosen))
    written = dict(save or {})
    _check_format(output, written)
    names = _output_name(output, chosen)
    if names is not None and len(set(names)) < len(names):
        raise ValueError(f"{output}: several frames would have one name")
    request = _request(scene, variants, _render.options_of(**choices))
    plan = _prepare(client, request, skip_existing=skip_existing, inputs=[], outputs=names or [])
    shared = client.submit(_farm.share, plan, key=f"vela-job-{request.job}", pure=False)
    parts = [_Part(_frame_name(frame), _submitter(client, f"vela-frame-{request.job}-{i}", _farm.render_frame, shared, frame,
                                                  names[i] if names is not None else None, written, threads, timeout))
             for i, frame in enumerate(chosen)]
    return Job(client, plan, parts, lambda values: values)


@typing.overload
def tiles(client: Client, scene: FileName, *, count: int | None = None, output: None = None, time: float | None = None,
          save: dict[str, typing.Any] | None = None, variants: typing.Iterable[str] = (), threads: int = 1,
          timeout: float | None = None, **choices: typing.Unpack[_render.RenderChoices]) -> Job[Picture]: ...


@typing.overload
def tiles(client: Client, scene: FileName, *, count: int | None = None, output: FileName, time: float | None = None,
          save: dict[str, typing.Any] | None = None, variants: typing.Iterable[str] = (), threads: int = 1,
          timeout: float | None = None, **choices: typing.Unpack[_render.RenderChoices]) -> Job[str]: ...


def tiles(client: Client, scene: FileName, *, count: int | None = None, output: FileName | None = None,
          time: float | None = None, save: dict[str, typing.Any] | None = None, variants: typing.Iterable[str] = (),
          threads: int = 1, timeout: float | None = None,
          **choices: typing.Unpack[_render.RenderChoices]) -> Job[typing.Any]:
    """Renders one frame in bands of rows, a task each, and joins them: the picture of `vela.render`, bit by bit.

    `count` are the bands, four times the threads of all workers unless said. `time` is the frame. `output` is the file that
    the worker that joins writes; without it the result is the picture. The rest is as for `render`.

    >>> import distributed, vela.dask
    >>> with distributed.Client(n_workers=1, threads_per_worker=2, processes=False, dashboard_address=None) as client:
    ...     job = vela.dask.tiles(client, "examples/demo/demo.usda", count=3, size=(32, 18), samples=1)
    ...     picture = job.result()
    >>> picture == vela.render("examples/demo/demo.usda", size=(32, 18), samples=1)
    True
    """
    if count is not None and count < 1:
        raise ValueError(f"count: expected 1 or more, found {count}")
    written = dict(save or {})
    _check_format(output, written)
    names = _output_name(output, [time])
    request = _request(scene, variants, _render.options_of(**choices))
    plan = _prepare(client, request, skip_existing=False, inputs=[], outputs=names or [])
    bands = count or 4 * sum(worker["nthreads"] for worker in _workers(client).values())
    shared = client.submit(_farm.share, plan, key=f"vela-job-{request.job}", pure=False)
    parts = [_Part(f"band {band + 1} of {bands}", _submitter(client, f"vela-band-{request.job}-{band}", _farm.render_band, shared,
                                                             time, band, bands, threads, timeout))
             for band in range(bands)]

    def last(futures: "list[Future[typing.Any]]") -> _Part:
        return _Part("the join", _submitter(client, f"vela-join-{request.job}", _farm.join_bands, shared, time, futures,
                                            names[0] if names is not None else None, written, timeout))

    return Job(client, plan, parts, lambda values: values[0], last)


RayArray = typing.Union[numpy.typing.ArrayLike, "os.PathLike[str]"]


def _rays(name: str, given: RayArray | None, kind: typing.Any, width: int) -> tuple[typing.Any, str]:
    """An argument as an array, and the file that it is where it is one."""
    if given is None:
        return None, ""
    if isinstance(given, (str, os.PathLike)):
        file = os.path.abspath(os.fspath(given))
        array = numpy.load(file, mmap_mode="r")
    else:
        file, array = "", numpy.asarray(given, kind, order="C")
    if width == 3 and (array.ndim != 2 or array.shape[1] != 3):
        raise ValueError(f"{name}: expected shape (n, 3), found {array.shape}")
    if width == 1 and array.ndim > 1:
        raise ValueError(f"{name}: expected a number or shape (n,), found {array.shape}")
    return array, file


@typing.overload
def intersect(client: Client, scene: FileName, origins: RayArray, directions: RayArray, *,
              min_distance: RayArray | None = None, max_distance: RayArray | None = None, offsets: RayArray | None = None,
              time: float | None = None, meshes: MeshFilter | None = None, kind: CasterKind = CasterKind.TRACER,
              batch: int = 1 << 16, output: None = None, skip_existing: bool = False, variants: typing.Iterable[str] = (),
              threads: int = 1, timeout: float | None = None) -> Job[SurfaceHits]: ...


@typing.overload
def intersect(client: Client, scene: FileName, origins: RayArray, directions: RayArray, *,
              min_distance: RayArray | None = None, max_distance: RayArray | None = None, offsets: RayArray | None = None,
              time: float | None = None, meshes: MeshFilter | None = None, kind: CasterKind = CasterKind.TRACER,
              batch: int = 1 << 16, output: FileName, skip_existing: bool = False, variants: typing.Iterable[str] = (),
              threads: int = 1, timeout: float | None = None) -> Job[list[str]]: ...


def intersect(client: Client, scene: FileName, origins: RayArray, directions: RayArray, *,
              min_distance: RayArray | None = None, max_distance: RayArray | None = None, offsets: RayArray | None = None,
              time: float | None = None, meshes: MeshFilter | None = None, kind: CasterKind = CasterKind.TRACER,
              batch: int = 1 << 16, output: FileName | None = None, skip_existing: bool = False,
              variants: typing.Iterable[str] = (), threads: int = 1, timeout: float | None = None) -> Job[typing.Any]:
    """The nearest hits of rays of the world, in batches of so many rays, a task each.

    Arguments and results are those of `vela.scene.RayCaster.intersect` on `vela.scene.list_meshes` of the scene at `time`, by
    whose index `entry` names what was hit. Each array may be the name of a `.npy` file, which the workers read: for more
    rays than a client should hold or send. With `output`, a name with a place for the batch (`hits.####.npz`, from 1), the
    workers write a file a batch, an array a field, and the result is the list of names; `numpy.load` reads them. The rest is
    as for `render`.

    >>> import distributed, numpy, vela.dask
    >>> with distributed.Client(n_workers=1, threads_per_worker=2, processes=False, dashboard_address=None) as client:
    ...     down = numpy.tile([0.0, -1.0, 0.0], (10, 1))
    ...     job = vela.dask.intersect(client, "examples/demo/demo.usda", -1000 * down, down, batch=4)
    ...     hits = job.result()
    >>> job, hits.distance.shape
    (<Job of 3 tasks>, (10,))
    """
    if batch < 1:
        raise ValueError(f"batch: expected 1 or more, found {batch}")
    given = {
        "origins": _rays("origins", origins, numpy.float64, 3), "directions": _rays("directions", directions, numpy.float32, 3),
        "min_distance": _rays("min_distance", min_distance, numpy.float32, 1),
        "max_distance": _rays("max_distance", max_distance, numpy.float32, 1),
        "offsets": _rays("offsets", offsets, numpy.float64, 3)}
    size = len(given["origins"][0])
    for argument, (array, _) in given.items():
        if array is not None and array.ndim and len(array) != size:
            raise ValueError(f"{argument}: expected {size} rows as origins, found {len(array)}")
    count = max(1, -(-size // batch))
    if output is not None and not os.fspath(output).endswith(".npz"):
        raise ValueError(f"{output}: expected a name that ends with .npz")
    names = _output_name(output, [float(i + 1) for i in range(count)])
    request = _request(scene, variants)
    plan = _prepare(client, request, skip_existing=skip_existing, inputs=[file for _, file in given.values() if file],
                    outputs=names or [])
    shared = client.submit(_farm.share, plan, key=f"vela-job-{request.job}", pure=False)

    def sources(i: int) -> dict[str, _farm.RaySource]:
        first, last = i * batch, min((i + 1) * batch, size)
        return {argument: _farm.RaySource(file=file, first=first, last=last) if file and array.ndim
                else _farm.RaySource(numpy.asarray(array[first:last]) if array.ndim else array)
                for argument, (array, file) in given.items() if array is not None}

    parts = [_Part(f"batch {i + 1}", _submitter(client, f"vela-rays-{request.job}-{i}", _farm.intersect_batch, shared, time,
                                                meshes, kind, sources(i), names[i] if names is not None else None, threads,
                                                timeout))
             for i in range(count)]
    return Job(client, plan, parts, _farm.join_hits if output is None else lambda values: values)


def forget(client: Client) -> None:
    """Lets all workers of a client give back the memory of the scenes that they keep.

    >>> import distributed, vela.dask
    >>> with distributed.Client(n_workers=1, threads_per_worker=1, processes=False, dashboard_address=None) as client:
    ...     vela.dask.forget(client)
    """
    client.run(_farm.forget)
