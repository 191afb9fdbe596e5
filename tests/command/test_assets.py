#!/usr/bin/env python3
"""`vela resolve`, and references in the place of files, from outside: with the Basic Asset Library, with a manager of these tests in
Python, with a native one, and with none.

Usage: test_assets.py COMMAND PROJECT_ROOT FOLDER_OF_THE_NATIVE_TEST_MANAGER
"""
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import unittest

COMMAND, ROOT, NATIVE = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3]
LOCATABLE = "openassetio-mediacreation:content.LocatableContent"

SCENE = """#usda 1.0
def Mesh "Square"
{
    uniform token subdivisionScheme = "none"
    int[] faceVertexCounts = [4]
    int[] faceVertexIndices = [0, 1, 2, 3]
    point3f[] points = [(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0)]
}
"""

# What of a Python manager these tests need beyond the Basic Asset Library: signals from within, a word when it is loaded.
PYTHON_MANAGER = '''
import os
import signal

open(os.environ["TEST_MARKER"], "a").close()

from openassetio.managerApi import ManagerInterface
from openassetio.pluginSystem import PythonPluginSystemManagerPlugin
from openassetio.trait import TraitsData


class Manager(ManagerInterface):
    def identifier(self):
        return "org.vela.test.python"

    def displayName(self):
        return "Python Test Manager"

    def hasCapability(self, capability):
        return capability in (ManagerInterface.Capability.kEntityReferenceIdentification,
                              ManagerInterface.Capability.kManagementPolicyQueries,
                              ManagerInterface.Capability.kEntityTraitIntrospection, ManagerInterface.Capability.kResolution)

    def initialize(self, settings, session):
        pass

    def isEntityReferenceString(self, text, session):
        return text.startswith("py:")

    def resolve(self, references, traits, access, context, session, success, error):
        for index, reference in enumerate(references):
            words = reference.toString().split(":")
            for _ in range(words.count("interrupt")):
                os.kill(os.getpid(), signal.SIGINT)
            data = TraitsData()
            data.setTraitProperty("''' + LOCATABLE + '''", "location", "file://" + words[-1])
            success(index, data)


class Plugin(PythonPluginSystemManagerPlugin):
    @classmethod
    def identifier(cls):
        return "org.vela.test.python"

    @classmethod
    def interface(cls):
        return Manager()


openassetioPlugin = Plugin
'''


def entity(*locations):
    return {"versions": [{"traits": {"openassetio-mediacreation:usage.Entity": {}, LOCATABLE: {"location": location}}}
                         for location in locations]}


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name).resolve()
        self.scene = self.at / "a scene.usda"
        self.scene.write_text(SCENE)
        self.marker = self.at / "python-was-here"
        (self.at / "plugins").mkdir()
        (self.at / "plugins/manager.py").write_text(PYTHON_MANAGER)
        library = {
            "capabilities": ["entityReferenceIdentification", "managementPolicyQueries", "entityTraitIntrospection", "resolution"],
            "entities": {
                "scene": entity("${bal_library_dir_url}/old.usda", "${bal_library_dir_url}/a%20scene.usda"),
                "selection": entity("${bal_library_dir_url}/square.sel"),
                "missing": entity("${bal_library_dir_url}/missing.usda"),
                "accents": entity("file:///a/%C3%A4%23%3F.usda"),
                "web": entity("https://example.org/a.usda"),
                "number": entity(7),
                "nothing": {"versions": [{"traits": {"openassetio-mediacreation:usage.Entity": {}}}]},
            },
        }
        (self.at / "library.json").write_text(json.dumps(library))
        self.config("bal.toml", "org.openassetio.examples.manager.bal", 'library_path = "${config_dir}/library.json"\nsimulated_query_latency_ms = 0')
        self.config("native.toml", "org.vela.test.native")
        self.config("unresolving.toml", "org.vela.test.native", "resolution = false")
        self.config("python.toml", "org.vela.test.python")
        self.config("unknown.toml", "org.vela.test.unknown")
        (self.at / "broken.toml").write_text("[manager\n")

    def config(self, name, identifier, settings=""):
        (self.at / name).write_text(f'[manager]\nidentifier = "{identifier}"\n[manager.settings]\n{settings}\n')

    def run_(self, config, *arguments, **environment):
        kept = {k: v for k, v in os.environ.items() if not k.startswith(("OPENASSETIO_", "BAL_", "PYTHON", "HALDEN_")) and k != "TEMP"}
        kept.update(OPENASSETIO_PLUGIN_PATH=f"{NATIVE}:{self.at / 'plugins'}", TEST_MARKER=str(self.marker), PYTHONDONTWRITEBYTECODE="1")
        if config is not None:
            kept["OPENASSETIO_DEFAULT_CONFIG"] = str(self.at / config) if config else ""
        kept.update(environment)
        return subprocess.run([COMMAND, *map(os.fspath, arguments)], capture_output=True, timeout=120, cwd=self.at, env=kept)

    def good(self, config, *arguments, **environment):
        done = self.run_(config, *arguments, **environment)
        self.assertEqual((done.returncode, done.stderr.decode()), (0, ""), arguments)
        return done.stdout.decode()

    def bad(self, config, *arguments, code=1, lines=1, **environment):
        """Fails with the code and so many lines on standard error, all in the command's form; gives those."""
        done = self.run_(config, *arguments, **environment)
        said = done.stderr.decode().splitlines()
        self.assertEqual((done.returncode, len(said)), (code, lines), f"{arguments}\n{done.stdout}\n{done.stderr.decode()}")
        for line in said:
            self.assertTrue(line.startswith(f"vela {arguments[0]}: error: "), line)
        self.out = done.stdout.decode()
        return said[0] if lines == 1 else said


