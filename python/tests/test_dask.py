"""Pictures and rays on real dask clusters: worker processes, the bytes of one process, whatever becomes of a worker."""

import filecmp
import os
import pathlib
import signal
import subprocess
import sys
import time
import types
import warnings

import dask
import distributed
import numpy
import pytest

import vela
import vela.dask
from vela import _farm, _files
from vela.selection import GeoSelection

from conftest import DEMO, ROOT, run_python

# Something moves, so that frames differ.
SCENE = """#usda 1.0
(
    subLayers = [@shapes/ball.usda@]
)
def Cube "Box"
{
    double3 xformOp:translate.timeSamples = { 1: (-4, 0, 0), 200: (4, 1, 0) }
    uniform token[] xformOpOrder = ["xformOp:translate"]
}
def Camera "Eye"
{
    float horizontalAperture = 32
    float verticalAperture = 18
    float focalLength = 40
    double3 xformOp:translate = (0, 0, 20)
    uniform token[] xformOpOrder = ["xformOp:translate"]
}
"""
BALL = '#usda 1.0\ndef Sphere "Ball"\n{\n    double3 xformOp:translate = (0, -1, -2)\n' \
       '    uniform token[] xformOpOrder = ["xformOp:translate"]\n}\n'
SMALL = {"size": (32, 18), "samples": 4}
# So many samples that a frame takes minutes: it ends because it is stopped, or not within the test.
ENDLESS = {"size": (4000, 2000), "samples": 4096}


@pytest.fixture
def shot(tmp_path):
    """A scene, and folders for pictures."""
    at = tmp_path / "a show"  # names with blanks are names
    (at / "shapes").mkdir(parents=True)
    (at / "shot.usda").write_text(SCENE)
    (at / "shapes/ball.usda").write_text(BALL)
    (at / "out").mkdir()
    (at / "alone").mkdir()
    return types.SimpleNamespace(at=at, scene=at / "shot.usda", out=at / "out", names=at / "out/f.####.exr")


def make_cluster(workers=4):
    return distributed.LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=":0")


@pytest.fixture(scope="module")
def client():
    """A cluster of four worker processes, for tests that leave it whole."""
    with make_cluster() as cluster, distributed.Client(cluster) as client:
        yield client


@pytest.fixture
def own_client():
    """A cluster that a test may break. Workers of which nothing is heard are given up after five seconds."""
    with dask.config.set({"distributed.scheduler.worker-ttl": "1 s", "distributed.scheduler.allowed-failures": 1}):
        with make_cluster(2) as cluster, distributed.Client(cluster) as client:
            yield client


def render_alone(shot, frames, **options):
    stage = vela.open(shot.scene)
    for frame in vela.scene.parse_frames(frames):
        picture = vela.render(stage, time=frame, **{**SMALL, **options})
        picture.save(vela.scene.name_of_frame(str(shot.at / "alone/f.####.exr"), frame))


def assert_same(shot, count):
    """That the folder has the files of one process, and nothing else."""
    names = sorted(os.listdir(shot.at / "alone"))
    assert len(names) == count
    assert sorted(os.listdir(shot.out)) == names
    assert filecmp.cmpfiles(shot.at / "alone", shot.out, names, shallow=False)[1:] == ([], [])


def stamps(folder):
    return {path.name: path.stat().st_mtime_ns for path in folder.iterdir() if not path.name.startswith(".")}


def wait_until(holds, seconds=60):
    end = time.monotonic() + seconds
    while not holds():
        assert time.monotonic() < end, "it did not come to that"
        time.sleep(0.02)


def busy_workers(client):
    def count(dask_worker):
        return len(dask_worker.state.executing)

    return [worker for worker, tasks in client.run(count).items() if tasks]


def pid_of(client, worker):
    return client.run(os.getpid, workers=[worker])[worker]


def test_two_hundred_frames_are_those_of_one_process(client, shot):
    names = vela.dask.render(client, shot.scene, frames="1-200", output=shot.names, **SMALL).result()
    assert names == [str(shot.out / f"f.{frame:04}.exr") for frame in range(1, 201)]
    render_alone(shot, "1-200")
    assert_same(shot, 200)


