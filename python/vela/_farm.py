"""What runs on the workers of vela.dask: scenes that are read once and kept, the tasks, and how they are stopped.

A worker process runs tasks in threads; all of this is safe from several of them.
"""

from __future__ import annotations

import collections
import copy
import dataclasses
import io
import os
import threading
import time
import typing
import weakref

import numpy
from distributed import get_worker

import vela
from vela import _files
from vela._results import SurfaceHits
from vela._vela.ovo import Stage
from vela._vela.picture import Picture, PictureRenderer, RenderOptions
from vela._vela.scene import CasterKind, MeshFilter, RayCaster, Severity, list_meshes, scene_files

T = typing.TypeVar("T")

# A task that was told to end and does not within this time does not listen: seconds.
GRACE = 5.0
# Scenes that a worker keeps, and renderers or casters of jobs that use one for many tasks.
KEPT_SCENES, KEPT_STRUCTURES = 4, 2


class WorkerTrouble(OSError):
    """What failed on one worker and may do on another: its disk, its paths, its version."""

    def __init__(self, worker: str, reason: str) -> None:
        super().__init__(worker, reason)
        self.worker, self.reason = worker, reason

    def __str__(self) -> str:
        return f"{self.worker}: {self.reason}"


class Cancelled(Exception):
    """Nobody waits for the task any more."""


@dataclasses.dataclass(frozen=True)
class Request:
    """A job, as the client asks for it."""

    job: str
    version: str
    scene: str
    variants: tuple[str, ...] = ()
    options: RenderOptions | None = None
    outputs: tuple[str, ...] = ()  #: names of files that may be replaced


@dataclasses.dataclass(frozen=True)
class Plan:
    """A job, with what one worker found out about it: every worker holds what it has against that."""

    request: Request
    files: tuple[tuple[str, int], ...]  #: of the scene, with their bytes
    before: dict[str, int]  #: when the outputs that were there already were written, ns


@dataclasses.dataclass(frozen=True)
class Outcome(typing.Generic[T]):
    """What came of a task."""

    value: T
    problems: tuple[str, ...] = ()


class _Place(typing.Generic[T]):
    """One thing of a keeper. Its lock is held while it is made, so that others wait and do not make it too."""

    def __init__(self) -> None:
        self.lock = threading.Lock()
        self.things: list[T] = []


class Keeper(typing.Generic[T]):
    """Things that are made once a process and kept, the last `size` that were used.

    >>> keeper = Keeper(1)
    >>> keeper.get("a", lambda: 1), keeper.get("a", lambda: 2)
    (1, 1)
    """

    def __init__(self, size: int) -> None:
        self._size = size
        self._lock = threading.Lock()
        self._places: collections.OrderedDict[typing.Hashable, _Place[T]] = collections.OrderedDict()

    def get(self, key: typing.Hashable, make: typing.Callable[[], T]) -> T:
        """The thing of that key; made when there is none."""
        with self._lock:
            place = self._places.setdefault(key, _Place())
            self._places.move_to_end(key)
            while len(self._places) > self._size:
                self._places.popitem(last=False)
        with place.lock:
            if not place.things:
                place.things.append(make())
            return place.things[0]

    def drop(self, matches: typing.Callable[[typing.Any], bool] = lambda key: True) -> None:
        """Lets go of those whose key matches."""
        with self._lock:
            for key in [key for key in self._places if matches(key)]:
                del self._places[key]


@dataclasses.dataclass(frozen=True)
class Scene:
    """A scene that is read, and the state of its files then."""

    stage: Stage
    written: dict[str, int]


_scenes: Keeper[Scene] = Keeper(KEPT_SCENES)
_structures: Keeper[typing.Any] = Keeper(KEPT_STRUCTURES)
_admitted: Keeper[bool] = Keeper(64)


def self_name() -> str:
    """This worker, as errors name it."""
    worker = get_worker()
    return str(worker.address) if str(worker.name) == str(worker.address) else f"{worker.address} ({worker.name})"