class Resolve(Case):
    def test_paths_come_a_line_each_in_order(self):
        self.assertEqual(self.good("bal.toml", "resolve", "bal:///scene", "bal:///scene?v=1", "bal:///scene?v=2", "bal:///scene?v=latest", "bal:///scene"),
                         f"{self.scene}\n{self.at}/old.usda\n{self.scene}\n{self.scene}\n{self.scene}\n")

    def test_percent_encoded_locations_are_decoded(self):
        self.assertEqual(self.good("bal.toml", "resolve", "bal:///accents"), "/a/ä#?.usda\n")

    def test_the_file_need_not_be_there(self):
        self.assertEqual(self.good("bal.toml", "resolve", "bal:///missing"), f"{self.at}/missing.usda\n")

    def test_each_that_does_not_resolve_gets_a_line_and_the_others_their_path(self):
        said = self.bad("bal.toml", "resolve", "bal:///no/such", "bal:///scene", "bal:///scene?v=3", "other:///x", "plain.usda", "bal:///",
                        "bal:///web", "bal:///number", "bal:///nothing", "", lines=9, code=4)
        self.assertEqual(self.out, f"{self.scene}\n")
        for line, start in zip(said, (
                "bal:///no/such: BatchElementException: entityResolutionError: Entity 'no/such' not found",
                "bal:///scene?v=3: BatchElementException: entityResolutionError: Entity 'scene' does not have a version 3",
                "other:///x: the asset manager knows no references of this kind; see ",
                "plain.usda: the asset manager knows no references of this kind; see ",
                "bal:///: BatchElementException: malformedEntityReference: ",
                "bal:///web: invalid url: https://example.org/a.usda; see ",
                "bal:///number: Invalid stored value type: should be 'openassetio::Str'; see ",
                "bal:///nothing: the asset manager has no location for it; see ",
                "'': the asset manager knows no references of this kind; see ")):
            self.assertTrue(line.startswith("vela resolve: error: cannot resolve: " + start), line)

    def test_a_path_is_that_path_and_so_is_what_a_file_url_names(self):
        # No manager is asked, whether there is one or not.
        (self.at / "a b%.usda").write_text("#usda 1.0\n")
        encoded = f"{self.at}/a%20b%25.usda"
        for config in ("bal.toml", "unknown.toml", None):
            for url in (f"file://{encoded}", f"file:{encoded}", f"FILE://localhost{encoded}"):
                self.assertEqual(self.good(config, "resolve", url, str(self.scene), "file:///no/such"), f"{self.at}/a b%.usda\n{self.scene}\n/no/such\n")
                self.assertIn("up axis", self.good(config, "info", url))
            for url, why in (("file://elsewhere/a", "it names another machine"), ("file:a", "its path is not absolute"), ("file:///%zz", "a % in it"),
                             ("file:///%0", "a % in it"), ("file:///a%00b", "a % in it"), ("file:", "its path is not absolute")):
                self.assertIn(f"cannot resolve: {url}: {why}", self.bad(config, "resolve", url))
                self.assertIn(f"cannot resolve: {url}: {why}", self.bad(config, "info", url))
            self.assertIn("is an asset reference", self.bad(config, "make", "cube", "-o", f"file://{self.at}/new.usda", code=2))
        # The others fail one by one.
        self.assertIn("cannot resolve: bal:///x: no asset manager", self.bad(None, "resolve", "bal:///x", str(self.scene), code=4))
        self.assertEqual(self.out, f"{self.scene}\n")

    def test_json_has_every_reference_and_the_reasons(self):
        self.bad("bal.toml", "resolve", "--json", "bal:///scene", "bal:///web", "other:///x", lines=2, code=4)
        self.assertEqual(json.loads(self.out), {"version": 1, "references": [
            {"reference": "bal:///scene", "resolved": True, "path": str(self.scene), "error": None},
            {"reference": "bal:///web", "resolved": False, "path": None, "error": "invalid url: https://example.org/a.usda"},
            {"reference": "other:///x", "resolved": False, "path": None, "error": "the asset manager knows no references of this kind"}]})
        self.assertEqual(json.loads(self.good("bal.toml", "resolve", "bal:///scene", "--json"))["references"][0]["path"], str(self.scene))

    def test_bytes_that_are_no_text_do_no_harm(self):
        done = self.run_("bal.toml", "resolve", "--json", b"bal:///\xff\xfe")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(json.loads(done.stdout)["references"][0]["resolved"], False)

    def test_without_a_configuration_one_line_says_how_to_set_one(self):
        for config in (None, ""):
            for arguments in (["bal:///scene"], ["bal:///scene", "bal:///web", "--json"]):
                line = self.bad(config, "resolve", *arguments)
                self.assertIn("no asset manager is configured; set OPENASSETIO_DEFAULT_CONFIG to ", line)
                self.assertEqual(self.out, "")

    def test_a_manager_that_cannot_be_set_up_is_one_line(self):
        for config, why in (("none.toml", "Could not load default config from "), ("broken.toml", "Error parsing config file"),
                            ("unknown.toml", "No plug-in registered with the identifier 'org.vela.test.unknown'"), (".", "must be a TOML file not a directory")):
            line = self.bad(config, "resolve", "bal:///scene", "bal:///web")
            self.assertIn(f"cannot resolve: the asset manager of {self.at / config} cannot be set up: ", line)
            self.assertIn(why, line)

    def test_wrong_usage(self):
        for arguments in ([], ["--json"], ["bal:///scene", "--jsn"]):
            self.assertIn("; try ", self.bad("bal.toml", "resolve", *arguments, code=2))

    def test_the_examples_of_the_help_work(self):
        count = 0
        for line in self.good(None, "resolve", "--help").split("Examples", 1)[1].splitlines()[1:]:
            if line.strip():
                self.good(ROOT / "examples/assets/openassetio.toml", *line.split()[1:])
                count += 1
        self.assertEqual(count, 3)