def test_gathered_pictures_are_those_of_one_process(client):
    chosen = GeoSelection()
    chosen.set_object_selected("/Demo/Table", True)
    options = dict(size=(48, 27), samples=4, layers=["rgba", "depth", "N", "prim", "material", "crypto_object"], smooth=True,
                   selection=chosen, bounces=2, subdivision_level=1)
    pictures = vela.dask.render(client, DEMO, frames=[3, 1.5, 3], variants=["/Demo:look=night"], **options).result()
    stage = vela.open(DEMO, variants=["/Demo:look=night"])
    assert pictures == [vela.render(stage, time=time, **options) for time in (3, 1.5)]


@pytest.mark.parametrize("count", [1, 5, 27, 100, None])
def test_bands_join_to_the_picture_of_one_process(client, count, tmp_path):
    options = dict(size=(48, 27), samples=4, layers=["rgba", "depth", "prim", "material", "crypto_object", "crypto_material"])
    options["overscan"] = 3 if count == 5 else 0
    alone = vela.render(DEMO, time=2, **options)
    assert vela.dask.tiles(client, DEMO, count=count, time=2, **options).result() == alone
    name = vela.dask.tiles(client, DEMO, count=count, time=2, output=tmp_path / "p.exr", save={"half_colour": True},
                           **options).result()
    alone.save(tmp_path / "alone.exr", half_colour=True)
    assert pathlib.Path(name).read_bytes() == (tmp_path / "alone.exr").read_bytes()


def some_rays(count):
    random = numpy.random.default_rng(7)
    origins = random.uniform(-3, 3, (count, 3)) + [0, 60, 200]
    return origins, (numpy.array([0, 40, 0]) - origins + random.uniform(-90, 90, (count, 3))).astype(numpy.float32)


def assert_equal_hits(hits, expected):
    for name, values in expected._asdict().items():
        given = getattr(hits, name)
        assert given.dtype == values.dtype and numpy.array_equal(given, values), name


@pytest.mark.parametrize("size, batch", [(1000, 300), (1000, 1000), (20000, 1 << 16), (1, 5), (0, 5)])
def test_batches_of_rays_meet_what_they_meet_in_one_process(client, size, batch):
    origins, directions = some_rays(size)
    ranges = dict(min_distance=1.0, max_distance=numpy.full(size, 300, numpy.float32), offsets=numpy.ones((size, 3)))
    caster = vela.scene.RayCaster(vela.scene.list_meshes(vela.open(DEMO)))
    expected = caster.intersect(origins, directions, **ranges)
    assert size < 1000 or 0 < expected.hit.sum() < size
    assert_equal_hits(vela.dask.intersect(client, DEMO, origins, directions, batch=batch, **ranges).result(), expected)


def test_rays_of_files_are_read_and_their_hits_written_by_the_workers(client, tmp_path):
    origins, directions = some_rays(1000)
    numpy.save(tmp_path / "origins.npy", origins)
    numpy.save(tmp_path / "directions.npy", directions)
    arguments = client, DEMO, tmp_path / "origins.npy", tmp_path / "directions.npy"
    names = vela.dask.intersect(*arguments, batch=400, output=tmp_path / "hits.##.npz").result()
    assert [os.path.basename(name) for name in names] == ["hits.01.npz", "hits.02.npz", "hits.03.npz"]
    parts = [numpy.load(name) for name in names]
    caster = vela.scene.RayCaster(vela.scene.list_meshes(vela.open(DEMO)))
    expected = caster.intersect(origins, directions)
    assert_equal_hits(types.SimpleNamespace(**{name: numpy.concatenate([part[name] for part in parts])
                                               for name in expected._fields}), expected)
    # Once more: what is missing and nothing else.
    before = {name: os.stat(name).st_mtime_ns for name in names}
    bytes_of_one = pathlib.Path(names[1]).read_bytes()
    os.unlink(names[1])
    vela.dask.intersect(*arguments, batch=400, output=tmp_path / "hits.##.npz", skip_existing=True).result()
    assert pathlib.Path(names[1]).read_bytes() == bytes_of_one
    assert [name for name in names if os.stat(name).st_mtime_ns != before[name]] == [names[1]]