def topic_of(job: str) -> str:
    """Workers tell of a job's tasks that do not end by events of this topic."""
    return f"vela-{job}"


class Watch:
    """Ends a task that nobody waits for any more, or that takes too long: long calls get it as their `progress`.

    The worker's own record of the task says whether it is wanted, so that it ends too when the client is gone.
    """

    def __init__(self, job: str, timeout: float | None) -> None:
        self._worker = get_worker()
        self._key = self._worker.get_current_task()
        self._job, self._timeout = job, timeout
        self._end = None if timeout is None else time.monotonic() + timeout
        self._timer: threading.Timer | None = None

    def __call__(self, share: float = 0.0) -> None:
        task = self._worker.state.tasks.get(self._key)
        if task is None or task.state == "cancelled":
            raise Cancelled
        if self._end is not None and time.monotonic() > self._end:
            raise TimeoutError(f"it took longer than {self._timeout:g} s on {self_name()}")

    def _give_up(self) -> None:
        """What does not listen is in the hands of the system: the client is told, and a process that something starts
        again ends."""
        reason = f"it took longer than {self._timeout:g} s and could not be stopped on {self._worker.address}"
        self._worker.log_event(topic_of(self._job), {"key": str(self._key), "reason": reason})
        if self._worker.nanny:
            time.sleep(1.0)  # until the event is sent
            os._exit(1)

    def __enter__(self) -> Watch:
        if self._timeout is not None:
            self._timer = threading.Timer(self._timeout + GRACE, self._give_up)
            self._timer.daemon = True
            self._timer.start()
        self()
        return self

    def __exit__(self, *args: object) -> None:
        if self._timer is not None:
            self._timer.cancel()


def guarded(job: str, timeout: float | None, body: typing.Callable[[Watch], T]) -> T | None:
    """Runs the body of a task. What went wrong with this worker alone is a WorkerTrouble."""
    try:
        with Watch(job, timeout) as watch:
            return body(watch)
    except Cancelled:
        return None  # goes nowhere
    except (WorkerTrouble, TimeoutError):
        raise
    except (OSError, MemoryError) as error:
        where = getattr(error, "filename", None)
        reason = getattr(error, "strerror", None) or str(error) or type(error).__name__
        raise WorkerTrouble(self_name(), f"{os.fsdecode(where)}: {reason}" if where else reason) from None


def _written(files: typing.Iterable[str]) -> dict[str, int]:
    found = {}
    for file in files:
        try:
            found[file] = os.stat(file).st_mtime_ns
        except OSError:
            found[file] = -1
    return found


def _scene_of(request: Request) -> Stage:
    """The scene, read once a process."""

    def read() -> Scene:
        stage = vela.open(request.scene, variants=request.variants)
        return Scene(stage, _written(stage.layer_files()))

    return _scenes.get((request.scene, request.variants), read).stage


def _refresh(request: Request) -> None:
    """Lets go of a scene whose files have changed since it was read."""
    key = (request.scene, request.variants)

    def missing() -> Scene:
        raise LookupError

    try:
        kept = _scenes.get(key, missing)
    except LookupError:
        return
    if _written(kept.written) != kept.written:
        _scenes.drop(lambda other: other == key)


def share(plan: Plan) -> Plan:
    """Task: what all tasks of a job take. It is a task, so that a worker that is lost with it is no loss: it runs again."""
    return plan


def make_plan(request: Request) -> Plan:
    """Task: reads the scene and says what it is made of."""

    def body(watch: Watch) -> Plan:
        _require_version(request.version)
        _refresh(request)
        names = scene_files(_scene_of(request), watch)
        before = {name: stamp for name, stamp in _written(request.outputs).items() if stamp >= 0}
        return Plan(request, tuple((name, os.stat(name).st_size) for name in names), before)

    plan = guarded(request.job, None, body)
    if plan is None:
        raise Cancelled
    return plan