class Managers(Case):
    def test_native_ones_need_no_python(self):
        self.assertEqual(self.good("native.toml", "resolve", "test:url:file:///a%20b/c.usd", "test:count"), "/a b/c.usd\n/2\n")

    def test_every_failure_of_a_native_one_is_a_line(self):
        for what, why in (("batch-error", "entityResolutionError: not found"), ("throw-std", "a standard failure"),
                          ("throw-openassetio", "a failure of its own kind"), ("throw-int", "unknown exception"),
                          ("null", "the asset manager has no location for it"), ("none", "the asset manager has no location for it"),
                          ("number", "Invalid stored value type: should be 'openassetio::Str'"), ("url:not a url", "invalid url: not a url"),
                          ("url:file://host/a", "invalid url: file://host/a")):
            self.assertIn(f"cannot resolve: test:{what}: {why}", self.bad("native.toml", "resolve", f"test:{what}"))
        self.assertIn("cannot look at it", self.bad("native.toml", "resolve", "test-throws:"))

    def test_one_that_does_not_resolve_says_so(self):
        self.assertIn("it does not support asset resolution and will be ignored", self.bad("unresolving.toml", "resolve", "test:count"))

    def test_python_ones_are_found_on_the_path_of_plug_ins(self):
        self.assertEqual(self.good("python.toml", "resolve", "py:/x.usda"), "/x.usda\n")
        self.assertTrue(self.marker.exists())

    def test_variables_meant_for_other_interpreters_do_no_harm(self):
        self.assertEqual(self.good("bal.toml", "resolve", "bal:///accents", PYTHONHOME="/nonexistent"), "/a/ä#?.usda\n")
        self.assertEqual(self.good("bal.toml", "resolve", "bal:///accents", LC_ALL="C"), "/a/ä#?.usda\n")

    def test_an_interrupt_ends_the_verb_and_two_end_it_at_once(self):
        for times in (1, 2):
            done = self.run_("python.toml", "resolve", "py:" + "interrupt:" * times + "/x.usda")
            self.assertEqual((done.returncode, done.stdout), (130, b""), done.stderr)
        done = self.run_("python.toml", "render", f"py:interrupt:{self.scene}", "-o", "out.exr")
        self.assertEqual(done.returncode, 130)
        self.assertFalse((self.at / "out.exr").exists())

    def test_a_closed_pipe_ends_the_command_as_ever(self):
        reading, writing = os.pipe()
        os.close(reading)
        environment = dict(os.environ, OPENASSETIO_DEFAULT_CONFIG=str(self.at / "bal.toml"))
        done = subprocess.run([COMMAND, "resolve", "bal:///scene"], stdout=writing, stderr=subprocess.PIPE, env=environment, timeout=120)
        os.close(writing)
        self.assertEqual(done.returncode, -signal.SIGPIPE)