def test_a_scene_is_read_once_a_worker_and_again_when_it_has_changed(client, shot):
    def kept(scene):
        from vela import _farm

        return [id(place.things[0]) for key, place in _farm._scenes._places.items() if key[0] == scene]

    def render():
        return vela.dask.render(client, shot.scene, frames="1-40", **SMALL).result()

    first = render()
    before = client.run(kept, str(shot.scene))
    assert all(len(scenes) == 1 for scenes in before.values())
    assert render() == first
    assert client.run(kept, str(shot.scene)) == before
    (shot.at / "shapes/ball.usda").write_text(BALL.replace("-1, -2", "3, 2"))
    changed = render()
    assert changed != first
    assert changed == [vela.render(shot.scene, time=frame, **SMALL) for frame in range(1, 41)]
    vela.dask.forget(client)
    assert not any(client.run(kept, str(shot.scene)).values())


def test_structures_of_a_job_end_with_it(client):
    def kept():
        from vela import _farm

        return len(_farm._structures._places), len(_farm._admitted._places)

    job = vela.dask.tiles(client, DEMO, size=(32, 18), samples=1, count=4)
    job.result()
    assert any(structures for structures, _ in client.run(kept).values())
    del job
    wait_until(lambda: not any(structures for structures, _ in client.run(kept).values()))


def test_what_is_there_is_replaced_or_left_alone(client, shot):
    names = [shot.out / f"f.{frame:04}.exr" for frame in (1, 2)]
    names[0].write_bytes(b"old")
    names[0].chmod(0o640)
    with pytest.warns(vela.VelaWarning, match="f.0001.exr: skipped as it is there, though it is no whole picture"):
        vela.dask.render(client, shot.scene, frames="1-2", output=shot.names, skip_existing=True, **SMALL).result()
    assert names[0].read_bytes() == b"old"
    vela.dask.render(client, shot.scene, frames="1-2", output=shot.names, **SMALL).result()
    assert names[0].stat().st_mode & 0o777 == 0o640
    render_alone(shot, "1-2")
    assert_same(shot, 2)


# A worker that is killed, and one that hangs and is given up.
@pytest.mark.parametrize("ending", [signal.SIGKILL, signal.SIGSTOP])
def test_the_frames_of_a_lost_worker_are_done_by_others_and_nothing_is_written_twice(own_client, shot, ending):
    job = vela.dask.render(own_client, shot.scene, frames="1-40", output=shot.names, **{**SMALL, "samples": 400})
    wait_until(lambda: len(stamps(shot.out)) >= 4)
    os.kill(pid_of(own_client, busy_workers(own_client)[0]), ending)
    there = stamps(shot.out)
    job.result()
    after = stamps(shot.out)
    assert {name: after[name] for name in there} == there
    render_alone(shot, "1-40", samples=400)
    assert_same(shot, 40)


def limit_files(size):
    """No file of this process may be larger: writing fails as on a disk that is full."""
    import resource

    resource.setrlimit(resource.RLIMIT_FSIZE, (size, resource.getrlimit(resource.RLIMIT_FSIZE)[1]))


def test_frames_of_a_worker_whose_disk_is_full_go_to_others(own_client, shot):
    full = list(own_client.scheduler_info(n_workers=-1)["workers"])[0]
    own_client.run(limit_files, 1024, workers=[full])
    with pytest.warns(vela.VelaWarning, match="frame .*File too large; it is sent to another worker") as said:
        vela.dask.render(own_client, shot.scene, frames="1-40", output=shot.names, **SMALL).result()
    assert all(full in str(warning.message) for warning in said)
    render_alone(shot, "1-40")
    assert_same(shot, 40)