def files_seen(request: Request) -> list[tuple[str, int]]:
    """The files of a scene that this machine sees, with their bytes; none where it has not the scene itself."""
    if not os.path.isfile(request.scene):
        return []
    try:
        with vela.open(request.scene, variants=request.variants) as stage:
            return [(name, os.stat(name).st_size) for name in scene_files(stage)]
    except (OSError, RuntimeError, ValueError):
        return []  # the worker that reads it says why


def _require_version(version: str) -> None:
    if vela.version() != version:
        raise WorkerTrouble(self_name(), f"it has vela {vela.version()}, and the job is of vela {version}")


def find_lacks(plan: Plan) -> str:
    """Called on each worker: what of the scene it does not see, or sees otherwise; empty when all is there."""
    for file, size in plan.files:
        try:
            found = os.stat(file).st_size
            if not os.access(file, os.R_OK):
                return f"it may not read {file}"
        except OSError as error:
            return f"it does not see {file}: {error.strerror}"
        if found != size:
            return f"it has another {file}, of {found} bytes and not {size}"
    return ""


def _admit(plan: Plan) -> Stage:
    """The plan's scene, after a worker that came later has looked whether it can do the job at all."""

    def look() -> bool:
        _require_version(plan.request.version)
        lack = find_lacks(plan)
        if lack:
            raise WorkerTrouble(self_name(), lack)
        _refresh(plan.request)
        weakref.finalize(plan, _release, plan.request.job)
        return True

    _admitted.get(plan.request.job, look)
    return _scene_of(plan.request)


def _release(job: str) -> None:
    """When the plan of a job ends: nothing of the job runs here any more, or its client is gone."""
    _structures.drop(lambda key: key[0] == job)
    _admitted.drop(lambda key: key == job)


def forget() -> None:
    """Called on each worker: lets go of all that is kept."""
    _structures.drop()
    _admitted.drop()
    _scenes.drop()


def _renderer(plan: Plan, frame: float | None, watch: Watch) -> PictureRenderer:
    stage = _admit(plan)
    options = copy.copy(plan.request.options) or RenderOptions()
    if frame is not None:
        options.time = frame
    return PictureRenderer(stage, options, watch)


def _problems(renderer: PictureRenderer) -> tuple[str, ...]:
    return tuple(str(problem) for problem in renderer.problems if problem.severity != Severity.NOTE)


def _not_whole(name: str) -> tuple[str, ...]:
    if not name.lower().endswith(".exr") or vela.picture.is_whole_exr(name):
        return ()
    return (f"{name}: skipped as it is there, though it is no whole picture; remove it, and it is made",)


def _is_done(plan: Plan, name: str) -> bool:
    """Whether somebody has written the output since the job began, or before where that counts."""
    now = _files.stamp(name)
    return now is not None and now != plan.before.get(name)


def _deliver(plan: Plan, name: str, data: bytes) -> None:
    _files.write_once(name, data, plan.before.get(name))


def render_frame(plan: Plan, frame: float | None, name: str | None, save: dict[str, typing.Any], threads: int,
                 timeout: float | None) -> Outcome[Picture | str] | None:
    """Task: one frame, into its file or back to the client."""

    def body(watch: Watch) -> Outcome[Picture | str]:
        if name is not None and _is_done(plan, name):
            _require_version(plan.request.version)
            return Outcome(name, _not_whole(name))
        renderer = _renderer(plan, frame, watch)
        picture = renderer.render_all(threads, watch)
        if name is None:
            return Outcome(picture, _problems(renderer))
        watch()
        _deliver(plan, name, encoded(picture, name, save))
        return Outcome(name, _problems(renderer))

    return guarded(plan.request.job, timeout, body)


def encoded(picture: Picture, name: str, save: dict[str, typing.Any]) -> bytes:
    """A picture's file."""
    file = io.BytesIO()
    picture.save(file, **{"format": vela.picture.file_format(name), **save})
    return file.getvalue()


def band_rows(height: int, band: int, count: int) -> tuple[int, int]:
    """Whole numbers of rows, as equal as they can be: band 0 to count - 1.

    >>> [band_rows(5, band, 2) for band in range(2)]
    [(0, 2), (2, 5)]
    """
    return height * band // count, height * (band + 1) // count