class Files(Case):
    def pairs(self, verb, before, *after):
        """The verb's output for the path and for the reference."""
        return self.good("bal.toml", verb, before, *after), self.good("bal.toml", verb, "bal:///scene", *after)

    def test_every_verb_reads_references(self):
        for verb, after in (("info", []), ("info", ["--json"]), ("mesh", []), ("mesh", ["--json"]), ("pick", ["--pixel", "640,360", "--json"])):
            by_path, by_reference = self.pairs(verb, self.scene, *after)
            self.assertEqual(by_path, by_reference)
            self.assertIn("Square", by_path)

    def test_render_makes_the_same_picture(self):
        for threads in ("1", "4"):
            self.good("bal.toml", "render", self.scene, "-o", "path.exr", "--size", "40x30", "--samples", "4")
            self.good("bal.toml", "render", "bal:///scene", "-o", "reference.exr", "--size", "40x30", "--samples", "4", "--threads", threads)
            self.assertEqual((self.at / "path.exr").read_bytes(), (self.at / "reference.exr").read_bytes())

    def test_selections_may_be_references(self):
        rect = ["--rect", "0,0,39,29", "--size", "40x30", "-o"]
        self.good("bal.toml", "select", "bal:///scene", *rect, "square.sel")
        self.assertIn("/Square", self.good("bal.toml", "select", "--show", "bal:///selection"))
        self.good("bal.toml", "select", "bal:///scene", *rect, "again.sel", "--add", "bal:///selection")
        self.assertEqual((self.at / "square.sel").read_bytes(), (self.at / "again.sel").read_bytes())
        shots = []
        for selection in ("square.sel", "bal:///selection"):
            self.good("bal.toml", "render", "bal:///scene", "--png", "out.png", "--size", "40x30", "--samples", "1", "--selection", selection)
            shots.append((self.at / "out.png").read_bytes())
        self.good("bal.toml", "render", "bal:///scene", "--png", "out.png", "--size", "40x30", "--samples", "1")
        self.assertEqual(shots[0], shots[1])
        self.assertNotEqual(shots[0], (self.at / "out.png").read_bytes())

    def test_what_does_not_resolve_is_one_line_in_every_verb(self):
        for arguments in (["render", "bal:///no", "-o", "out.exr"], ["pick", "bal:///no", "--pixel", "0,0"], ["info", "bal:///no"],
                          ["mesh", "bal:///no"], ["select", "bal:///no", "--rect", "0,0,1,1", "-o", "out.sel"], ["select", "--show", "bal:///no"],
                          ["select", self.scene, "--rect", "0,0,1,1", "-o", "out.sel", "--add", "bal:///no"],
                          ["render", self.scene, "-o", "out.exr", "--selection", "bal:///no"]):
            self.assertIn("cannot resolve: bal:///no: BatchElementException: entityResolutionError: Entity 'no' not found", self.bad("bal.toml", *arguments))
            self.assertIn("cannot resolve: bal:///no: no asset manager is configured; set OPENASSETIO_DEFAULT_CONFIG to ", self.bad(None, *arguments))
            self.assertIn("cannot resolve: bal:///no: the asset manager of ", self.bad("unknown.toml", *arguments))
        self.assertEqual(list(self.at.glob("out.*")), [])

    def test_a_reference_to_a_file_that_is_missing_or_no_scene_names_the_file(self):
        self.assertIn(f"cannot open the scene: {self.at}/missing.usda: ", self.bad("bal.toml", "info", "bal:///missing"))

    def test_a_missing_file_is_a_missing_file(self):
        for config in (None, "bal.toml"):
            for name in ("none.usda", "bal", "C:/none.usda"):
                self.assertIn(f"cannot open the scene: {name}: ", self.bad(config, "info", name))
        self.assertIn("cannot resolve: none.usda: there is no such file, and the asset manager of ", self.bad("unknown.toml", "info", "none.usda"))
        self.assertIn("knows no references of this kind", self.bad("bal.toml", "info", "other:///x"))

    def test_what_exists_as_a_path_is_that_path(self):
        (self.at / "bal:").mkdir()
        (self.at / "bal:/scene").symlink_to(self.at / "mine.usda")
        (self.at / "mine.usda").write_text(SCENE.replace("Square", "Mine"))
        # It lacks an ending that OpenUSD would know.
        self.assertIn("cannot open the scene: bal:///scene: ", self.bad("bal.toml", "info", "bal:///scene"))
        (self.at / "py:").mkdir()
        (self.at / "py:/mine.usda").write_text(SCENE.replace("Square", "Mine"))
        self.assertIn("/Mine", self.good("python.toml", "info", "py:/mine.usda"))
        self.assertFalse(self.marker.exists(), "a manager was set up for a file")

    def test_files_alone_start_no_manager_even_where_it_is_broken(self):
        for config in ("python.toml", "unknown.toml", "none.toml"):
            self.good(config, "info", self.scene)
            self.good(config, "render", self.scene, "-o", "out.exr", "--size", "8x8", "--samples", "1")
            self.good(config, "make", "cube", "-o", "cube.usda")
        self.assertFalse(self.marker.exists())

    def test_outputs_are_paths(self):
        for config in (None, "bal.toml"):
            for arguments in (["render", self.scene, "-o", "bal:///scene"], ["render", self.scene, "--png", "bal:///scene"],
                              ["select", self.scene, "--rect", "0,0,1,1", "-o", "bal:///new"], ["make", "cube", "-o", "bal:///cube.usda"]):
                self.assertIn(" is an asset reference, and files are written by path; try vela ", self.bad(config, *arguments, code=2))
        # Without slashes only the manager can tell.
        self.assertIn(" is an asset reference", self.bad("python.toml", "make", "cube", "-o", "py:cube.usda", code=2))
        self.good(None, "make", "cube", "-o", "py:cube.usda")
        self.assertTrue((self.at / "py:cube.usda").exists())
        self.good("python.toml", "make", "cube", "-o", "py:cube.usda")