def test_what_no_worker_can_write_is_named_and_leaves_no_part(own_client, shot):
    own_client.run(limit_files, 1024)
    with warnings.catch_warnings(), pytest.raises(vela.dask.JobError) as failed:
        warnings.simplefilter("ignore")
        vela.dask.render(own_client, shot.scene, frames="1-2", output=shot.names, **SMALL).result()
    assert list(failed.value.failed) == ["frame 1", "frame 2"] and failed.value.results == {}
    assert "File too large" in str(failed.value)
    assert os.listdir(shot.out) == []


def break_frame(scene_file, frame, how):
    """Makes this process fail or hang in one frame."""
    from vela import _farm

    sound = _farm.PictureRenderer

    def renderer(stage, options, progress):
        if options.time == frame and how == "fail":
            raise ValueError("the frame is broken")
        while options.time == frame:
            # Within the library it would be told to end; in the hands of the system it would not hear of it.
            time.sleep(0.05)
            if how == "listen":
                progress(0.0)
        return sound(stage, options, progress)

    _farm.PictureRenderer = renderer


@pytest.mark.parametrize("how, reason", [("fail", "the frame is broken"), ("listen", "it took longer than 1 s"),
                                         ("hang", "it took longer than 1 s and could not be stopped")])
def test_a_frame_that_fails_or_hangs_is_named_and_the_rest_is_done(own_client, shot, how, reason, monkeypatch):
    def shorten():
        from vela import _farm

        _farm.GRACE = 0.5

    own_client.run(shorten)
    own_client.run(break_frame, str(shot.scene), 2.0, how)
    job = vela.dask.render(own_client, shot.scene, frames="1-8", output=shot.names, timeout=1 if how != "fail" else None, **SMALL)
    with pytest.raises(vela.dask.JobError) as failed:
        job.result()
    assert list(failed.value.failed) == ["frame 2"] and reason in failed.value.failed["frame 2"]
    assert len(failed.value.results) == 7
    assert str(failed.value).startswith("1 of 8 failed: frame 2: ")
    assert sorted(os.listdir(shot.out)) == [f"f.{frame:04}.exr" for frame in (1, 3, 4, 5, 6, 7, 8)]


def test_a_frame_that_kills_every_worker_is_named(own_client, shot):
    class Arm(distributed.WorkerPlugin):
        def setup(self, worker):
            from vela import _farm

            sound = _farm.PictureRenderer

            def renderer(stage, options, progress):
                if options.time == 2:
                    os._exit(3)
                return sound(stage, options, progress)

            _farm.PictureRenderer = renderer

    # Workers that come in the place of others have it too. A task is given up with the second of them.
    own_client.register_plugin(Arm())
    # Frames that wait on a worker that is lost are suspected with the one that runs.
    with pytest.raises(vela.dask.JobError) as failed:
        vela.dask.render(own_client, shot.scene, frames="1-2", **SMALL).result()
    assert "the workers that had it were lost" in failed.value.failed["frame 2"]


def test_a_job_that_was_stopped_is_resumed_by_another_cluster(client, shot):
    with make_cluster(2) as cluster, distributed.Client(cluster) as first:
        job = vela.dask.render(first, shot.scene, frames="1-24", output=shot.names, **{**SMALL, "samples": 400})
        wait_until(lambda: len(stamps(shot.out)) >= 3)
        for worker in first.scheduler_info()["workers"]:
            os.kill(pid_of(first, worker), signal.SIGSTOP)
        job.cancel()
    there = stamps(shot.out)
    assert 3 <= len(there) < 24
    vela.dask.render(client, shot.scene, frames="1-24", output=shot.names, skip_existing=True, **{**SMALL, "samples": 400}).result()
    after = stamps(shot.out)
    assert {name: after[name] for name in there} == there
    render_alone(shot, "1-24", samples=400)
    assert_same(shot, 24)


def test_cancel_stops_workers(client, shot):
    for start in (lambda: vela.dask.render(client, DEMO, frames="1-40", output=shot.names, **ENDLESS),
                  lambda: vela.dask.tiles(client, DEMO, count=8, **ENDLESS)):
        job = start()
        wait_until(lambda: len(busy_workers(client)) == 4)
        job.cancel()
        with pytest.raises(BaseException, match="the job was cancelled") as stopped:
            job.result()
        assert type(stopped.value).__name__ == "CancelledError"
        del job
    wait_until(lambda: not busy_workers(client))
    assert os.listdir(shot.out) == []