def _kept_renderer(plan: Plan, frame: float | None, watch: Watch) -> PictureRenderer:
    """The renderer that all bands of a frame share on this worker."""
    key = (plan.request.job, frame)
    return typing.cast(PictureRenderer, _structures.get(key, lambda: _renderer(plan, frame, watch)))


def render_band(plan: Plan, frame: float | None, band: int, count: int, threads: int,
                timeout: float | None) -> Outcome[Picture | None] | None:
    """Task: a band of a frame; of no rows where the picture has fewer rows than bands."""

    def body(watch: Watch) -> Outcome[Picture | None]:
        renderer = _kept_renderer(plan, frame, watch)
        left, top, right, bottom = renderer.window
        y0, y1 = band_rows(bottom - top, band, count)
        if y0 == y1:
            return Outcome(None)
        return Outcome(renderer.render_region((left, top + y0, right, top + y1), threads, watch), _problems(renderer))

    return guarded(plan.request.job, timeout, body)


def join_bands(plan: Plan, frame: float | None, bands: list[Outcome[Picture | None]], name: str | None,
               save: dict[str, typing.Any], timeout: float | None) -> Outcome[Picture | str] | None:
    """Task: the frame out of its bands."""

    def body(watch: Watch) -> Outcome[Picture | str]:
        renderer = _kept_renderer(plan, frame, watch)
        picture = renderer.join([band.value for band in bands if band.value is not None])
        if name is None:
            return Outcome(picture)
        _deliver(plan, name, encoded(picture, name, save))
        return Outcome(name)

    return guarded(plan.request.job, timeout, body)


class RaySource(typing.NamedTuple):
    """An argument of a batch: values, or rows of a file that the worker reads itself."""

    values: typing.Any = None
    file: str = ""
    first: int = 0
    last: int = 0

    def read(self) -> typing.Any:
        """The array."""
        if self.file:
            return numpy.load(self.file, mmap_mode="r")[self.first:self.last]
        # What comes out of a message may begin at any byte.
        return numpy.require(self.values, requirements=["C", "A"])


# Rays between two looks whether anybody waits for them: a few hundredths of a second.
RAYS_AT_ONCE = 8192


def intersect_batch(plan: Plan, frame: float | None, meshes: MeshFilter | None, kind: CasterKind,
                    sources: dict[str, RaySource], name: str | None, threads: int,
                    timeout: float | None) -> Outcome[SurfaceHits | str] | None:
    """Task: what a batch of rays meets."""

    def make(watch: Watch) -> RayCaster:
        stage = _admit(plan)
        filter = copy.copy(meshes) if meshes is not None else MeshFilter()
        if frame is not None:
            filter.time = frame
        return RayCaster(list_meshes(stage, filter, watch), kind, progress=watch)

    def body(watch: Watch) -> Outcome[SurfaceHits | str]:
        if name is not None and _is_done(plan, name):
            return Outcome(name)
        caster: RayCaster = _structures.get((plan.request.job, frame), lambda: make(watch))
        rays = {argument: source.read() for argument, source in sources.items()}
        parts = []
        for first in range(0, max(len(rays["origins"]), 1), RAYS_AT_ONCE * max(threads, 1)):
            watch()
            rows = slice(first, first + RAYS_AT_ONCE * max(threads, 1))
            # One number may hold for all rays.
            parts.append(caster.intersect(threads=threads, **{
                argument: values[rows] if numpy.ndim(values) else float(values) for argument, values in rays.items()}))
        hits = join_hits(parts)
        if name is None:
            return Outcome(hits)
        file = io.BytesIO()
        numpy.savez(file, allow_pickle=False, **hits._asdict())
        _deliver(plan, name, file.getvalue())
        return Outcome(name)

    return guarded(plan.request.job, timeout, body)


def join_hits(parts: typing.Sequence[SurfaceHits]) -> SurfaceHits:
    """The hits of batches, one behind the other."""
    return parts[0] if len(parts) == 1 else SurfaceHits(*(numpy.concatenate(field) for field in zip(*parts)))