class Logs(Case):
    def log(self):
        return re.sub(r"\[\d+/\d\d/\d\d:\d\d:\d\d:\d\d\] ", "", (self.at / "log").read_text())

    def test_the_log_file_has_the_whole_message_and_standard_error_a_line(self):
        self.bad("bal.toml", "resolve", "bal:///no", "--log-file", "log")
        lines = self.log().splitlines()
        self.assertTrue(lines[0].startswith("[vela/Asset System Error]Failed to resolve asset: BatchElementException: entityResolutionError: "), lines)
        self.assertIn("At:", lines)
        self.assertTrue(lines[-1].startswith("[vela Error]vela resolve: cannot resolve: bal:///no: "), lines)

    def test_the_level_decides_about_the_file_and_not_about_the_line(self):
        self.assertIn("Entity 'no' not found", self.bad("bal.toml", "resolve", "bal:///no", "--log-file", "log", "--log-level", "quiet"))
        self.assertEqual(self.log(), "")
        self.assertIn("does not support", self.bad("unresolving.toml", "resolve", "test:count", "--log-file", "log"))
        self.assertNotIn("Warning", self.log())
        self.bad("unresolving.toml", "resolve", "test:count", "--log-file", "log", "--log-level", "warning", OPENASSETIO_LOGGING_SEVERITY="5")
        self.assertIn("[vela/Asset System Warning]Loaded manager Test Manager ä, but it does not support asset resolution and will be ignored\n", self.log())

    def test_the_managers_own_log_follows_the_level(self):
        self.assertEqual(self.run_("bal.toml", "resolve", "bal:///scene").stderr, b"")
        self.assertIn(b"deprecated", self.run_("bal.toml", "resolve", "bal:///scene", "--log-level", "warning").stderr)
        self.assertIn(b"deprecated", self.run_("bal.toml", "resolve", "bal:///scene", OPENASSETIO_LOGGING_SEVERITY="4").stderr)

    def test_verbose_lines_pass(self):
        done = self.run_("bal.toml", "resolve", "bal:///scene", "--log-level", "verbose")
        self.assertEqual(done.returncode, 0)
        self.assertIn(b"[vela Verbose]", done.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