def test_workers_stop_when_their_client_is_gone(client):
    second = distributed.Client(client.scheduler.address, set_as_default=False)
    job = vela.dask.render(second, DEMO, frames="1-40", **ENDLESS)
    wait_until(lambda: len(busy_workers(client)) == 4)
    second.close()
    with pytest.raises(ConnectionError, match="the scheduler is lost"):
        job.result()
    del job
    wait_until(lambda: not busy_workers(client))


def test_time_may_run_out_and_the_job_goes_on(client):
    job = vela.dask.render(client, DEMO, frames="1-40", **ENDLESS)
    with pytest.raises(TimeoutError, match="40 of 40 tasks are not done"):
        job.result(timeout=0.1)
    job.cancel()


def test_progress_is_dasks_own_bar(client, shot, capsys):
    job = vela.dask.render(client, shot.scene, frames="1-8", **SMALL)
    job.progress()
    assert "100% Completed" in capsys.readouterr().out
    assert len(job.result()) == 8
    # A second call has the same.
    assert job.result() == job.result()


def start_worker(address, folder, name):
    """A worker process of its own, which imports from a folder first."""
    environment = dict(os.environ, PYTHONPATH=str(folder))
    return subprocess.Popen([sys.executable, "-m", "distributed.cli.dask_worker", address, "--nthreads", "1", "--no-nanny",
                             "--no-dashboard", "--name", name, "--local-directory", str(folder)],
                            env=environment, stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL)


@pytest.mark.parametrize("text, why", [("def version():\n    return '9.8.7'\n", f"it has vela 9.8.7, and this is vela {vela.version()}"),
                                       ("raise ImportError('there is none')\n", "it has no vela: there is none")])
def test_workers_of_another_version_are_refused_by_name(shot, tmp_path, text, why):
    other = tmp_path / "other"
    (other / "vela").mkdir(parents=True)
    (other / "vela/__init__.py").write_text(text)
    with make_cluster(1) as cluster, distributed.Client(cluster) as client:
        worker = start_worker(cluster.scheduler_address, other, "old-one")
        try:
            client.wait_for_workers(2, timeout=60)
            with pytest.raises(vela.dask.WorkerError) as refused:
                vela.dask.render(client, shot.scene, frames="1-2", output=shot.names, **SMALL)
            assert list(refused.value.workers.values()) == [why]
            assert "(old-one): " in str(refused.value) and "\n" not in str(refused.value)
            assert os.listdir(shot.out) == []
        finally:
            worker.kill()
            worker.wait()


def test_workers_of_another_version_that_come_later_do_no_harm(shot, tmp_path):
    # This Vela, but for what it says that it is.
    other, real = tmp_path / "other", pathlib.Path(vela.__file__).parent
    (other / "vela").mkdir(parents=True)
    (other / "vela/__init__.py").write_text(f"__path__ = [{str(real)!r}]\nexec(open({str(real / '__init__.py')!r}).read())\n"
                                            "def version():\n    return '9.8.7'\n")
    with make_cluster(1) as cluster, distributed.Client(cluster) as client:
        job = vela.dask.render(client, shot.scene, frames="1-30", output=shot.names, **{**SMALL, "samples": 900})
        worker = start_worker(cluster.scheduler_address, other, "old-one")
        try:
            client.wait_for_workers(2, timeout=60)
            with warnings.catch_warnings(record=True) as said:
                warnings.simplefilter("always")
                job.result()
            # Whether it got a task before the other had done them all is luck.
            for warning in said:
                assert f"(old-one): it has vela 9.8.7, and the job is of vela {vela.version()}" in str(warning.message)
        finally:
            worker.kill()
            worker.wait()
    render_alone(shot, "1-30", samples=900)
    assert_same(shot, 30)


