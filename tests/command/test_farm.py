"""Jobs for render farms: written by the command, run by a farm's own engine, with the bytes of one machine.

test_farm.py COMMAND PROJECT_ROOT, by a Python that has openjd-cli
"""

import concurrent.futures
import filecmp
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

COMMAND, ROOT = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()
VERSION = subprocess.run([COMMAND, "--version"], capture_output=True, text=True).stdout.split()[1]

# Something moves, so that frames differ.
SCENE = """#usda 1.0
(
    subLayers = [@shapes/ball.usda@]
)
over "World"
{
    def Cube "Box"
    {
        double3 xformOp:translate.timeSamples = { 1: (-4, 0, 0), 200: (4, 1, 0) }
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
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
BALL = """#usda 1.0
def Xform "World"
{
    def Sphere "Ball"
    {
        double3 xformOp:translate = (0, -1, -2)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
}
"""
SMALL = ("--size", "32x18", "--samples", "4")


def run(*arguments, **options):
    return subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, text=True, **options)


def engine(*arguments, **options):
    return subprocess.run([sys.executable, "-m", "openjd", *map(str, arguments)], capture_output=True, text=True, **options)


class Farm(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name) / "a show"  # names with blanks are names
        (self.at / "shapes").mkdir(parents=True)
        self.scene = self.at / "shot one.usda"
        self.scene.write_text(SCENE)
        (self.at / "shapes/ball.usda").write_text(BALL)
        for name in ("out", "alone"):
            (self.at / name).mkdir()

    def submit(self, frames, *more, job="job.json"):
        """The words of the line that the command prints."""
        done = run("submit", self.scene, "--frames", frames, "-o", self.at / "out/f.####.exr", *SMALL,
                   "--job", self.at / job, *more)
        self.assertEqual(done.returncode, 0, done.stderr)
        words = shlex.split(done.stdout)
        self.assertEqual(words[:2], ["openjd", "run"])
        return words[1:] + ["-p", f"Vela={COMMAND}"]

    def alone(self, frames, *more):
        done = run("render", self.scene, "--frames", frames, "-o", self.at / "alone/f.####.exr", *SMALL, *more)
        self.assertEqual(done.returncode, 0, done.stderr)

    def assert_same(self, count):
        names = sorted(p.name for p in (self.at / "alone").iterdir())
        self.assertEqual(len(names), count)
        self.assertEqual(sorted(p.name for p in (self.at / "out").iterdir()), names)
        _, different, missing = filecmp.cmpfiles(self.at / "alone", self.at / "out", names, shallow=False)
        self.assertEqual((different, missing), ([], []))

    def test_the_engine_accepts_the_template_and_runs_the_printed_line(self):
        line = self.submit("1-9x4,12", "--png", self.at / "out/f.%03d.png")
        checked = engine("check", self.at / "job.json")
        self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)
        done = engine(*line)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.alone("1-9x4,12", "--png", self.at / "alone/f.%03d.png")
        self.assert_same(8)

    def test_two_hundred_frames_are_those_of_one_process(self):
        line = self.submit("1-200", "--chunk", 25)
        checked = engine("check", "--extensions", "TASK_CHUNKING", self.at / "job.json")
        self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)
        done = engine(*line)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.alone("1-200")
        self.assert_same(200)

    def test_the_template_names_no_path_of_this_machine(self):
        self.submit("1-2")
        text = (self.at / "job.json").read_text()
        self.assertNotIn(str(self.at), text)
        job = json.loads(text)
        kinds = {p["name"]: p["type"] for p in job["parameterDefinitions"]}
        self.assertEqual(kinds, {"Scene": "PATH", "Folder": "PATH", "Size": "STRING", "Frames": "STRING",
                                 "Vela": "STRING"})
        self.assertFalse([p for p in job["parameterDefinitions"] if p["type"] == "PATH" and "default" in p])

    def test_options_that_name_paths_become_parameters(self):
        line = self.submit("2", "--root", self.at)
        self.assertNotIn(str(self.at), (self.at / "job.json").read_text())
        self.assertIn(f"Root={self.at}", line)
        done = engine(*line)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.alone("2")
        self.assert_same(1)

    def test_what_goes_along_stands_beside_the_template(self):
        selection = self.at / "ball.sel"
        picked = run("select", self.scene, "--rect", "0,0,31,17", "--size", "32x18", "-o", selection)
        self.assertEqual(picked.returncode, 0, picked.stderr)
        self.submit("1-2", "--selection", selection)
        along = json.loads((self.at / "job.attachments.json").read_text())
        listed = run("info", self.scene, "--files").stdout.splitlines()
        self.assertEqual(listed, sorted([str(self.scene), str(self.at / "shapes/ball.usda")]))
        self.assertEqual(along, {"version": 1, "inputs": [*listed, str(selection)], "outputs": [str(self.at / "out")]})

    def test_paths_are_mapped_to_where_the_worker_has_them(self):
        line = self.submit("3")
        line[line.index(f"Scene={self.scene}")] = "Scene=/studio/shot one.usda"
        rules = {"version": "pathmapping-1.0", "path_mapping_rules": [
            {"source_path_format": "POSIX", "source_path": "/studio", "destination_path": str(self.at)}]}
        done = engine(*line, "--path-mapping-rules", json.dumps(rules))
        self.assertEqual(done.returncode, 0, done.stdout)
        self.alone("3")
        self.assert_same(1)

    def test_workers_of_which_one_is_killed_leave_nothing_lost_nor_written_twice(self):
        line = self.submit("1-24")
        pid = self.at / "pid"
        stuck = self.wrapped(f'case "$*" in *"--frames 3 "*) echo $$ >{shlex.quote(str(pid))}.new; '
                             f'mv {shlex.quote(str(pid))}.new {shlex.quote(str(pid))}; exec sleep 1000 ;; esac')

        def work(worker):
            tasks = json.dumps([{"Frame": str(f)} for f in range(1 + 6 * worker, 7 + 6 * worker)])
            words = [sys.executable, "-m", "openjd", *line, *(stuck if worker == 0 else []), "--tasks", tasks]
            process = subprocess.Popen(words, stdout=subprocess.DEVNULL)
            if worker == 0:  # the machine goes down while it renders its third frame
                while not pid.exists():
                    self.assertIsNone(process.poll())
                    time.sleep(0.01)
                process.kill()
                os.kill(int(pid.read_text()), signal.SIGKILL)
            return process.wait()

        with concurrent.futures.ThreadPoolExecutor() as pool:
            results = list(pool.map(work, range(4)))
        self.assertNotEqual(results[0], 0)
        self.assertEqual(results[1:], [0, 0, 0])
        there = {p.name: p.stat().st_mtime_ns for p in (self.at / "out").iterdir()}
        self.assertEqual(sorted(there), sorted(f"f.{f:04}.exr" for f in (1, 2, *range(7, 25))))

        # Once more: what is missing and nothing else.
        done = engine(*line)
        self.assertEqual(done.returncode, 0, done.stdout)
        after = {p.name: p.stat().st_mtime_ns for p in (self.at / "out").iterdir()}
        self.assertEqual({name: after[name] for name in there}, there)
        self.alone("1-24")
        self.assert_same(24)

    def wrapped(self, script):
        program = self.at / "vela.sh"
        program.write_text(f"#!/bin/sh\n{script}\nexec {shlex.quote(str(COMMAND))} \"$@\"\n")
        program.chmod(0o755)
        return ["-p", f"Vela={program}"]

    def test_a_task_that_hangs_is_ended_and_named(self):
        line = self.submit("1-3", "--timeout", 10)
        done = engine(*line, *self.wrapped('case "$*" in *"--frames 2 "*) exec sleep 1000 ;; esac'))
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("Frame", done.stdout)
        self.assertTrue((self.at / "out/f.0001.exr").exists())
        self.assertFalse((self.at / "out/f.0002.exr").exists())
        self.assertEqual(engine(*line).returncode, 0)
        self.alone("1-3")
        self.assert_same(3)

    def test_a_full_disk_leaves_no_part_of_a_picture(self):
        line = self.submit("1-2")
        done = engine(*line, *self.wrapped('case "$1" in render) trap "" XFSZ; ulimit -f 1 ;; esac'))
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("vela render: error: cannot write", done.stdout)
        self.assertEqual(list((self.at / "out").iterdir()), [])
        self.assertEqual(engine(*line).returncode, 0)
        self.alone("1-2")
        self.assert_same(2)

    def assert_refused(self, done, text):
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(text, done.stdout)
        self.assertEqual([p for p in (self.at / "out").iterdir()], [])

    def test_a_worker_of_another_version_is_refused_by_name(self):
        line = self.submit("1-2")
        job = self.at / "job.json"
        job.write_text(job.read_text().replace(json.dumps(VERSION), '"9.8.7"'))
        self.assert_refused(engine(*line), f"the job was made by vela 9.8.7, and this is vela {VERSION}")

    def test_a_worker_that_does_not_see_the_files_is_refused(self):
        line = self.submit("1-2")
        self.assert_refused(engine(*line, "-p", f"Scene={self.at}/gone.usda"), "vela submit: error: cannot open")
        self.assert_refused(engine(*line, "-p", f"Folder={self.at}/gone"), "there is no such folder on this machine")

    LOOKS = """#usda 1.0
(
    subLayers = [@./none/light.usda@]
)
def Scope "Looks" (references = @./parts/look.usda@</Look>)
{
    asset wood = @./tex/wood.png@
    asset none = @./tex/none {{a}}.png@
    asset wall = @./tex/wall.<UDIM>.png@
    asset moving.timeSamples = { 1: @./tex/one.png@, 2: @./tex/two.png@ }
}
"""

    def add_looks(self):
        """Layers, textures, tiles of one, and two names of which nothing is there."""
        for folder in ("parts", "tex"):
            (self.at / folder).mkdir()
        self.scene.write_text(SCENE.replace("@shapes/ball.usda@", "@shapes/ball.usda@, @looks.usda@"))
        (self.at / "looks.usda").write_text(self.LOOKS)
        (self.at / "parts/look.usda").write_text('#usda 1.0\ndef "Look"\n{\n    asset own = @./leaf.png@\n}\n')
        for name in ("tex/wood", "tex/wall.1001", "tex/wall.1002", "tex/one", "tex/two", "parts/leaf"):
            (self.at / f"{name}.png").write_bytes(b"x")

    def test_what_the_scene_reads_and_a_worker_does_not_see_is_named_before_anything_is_rendered(self):
        self.add_looks()
        line = self.submit("1-2")
        checked = engine("check", self.at / "job.json")
        self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)
        for name, told in (("shapes/ball.usda", "shapes/ball.usda: it is a sublayer"), ("parts/look.usda", f"{self.at}/parts/look.usda: /Looks names it"),
                           ("tex/wood.png", "./tex/wood.png: /Looks.wood names it"), ("tex/two.png", "./tex/two.png: /Looks.moving names it"),
                           ("tex/wall.1002.png", "./tex/wall.1002.png: /Looks.wall names it"), ("parts/leaf.png", "./leaf.png: /Looks.own names it")):
            with self.subTest(name=name):
                (self.at / name).rename(self.at / "hidden")
                done = engine(*line)
                (self.at / "hidden").rename(self.at / name)
                self.assert_refused(done, f"vela submit: error: not on this machine: {told}, and where the job was made it is there")
                self.assertEqual(done.stdout.count("not on this machine"), 1, done.stdout)
        # What was missing where the job was made is missing here as well, and is no error.
        done = engine(*line)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.alone("1-2")
        self.assert_same(2)

    def test_a_worker_is_checked_where_it_has_the_scene(self):
        self.add_looks()
        line = self.submit("1")
        there = self.at.parent / "mounted elsewhere"
        self.at.rename(there)
        self.addCleanup(shutil.rmtree, there)
        at, self.at = self.at, there
        line = [word.replace(f"={at}", f"={there}").replace(str(at / "job.json"), str(there / "job.json")) for word in line]
        (there / "tex/one.png").rename(there / "tex/far.png")
        self.assert_refused(engine(*line), "not on this machine: ./tex/one.png: /Looks.moving names it")
        (there / "tex/far.png").rename(there / "tex/one.png")
        self.assertEqual(engine(*line).returncode, 0)

    def test_the_check_reads_the_scene_as_the_tasks_do(self):
        self.scene.write_text(SCENE + """def "Look" (
    variants = {
        string day = "now"
    }
    prepend variantSets = "day"
)
{
    variantSet "day" = {
        "now" {
            asset map = @./now.png@
        }
        "then" {
            asset map = @./then.png@
        }
    }
}
""")
        (self.at / "then.png").write_bytes(b"x")
        line = self.submit("1", "--variant", "/Look:day=then", "--root", self.at, "--max-layers", "9")
        (self.at / "then.png").unlink()
        self.assert_refused(engine(*line), "not on this machine: ./then.png: /Look.map names it")
        line = self.submit("1", "--variant", "/Look:day=now")
        self.assertEqual(engine(*line).returncode, 0)

    def test_a_selection_that_is_not_there_is_named_before_anything_is_rendered(self):
        selection = self.at / "ball.sel"
        self.assertEqual(run("select", self.scene, "--rect", "0,0,31,17", "--size", "32x18", "-o", selection).returncode, 0)
        line = self.submit("1", "--selection", selection)
        selection.unlink()
        self.assert_refused(engine(*line), f"not on this machine: {selection}: the job reads it")

    def test_a_check_by_hand_says_what_is_missing(self):
        self.add_looks()
        done = run("submit", self.scene, "--check", VERSION, "--folder", self.at)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(f"warning: {self.scene}: /Looks.none names ./tex/none {{{{a}}}}.png, which is not here", done.stderr)
        bad = self.at / "bad.json"
        for text in ("", "[]", '{"missing": [], "tiles": [1]}', '{"missing": 3}', "\0"):
            bad.write_text(text)
            done = run("submit", self.scene, "--check", VERSION, "--seen", bad)
            self.assertEqual((done.returncode, done.stderr.splitlines()[-1].count("--seen")), (2, 2), done.stderr)
        for words in (("--seen", bad), ("--input", bad)):
            self.assertEqual(run("submit", self.scene, *words).returncode, 2)
        self.assertEqual(run("submit", self.scene, "--check", VERSION, "--seen", self.at / "gone.json").returncode, 2)

    def test_what_cannot_become_a_job_is_refused_with_one_line(self):
        fit = ["submit", self.scene, "--frames", "1-2", "-o", self.at / "out/f.##.exr", "--job", self.at / "j.json"]
        for change, text in (
                ((fit.index("1-2"), "1.5"), "whole numbers"),
                ((fit.index("1-2"), "1-"), "--frames"),
                ((fit.index(self.at / "j.json"), "job.txt"), "'job.txt' is not a name that ends in .json"),
                ((fit.index(self.at / "j.json"), self.at / "none/j.json"), "cannot write"),
                ((fit.index(self.at / "j.json"), self.scene), ".json"),
                ((fit.index(self.at / "out/f.##.exr"), "-"), "one name for several frames"),
                ((fit.index(self.at / "out/f.##.exr"), "f.exr"), "####"),
                ((fit.index(self.at / "out/f.##.exr"), "{{x}}.##.exr"), "names of parameters"),
                ((1, self.at / "none.usda"), "cannot open")):
            words = list(fit)
            words[change[0]] = change[1]
            done = run(*words, cwd=self.at)
            with self.subTest(words=words):
                self.assertIn(done.returncode, (1, 2), done.stdout + done.stderr)
                self.assertEqual(len(done.stderr.splitlines()), 1, done.stderr)
                self.assertIn(text, done.stderr)
                self.assertFalse((self.at / "j.json").exists())
        for words, text in ((fit[:2] + fit[4:], "--frames"), (fit[:6], "--job"),
                            ([*fit, "--folder", "."], "--folder"), ([*fit, "--chunk", "0"], "--chunk"),
                            ([*fit, "--like", "a.exr"], "no such option"),
                            ([*fit[:3], "1", "-o", "-", *fit[6:]], "no standard output"),
                            ([*fit, "--layers", "heat"], "heat")):
            with self.subTest(words=words):
                done = run(*words)
                self.assertEqual(done.returncode, 2, done.stderr)
                self.assertIn(text, done.stderr)

    def test_what_an_engine_would_refuse_is_refused_before_it_is_written(self):
        fit = ["submit", self.scene, "-o", self.at / "out/f.##.exr", "--job", self.at / "j.json", *SMALL]
        squares = ",".join(str(i * i) for i in range(1, 400))
        for words, text in ((("--frames", squares), "--frames: it makes a text of 2334 characters, and a job template has room for 1024"),
                            (("--frames", "1", "--layers", ",".join(["depth"] * 300)), "--layers: it makes a text of 1799 characters"),
                            (("--frames", "1", "--command", "x" * 1025), "--command: it makes a text of 1025 characters"),
                            (("--frames", "1", "--camera", "/E\tye"), "--camera: it has a control character in it"),
                            (("--frames", "1", "--camera", "/E\x7fye"), "--camera: it has a control character in it"),
                            (("--frames", "1", "--camera", "/E\x85ye"), "--camera: it has a control character in it")):
            with self.subTest(words=words):
                done = run(*fit, *words)
                self.assertEqual(done.returncode, 2, done.stderr)
                self.assertEqual(len(done.stderr.splitlines()), 1, done.stderr)
                self.assertIn(text, done.stderr)
                self.assertFalse((self.at / "j.json").exists())
        # What just fits is taken by the engine.
        for words in (("--frames", "1", "--command", "\u00e4" * 1024), ("--frames", "1", "--exclude", "/a\nb")):
            done = run(*fit, *words)
            self.assertEqual(done.returncode, 0, done.stderr)
            checked = engine("check", self.at / "j.json")
            self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)

    def estimate(self, *more):
        done = run("submit", self.scene, "--frames", "1-20", "-o", self.at / "out/f.####.exr", *SMALL, "--estimate", *more)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def test_an_estimate_is_told_for_several_numbers_of_machines_and_leaves_nothing(self):
        before = set(pathlib.Path(tempfile.gettempdir()).glob("vela-estimate-*"))
        text = self.estimate("--price", "2", "--bandwidth", "100", "--png", self.at / "out/f.####.png")
        self.assertTrue(text.startswith("measured here on frames 1, 11, 20, with "), text)
        tables = text.split("\n\n")[1:]
        self.assertEqual([table.splitlines()[0] for table in tables], ["1 frame a task:", "in 2 bands a frame:"])
        for table, most in zip(tables, (20, 40)):
            rows = [re.findall(r"[\d.]+", line) for line in table.splitlines()[2:]]
            self.assertEqual([(int(row[0]), int(row[1])) for row in rows], [(1, 1), (10, 10), (100, most), (1000, most)])
            self.assertEqual(table.splitlines()[1].split(), ["machines", "busy", "time", "machine", "time", "cost"])
        self.assertEqual(list((self.at / "out").iterdir()), [])
        self.assertEqual(set(self.at.glob("*.json")), set())
        self.assertLessEqual(set(pathlib.Path(tempfile.gettempdir()).glob("vela-estimate-*")) - before, set())

    def test_an_estimate_counts_what_a_frame_writes_and_reads(self):
        # Small frames are looked at whole: the bytes are those of the frames.
        self.alone("1")
        size = (self.at / "alone/f.0001.exr").stat().st_size
        text = self.estimate("--machines", "3", "--tiles", "5")
        self.assertAlmostEqual(float(re.search(r"([\d.]+) MB\n  a machine", text)[1]), size / 1e6, delta=0.011)
        self.assertIn("in 5 bands a frame:", text)
        self.assertNotIn("cost", text)

    def test_an_estimate_that_is_asked_for_wrongly_is_refused(self):
        fit = ["submit", self.scene, "--frames", "1-2", "-o", self.at / "out/f.##.exr", *SMALL]
        for words, text in ((("--estimate", "--job", self.at / "j.json"), "--estimate"), (("--estimate", "--machines", "0"), "--machines"),
                            (("--estimate", "--price", "free"), "--price"), (("--estimate", "--bandwidth", "0"), "--bandwidth"),
                            (("--job", self.at / "j.json", "--price", "1"), "--price")):
            with self.subTest(words=words):
                done = run(*fit, *words)
                self.assertEqual(done.returncode, 2, done.stdout + done.stderr)
                self.assertEqual(len(done.stderr.splitlines()), 1, done.stderr)
                self.assertIn(text, done.stderr)
                self.assertFalse((self.at / "j.json").exists())

    ALL = ("--size", "32x18", "--samples", "4", "--layers", "rgba,depth,N,prim,face,material,crypto_object,crypto_asset")

    def bands(self, count, *more):
        for band in range(1, count + 1):
            done = run("render", self.scene, "-o", self.at / f"out/b.{band}.exr", "--tile", f"{band}/{count}", *self.ALL, *more)
            self.assertEqual(done.returncode, 0, done.stderr)

    def join(self, *more, output="out/joined.exr"):
        return run("render", self.scene, "-o", self.at / output, "--from-tiles", self.at / "out/b.{tile}.exr", *self.ALL, *more)

    def test_bands_join_to_the_bytes_of_the_whole_picture(self):
        for count in (1, 4, 18):
            for more in ((), ("--half", "--compression", "zips"), ("--background", "none")):
                with self.subTest(count=count, more=more):
                    for old in (self.at / "out").iterdir():
                        old.unlink()
                    self.bands(count)
                    outputs = lambda name: ("-o", self.at / f"{name}/p.exr", "-o", self.at / (name + "/p.{layer}.png"),
                                            "--png", self.at / f"{name}/p.png")
                    done = run("render", self.scene, "--from-tiles", self.at / "out/b.{tile}.exr", *outputs("out"), *self.ALL, *more)
                    self.assertEqual(done.returncode, 0, done.stderr)
                    done = run("render", self.scene, *outputs("alone"), *self.ALL, *more)
                    self.assertEqual(done.returncode, 0, done.stderr)
                    for band in range(1, count + 1):
                        (self.at / f"out/b.{band}.exr").unlink()
                    self.assert_same(10)

    def test_bands_that_do_not_fit_together_are_refused_by_name(self):
        self.bands(3)
        band = self.at / "out/b.2.exr"
        one = self.at / "one.exr"
        band.rename(one)

        def replaced_by(*words):
            if words:
                done = run("render", self.scene, "-o", band, *words)
                self.assertEqual(done.returncode, 0, done.stderr)
            return self.join()

        all_of = (*self.ALL, "--tile", "2/3")
        for words, text in (
                ((), "b.2.exr: it is not there, and the picture ends at row 6 of 18"),
                ((*self.ALL, "--tile", "2/4"), "its rows do not begin at row 6"),
                ((*all_of, "--smooth"), "it was made with"),
                ((*all_of, "--half"), "its colours are rounded"),
                (("--tile", "2/3", "--size", "32x18", "--samples", "4", "--layers", "rgba,depth"), "it has no channel")):
            with self.subTest(words=words):
                done = replaced_by(*words)
                self.assertEqual(done.returncode, 1, done.stderr)
                self.assertIn(text, done.stderr.splitlines()[-1])
                self.assertFalse((self.at / "out/joined.exr").exists())
        # Options are equal where scenes and selections differ.
        other = self.at / "other.usda"
        other.write_text(SCENE.replace("(-4, 0, 0)", "(-3, 0, 0)"))
        done = run("render", other, "-o", band, *all_of)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("it is of the scene other.usda, and this is shot one.usda", self.join().stderr)
        self.assertEqual(run("select", self.scene, "--rect", "0,0,31,17", "--size", "32x18", "-o", self.at / "all.sel").returncode, 0)
        done = run("render", self.scene, "-o", band, *all_of, "--selection", self.at / "all.sel")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("another selection is tinted in it", self.join().stderr)
        self.assertFalse((self.at / "out/joined.exr").exists())
        whole = one.read_bytes()
        for damage in (whole[:len(whole) // 2], b"", b"no picture"):
            band.write_bytes(damage)
            done = self.join()
            self.assertEqual(done.returncode, 1)
            self.assertIn("vela render: error: cannot join:", done.stderr.splitlines()[-1])
        # Nor does the joined picture replace a band.
        band.write_bytes(whole)
        done = self.join(output="out/b.2.exr")
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual(band.read_bytes(), whole)
        self.assertEqual(self.join().returncode, 0)

    def test_a_band_that_shows_nothing_is_nothing_to_speak_of(self):
        done = run("render", self.scene, "-o", self.at / "out/b.exr", "--tile", "1/18", *SMALL, "--layers", "depth", "--strict")
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_a_frame_of_a_file_a_layer_is_joined_from_bands_of_all_layers(self):
        names = self.at / "out/p.{layer}.####.png"
        done = run("submit", self.scene, "--frames", "2", "-o", names, *SMALL, "--layers", "depth,N", "--tiles", 2, "--job", self.at / "job.json")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(engine(*shlex.split(done.stdout)[1:], "-p", f"Vela={COMMAND}").returncode, 0)
        for band in (self.at / "out").glob("p.layers.0002.tile*.exr"):
            band.unlink()
        self.assertEqual(run("render", self.scene, "--frames", "2", "-o", self.at / "alone/p.{layer}.####.png", *SMALL, "--layers", "depth,N").returncode, 0)
        self.assert_same(2)

    def test_size_is_a_parameter_without_being_asked_for_and_names_of_jobs_are_short(self):
        scene = self.at / ("s" * 150 + ".usda")
        scene.write_text(SCENE)
        done = run("submit", scene, "--frames", "1", "-o", self.at / "out/a.##.exr", "--samples", "1", "--layers", "depth", "--job", self.at / "job.json")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(engine("check", self.at / "job.json").returncode, 0)
        self.assertEqual(engine(*shlex.split(done.stdout)[1:], "-p", f"Vela={COMMAND}").returncode, 0)
        self.assertEqual(run("render", scene, "--frames", "1", "-o", self.at / "alone/a.##.exr", "--samples", "1", "--layers", "depth").returncode, 0)
        self.assert_same(1)

    def test_what_is_no_band_is_refused(self):
        for words, text in ((("--tile", "3/2"), "from 1 to 2"), (("--tile", "1"), "'1' is not K/N"), (("--tile", "0/2"), "from 1 to 2"),
                            (("--tile", "1/19"), "the picture has 18 rows"), (("--tile", "1/2", "--region", "0,0,1,1"), "--region"),
                            (("--from-tiles", "a.exr"), "a name with {tile} in it"),
                            (("--from-tiles", "{tile}.exr", "--tile", "1/2"), "--from-tiles")):
            with self.subTest(words=words):
                done = run("render", self.scene, "-o", self.at / "out/a.exr", *SMALL, *words)
                self.assertEqual(done.returncode, 2, done.stderr)
                self.assertIn(text, done.stderr.splitlines()[-1])
                self.assertEqual(list((self.at / "out").iterdir()), [])

    def test_frames_in_bands_are_those_of_one_process(self):
        line = self.submit("1-3", "--tiles", 3, "--half", "--png", self.at / "out/f.%04d.png",
                           "--layers", "rgba,depth,crypto_object")
        checked = engine("check", self.at / "job.json")
        self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)
        done = engine(*line)
        self.assertEqual(done.returncode, 0, done.stdout)
        made = {p.name: p.stat().st_mtime_ns for p in (self.at / "out").iterdir()}
        self.assertEqual(len(made), 3 * 5)
        (self.at / "out/f.0002.tile2.exr").unlink()
        (self.at / "out/f.0002.exr").unlink()
        self.assertEqual(engine(*line).returncode, 0)
        again = {p.name: p.stat().st_mtime_ns for p in (self.at / "out").iterdir()}
        self.assertEqual({n for n in made if made[n] != again[n]}, {"f.0002.tile2.exr", "f.0002.exr", "f.0002.png"})
        for band in (self.at / "out").glob("*.tile*.exr"):
            band.unlink()
        self.alone("1-3", "--half", "--png", self.at / "alone/f.%04d.png", "--layers", "rgba,depth,crypto_object")
        self.assert_same(6)
        for words, text in ((("--tiles", "2", "--chunk", "2"), "--chunk"), (("--tiles", "2", "--region", "0,0,1,1"), "--region")):
            done = run("submit", self.scene, "--frames", "1-3", "-o", self.at / "out/f.####.exr", "--job", self.at / "b.json", *words)
            self.assertEqual(done.returncode, 2)
            self.assertIn(text, done.stderr)

    def test_lens_and_shutter_are_passed_on(self):
        scene = self.scene.read_text()
        self.scene.write_text(scene.replace(
            "    float focalLength = 40\n",
            "    float focalLength = 40\n    float fStop = 0.5\n    float focusDistance = 12\n    double shutter:close = 0.5\n"))
        self.assertNotEqual(self.scene.read_text(), scene)
        words = ("--dof", "--motion", "--motion-steps", "6", "--clip", "--overscan", "3")
        line = self.submit("1-2", "--tiles", 2, *words)
        done = engine(*line)
        self.assertEqual(done.returncode, 0, done.stdout)
        for band in (self.at / "out").glob("*.tile*.exr"):
            band.unlink()
        self.alone("1-2", *words)
        self.assert_same(2)

    def test_frames_become_range_expressions(self):
        for frames, expected in (("1-10", "1-10"), ("1-10x3,12", "1-10:3,12"), ("5,1-3", "1-3,5"), ("1,3", "1,3"),
                                 ("1,2", "1-2"), ("-2-2", "-2-2"), ("7", "7"), ("10-1x3", "1-10:3"),
                                 ("1,3,5,6,7,20", "1-5:2,6-7,20")):
            with self.subTest(frames=frames):
                self.submit(frames)
                job = json.loads((self.at / "job.json").read_text())
                given = {p["name"]: p.get("default") for p in job["parameterDefinitions"]}
                self.assertEqual(given["Frames"], expected)
                checked = engine("summary", self.at / "job.json", "-p", "Scene=/s", "-p", "Folder=/f")
                self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
