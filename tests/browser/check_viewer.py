#!/usr/bin/env python3
"""The page of vela view in a real browser: each of its parts is used as people do, and what comes of it is held against the other verbs.

Usage: check_viewer.py COMMAND PROJECT_ROOT      (by the Python of build/browser/env)
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from browser import start, until

COMMAND, ROOT = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()
sys.path.insert(0, str(ROOT / "tests/support"))
from serving import serving  # noqa: E402

SCENE = """#usda 1.0
(
    upAxis = "Y"
    startTimeCode = 1
    endTimeCode = 5
)
def Xform "World"
{
    def Mesh "Wall"
    {
        point3f[] points = [(-4, -3, 0), (4, -3, 0), (4, 3, 0), (-4, 3, 0)]
        int[] faceVertexCounts = [4]
        int[] faceVertexIndices = [0, 1, 2, 3]
        color3f[] primvars:displayColor = [(0.8, 0.3, 0.2)]
    }
    def Cube "Box"
    {
        double size = 2
        double3 xformOp:translate.timeSamples = { 1: (-1, 0, 2), 5: (2, 0, 2) }
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
    def Cube "Guide"
    {
        uniform token purpose = "guide"
        double size = 1
        double3 xformOp:translate = (0, 2, 3)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
    def Camera "Eye"
    {
        float horizontalAperture = 24
        float verticalAperture = 18
        float focalLength = 30
        double3 xformOp:translate = (0, 0, 12)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
    def Camera "Side"
    {
        float horizontalAperture = 24
        float verticalAperture = 12
        float focalLength = 24
        double3 xformOp:translate = (1, 1, 9)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
}
"""
SMALL = ("--size", "80", "--samples", "4")


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.downloads = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.downloads.cleanup)
        cls.browser = start(cls.downloads.name)
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name)
        self.scene = self.at / "scene.usda"
        self.scene.write_text(SCENE)
        context = serving([COMMAND, "view"], self.scene, *SMALL)
        self.server = context.__enter__()
        self.addCleanup(context.__exit__, None, None, None)
        self.browser.get_log("browser")
        self.browser.get(self.server.url)
        self.whole()

    # ---- What a person sees and does

    def one(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.browser.execute_script("return document.querySelector(arguments[0]).textContent", selector)

    def rows(self):
        """The names in the tree."""
        return self.browser.execute_script("return [...document.querySelectorAll('.row .name')].map((name) => name.textContent)")

    def click(self, selector):
        """Of parts that may lie below the edge of their column."""
        element = self.one(selector)
        self.browser.execute_script("arguments[0].closest('details')?.setAttribute('open', ''); arguments[0].scrollIntoView({block: 'center'})", element)
        element.click()

    def choose(self, selector, value):
        self.browser.execute_script("arguments[0].closest('details')?.setAttribute('open', '')", self.one(selector))
        Select(self.one(selector)).select_by_value(value)

    def whole(self):
        """Waits for the whole picture of what is asked for now."""
        state = "return document.body.dataset.state === 'whole' && !document.getElementById('png').disabled"
        until(lambda: self.browser.execute_script(state), "the whole picture")

    def saved(self, name):
        """The bytes of what is downloaded under that name."""
        file = pathlib.Path(self.downloads.name) / name
        until(lambda: file.exists() and not list(file.parent.glob("*.crdownload")), name)
        data = file.read_bytes()
        file.unlink()
        return data

    def png(self):
        self.whole()
        self.click("#png")
        return self.saved("scene.png")

    def made(self, *words, name="a.png"):
        options = dict(zip(SMALL[::2], SMALL[1::2]))
        given = [w for option in options if option not in words for w in (option, options[option])]
        done = subprocess.run([COMMAND, "render", self.scene, "-o", self.at / name, *given, *words], capture_output=True, timeout=120)
        self.assertEqual(done.returncode, 0, done.stderr)
        return (self.at / name).read_bytes()

    def drag(self, x, y, by_x, by_y, key=None):
        """From a point, by its offset from the middle of the picture."""
        actions = ActionChains(self.browser, duration=30)
        if key:
            actions.key_down(key)
        actions.move_to_element_with_offset(self.one("#picture"), x, y).click_and_hold().move_by_offset(by_x, by_y).release()
        if key:
            actions.key_up(key)
        actions.perform()

    def changed(self, before):
        """The picture, once it is whole and another one."""
        def other():
            now = self.png()
            return now if now != before else None
        return until(other, "another picture")

    def tearDown(self):
        # What the page of a test before said of its server, which has ended, does not count.
        mine = f":{self.server.port}/"
        said = [row for row in self.browser.get_log("browser") if row["level"] == "SEVERE" and mine in row["message"] and self.server.process.poll() is None]
        # A picture that was given up is refused, and browsers say so; nothing else may be.
        self.assertEqual([row for row in said if "409" not in row["message"]], [])

    # ---- The parts

    def test_the_whole_picture_is_that_of_render(self):
        self.assertEqual(self.png(), self.made())
        self.assertIn("scene.usda", self.browser.title)
        self.assertIn("80 x 60", self.text("#statistics"))

    def test_layers_by_a_click_and_by_their_keys(self):
        for name in ("depth", "N", "prim", "face", "P"):
            self.click(f'[data-layer="{name}"]')
            self.assertEqual(self.png(), self.made("--layers", name), name)
            self.assertEqual(self.one(f'[data-layer="{name}"]').get_attribute("aria-pressed"), "true")
        self.one("#picture").send_keys("1")
        self.assertEqual(self.png(), self.made())

    def test_depth_in_a_range(self):
        self.click('[data-layer="depth"]')
        plain = self.png()
        self.one("#near").send_keys("1", Keys.TAB)
        self.one("#far").send_keys("100", Keys.TAB)
        self.changed(plain)
        self.click("#range-auto")
        until(lambda: self.png() == plain, "the range of the picture again")

    def test_cameras_lenses_and_sizes(self):
        self.choose("#camera", "/World/Side")
        self.assertEqual(self.png(), self.made("--camera", "/World/Side"))
        for lens in ("orthographic", "spherical", "cylindrical", "perspective"):
            self.choose("#lens", lens)
            self.assertEqual(self.png(), self.made("--camera", "/World/Side", "--lens", lens), lens)
        self.choose("#lens", "")
        self.choose("#width", "320")
        self.choose("#samples", "1")
        self.assertEqual(self.png(), self.made("--camera", "/World/Side", "--size", "320", "--samples", "1"))

    def test_the_camera_moves_and_comes_home(self):
        home = self.png()
        seen = [home]
        for move in (lambda: self.drag(0, 0, 90, 30), lambda: self.drag(0, 0, 60, 0, Keys.SHIFT), lambda: self.click("#frame"),
                     lambda: self.one("#picture").send_keys(Keys.ARROW_LEFT), lambda: self.one("#picture").send_keys("+"),
                     lambda: ActionChains(self.browser).scroll_from_origin(self.origin(), 0, 300).perform()):
            move()
            seen.append(self.changed(seen[-1]))
        self.assertEqual(len(set(seen)), len(seen))
        self.one("#picture").send_keys(Keys.HOME)
        until(lambda: self.png() == home, "the picture of before")

    def origin(self):
        from selenium.webdriver.common.actions.wheel_input import ScrollOrigin

        return ScrollOrigin.from_element(self.one("#picture"))

    def test_what_lies_under_the_pointer_and_the_story_of_a_click(self):
        ActionChains(self.browser).move_to_element(self.one("#picture")).perform()
        until(lambda: "/World/" in self.text("#hover") and "distance" in self.text("#hover"), "what lies there")
        ActionChains(self.browser).click().perform()
        until(lambda: re.search(r"Pixel (39|40), (29|30)", self.text("#story")), "the story")
        for told in ("/World/Wall", "/World/Box", "tracer", "hit detector", "shows"):
            self.assertIn(told, self.text("#story"))

    def test_the_tree_hides_and_shows(self):
        until(lambda: self.rows() == ["World"], "the tree")
        self.click('.row[data-path="/World"] .twist')
        until(lambda: "Box" in self.rows(), "the prims below")
        self.click('.row[data-path="/World/Box"] .name')
        self.click("#hide")
        self.assertEqual(self.png(), self.made("--exclude", "/World/Box"))
        self.click("#show-all")
        self.assertEqual(self.png(), self.made())
        self.click("#isolate")
        self.assertEqual(self.png(), self.made("--mask", "/World/Box"))
        self.click("#show-all")
        self.one("#search").send_keys("wal")
        until(lambda: self.rows() == ["/World/Wall"], "what was searched for")
        self.click('#purposes input[value="guide"]')
        self.assertEqual(self.png(), self.made("--purpose", "default,render,guide"))

    def test_time(self):
        before = self.png()
        self.browser.execute_script("const t = document.getElementById('time'); t.value = 4; t.dispatchEvent(new Event('input'))")
        self.assertEqual(self.changed(before), self.made("--time", "4"))
        self.one("#picture").send_keys(".")
        until(lambda: self.png() == self.made("--time", "5"), "the next frame")
        self.click("#play")
        times = set()
        until(lambda: times.add(self.text("#time-text")) or len(times) >= 4, "several frames")
        self.click("#play")
        self.whole()

    def test_rectangles_select(self):
        self.click("#tool-select")
        box = self.one("#picture").size
        # All of the picture but a margin of a few pixels of the page.
        self.drag(-box["width"] // 2 + 4, -box["height"] // 2 + 4, box["width"] - 8, box["height"] - 8)
        until(lambda: "2 prims" in self.text("#selected"), "what is selected")
        self.click("#sel-save")
        text = self.saved("selection.sel").decode()
        subprocess.run([COMMAND, "select", self.scene, "--size", "80", "--rect", "0,0,79,59", "-o", self.at / "a.sel"], check=True, capture_output=True)
        self.assertEqual(text, (self.at / "a.sel").read_text())
        self.click("#sel-clear")
        self.assertIn("Nothing is selected", self.text("#selected"))
        self.one("#sel-file").send_keys(str(self.at / "a.sel"))
        until(lambda: "2 prims" in self.text("#selected"), "what the file selects")

    def test_two_pictures_with_a_wiper(self):
        self.click("#compare")
        painted = "const c = document.getElementById('other'); return c.width === 80 && getComputedStyle(c).display === 'block' && c.style.clipPath"
        self.assertIn("50%", until(lambda: self.browser.execute_script(painted), "the second picture"))
        self.browser.execute_script("const w = document.getElementById('wiper'); w.value = 200; w.dispatchEvent(new Event('input'))")
        self.assertIn("20%", self.browser.execute_script(painted))
        self.assertEqual(self.png(), self.made())

    def test_an_exr_is_that_of_render(self):
        self.click("#exr")
        self.assertEqual(self.saved("scene.exr"), self.made(name="a.exr"))

    def test_a_scene_that_changes_on_disk_is_offered(self):
        self.scene.write_text(SCENE.replace("double size = 2", "double size = 3"))
        until(lambda: self.one("#notice-do").is_displayed(), "the offer")
        self.click("#notice-do")
        until(lambda: not self.one("#notice").is_displayed(), "the scene again")
        until(lambda: self.png() == self.made(), "the new picture")

    def test_a_connection_that_is_lost(self):
        self.assertEqual(self.server.end()[0], 0)
        until(lambda: "connection" in self.text("#notice-text"), "that it is lost")
        self.assertTrue(self.one("#notice").is_displayed())

    def test_a_page_that_is_loaded_again_and_two_at_once(self):
        self.browser.refresh()
        self.whole()
        first = self.browser.current_window_handle
        self.browser.switch_to.new_window("tab")
        try:
            self.browser.get(self.server.url)
            self.click('[data-layer="N"]')
            self.assertEqual(self.png(), self.made("--layers", "N"))
            self.browser.switch_to.window(first)
            self.drag(0, 0, 50, 0)
            self.drag(0, 0, -50, 0)
            self.one("#picture").send_keys(Keys.HOME)
            until(lambda: self.png() == self.made(), "the first page's picture")
        finally:
            for handle in self.browser.window_handles:
                if handle != first:
                    self.browser.switch_to.window(handle)
                    self.browser.close()
            self.browser.switch_to.window(first)

    def test_keys_are_listed(self):
        self.one("#picture").send_keys("?")
        self.assertTrue(self.one("#help").is_displayed())
        self.click("#help button")
        self.assertFalse(self.one("#help").is_displayed())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