def test_a_scheduler_that_does_not_answer_is_named():
    with pytest.raises(ConnectionError, match="no scheduler answers at tcp://127.0.0.1:9: start one by"):
        vela.dask.connect("tcp://127.0.0.1:9", timeout=1)
    with pytest.raises(ConnectionError, match="no scheduler answers at nonsense://x"):
        vela.dask.connect("nonsense://x", timeout=1)


def test_a_client_that_is_closed_and_a_cluster_without_workers_are_named(shot):
    with make_cluster(0) as cluster:
        client = distributed.Client(cluster)
        with pytest.raises(ConnectionError, match="no worker has joined the scheduler at tcp://127.0.0.1:.*: start some by `dask worker"):
            vela.dask.render(client, shot.scene, frames="1", **SMALL)
        client.close()
        with pytest.raises(ConnectionError, match="not connected to a scheduler"):
            vela.dask.render(client, shot.scene, frames="1", **SMALL)


def test_a_scheduler_that_is_lost_ends_the_wait(shot):
    cluster = make_cluster(1)
    client = distributed.Client(cluster.scheduler_address, timeout=5)
    try:
        job = vela.dask.render(client, DEMO, frames="1-40", **ENDLESS)
        cluster.close()
        with pytest.raises(ConnectionError, match="the scheduler is lost"):
            job.result(timeout=100)
    finally:
        client.close(timeout=1)
        cluster.close()


def test_paths_that_a_worker_does_not_see_are_named_before_anything_is_rendered(own_client, shot):
    workers = sorted(own_client.scheduler_info(n_workers=-1)["workers"])
    with pytest.raises(vela.dask.WorkerError) as refused:
        vela.dask.render(own_client, shot.at / "gone.usda", frames="1-2", output=shot.names, **SMALL)
    assert refused.value.workers == {
        key: f"it does not see {shot.at / 'gone.usda'}" for key in refused.value.workers} and len(refused.value.workers) == 2
    with pytest.raises(vela.dask.WorkerError, match=f"it does not see the folder {shot.at / 'gone'}"):
        vela.dask.render(own_client, shot.scene, frames="1-2", output=shot.at / "gone/f.##.exr", **SMALL)

    def hide(file):
        """As on a machine where the file is not mounted."""
        import os

        sound = os.stat

        def stat(path, **options):
            if str(path) == file:
                raise FileNotFoundError(2, "No such file or directory", path)
            return sound(path, **options)

        os.stat = stat

    # A layer behind the scene's own file, on one worker alone. The worker that reads the scene first may be that one.
    hidden = shot.at / "shapes/ball.usda"
    own_client.run(hide, str(hidden), workers=workers[:1])
    with pytest.raises(vela.dask.WorkerError) as refused:
        vela.dask.render(own_client, shot.scene, frames="1-2", output=shot.names, **SMALL)
    assert len(refused.value.workers) == 1 and workers[0] in str(refused.value) and "ball.usda" in str(refused.value)
    assert os.listdir(shot.out) == []


def test_textures_that_the_client_alone_sees_are_named_before_anything_is_rendered(own_client, shot, monkeypatch):
    # A name that leads to the working folder of whoever looks: this process has another one than its workers.
    shot.scene.write_text(SCENE + 'def Scope "Look"\n{\n    asset wood = @/proc/self/cwd/wood.png@\n    asset none = @./none.png@\n}\n')
    (shot.at / "wood.png").write_bytes(b"x")
    monkeypatch.chdir(shot.at)
    with pytest.raises(vela.dask.WorkerError) as refused:
        vela.dask.render(own_client, shot.scene, frames="1-2", output=shot.names, **SMALL)
    assert len(refused.value.workers) == 2
    assert set(refused.value.workers.values()) == {"it does not see /proc/self/cwd/wood.png: No such file or directory"}
    assert os.listdir(shot.out) == []
    # What this machine lacks as well is no error.
    (shot.at / "wood.png").unlink()
    vela.dask.render(own_client, shot.scene, frames="1-2", output=shot.names, **SMALL).result()
    assert len(os.listdir(shot.out)) == 2


def test_files_that_differ_on_a_worker_are_named(shot):
    size = shot.scene.stat().st_size
    request = _farm.Request("job", vela.version(), str(shot.scene))
    assert _farm.find_lacks(_farm.Plan(request, ((str(shot.scene), size),), {})) == ""
    assert _farm.find_lacks(_farm.Plan(request, ((str(shot.scene), size + 1),), {})) == (
        f"it has another {shot.scene}, of {size} bytes and not {size + 1}")


def test_what_cannot_become_a_job_is_refused_with_one_line(client, shot):
    def refuse(error, text, function=vela.dask.render, *arguments, **options):
        with pytest.raises(error, match=text) as refused:
            function(client, options.pop("scene", shot.scene), *arguments, **options)
        assert "\n" not in str(refused.value)

    refuse(ValueError, "frames: there are none", frames=[])
    refuse(ValueError, "the end of a range is missing", frames="1-")
    refuse(ValueError, "one name for several frames", frames="1-2", output="a.exr")
    refuse(ValueError, "expected a name that ends with .exr, .png or .jpg", frames="1-2", output="a.##.tif")
    refuse(TypeError, "colour", frames="1", colour=5)
    refuse(ValueError, "count: expected 1 or more", vela.dask.tiles, count=0)
    refuse(ValueError, "batch: expected 1 or more", vela.dask.intersect, [[0, 0, 0]], [[0, 0, 1]], batch=0)
    refuse(ValueError, r"origins: expected shape \(n, 3\)", vela.dask.intersect, [0, 0, 0], [[0, 0, 1]])
    refuse(ValueError, "directions: expected 1 rows as origins, found 2", vela.dask.intersect, [[0, 0, 0]], [[0, 0, 1]] * 2)
    refuse(ValueError, "ends with .npz", vela.dask.intersect, [[0, 0, 0]], [[0, 0, 1]], output="a.exr")
    (shot.at / "bad.usda").write_text("no scene")
    refuse(ValueError, "bad.usda", scene=shot.at / "bad.usda", frames="1")
    job = vela.dask.render(client, shot.scene, frames="1-3", layers=["heat"], **SMALL)
    with pytest.raises(vela.dask.JobError, match="3 of 3 failed: frame 1, frame 2, frame 3: .*heat"):
        job.result()


def test_problems_of_the_scene_are_told_once(client, shot):
    shot.scene.write_text(SCENE.replace("horizontalAperture = 32", "horizontalAperture = 0"))
    with pytest.warns(vela.VelaWarning, match="/Eye: ") as said:
        vela.dask.render(client, shot.scene, frames="1-5", **SMALL).result()
    assert len(said) == 1


def test_of_several_processes_one_writes(tmp_path):
    name = str(tmp_path / "a.exr")
    assert _files.write_once(name, b"first", None)
    assert not _files.write_once(name, b"second", None)
    before = _files.stamp(name)
    assert _files.write_once(name, b"third", before)
    os.utime(name, ns=(1, 1))
    assert not _files.write_once(name, b"fourth", before)
    assert pathlib.Path(name).read_bytes() == b"third"
    # What a killed process left is removed, and nothing else.
    (tmp_path / ".a.exr.vela-part-x1234567").write_bytes(b"rest")
    (tmp_path / ".a.exr.mine").write_bytes(b"mine")
    assert _files.write_once(name, b"fifth", 1)
    assert sorted(os.listdir(tmp_path)) == [".a.exr.mine", "a.exr"]


def test_without_dask_there_is_one_clear_line():
    done = run_python("import sys\nsys.modules['distributed'] = None\nimport vela\nimport vela.dask\n")
    assert done.returncode == 1
    line = done.stderr.splitlines()[-1]
    assert line.startswith("ImportError: vela.dask needs the package distributed") and "pip install 'dask[distributed]'" in line
    assert "During handling" not in done.stderr


def test_the_module_alone_does_not_import_dask():
    done = run_python("import sys, vela\nassert 'distributed' not in sys.modules and 'dask' not in sys.modules")
    assert done.returncode == 0, done.stderr
