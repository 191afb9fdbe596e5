#!/usr/bin/env python3
"""The site of the documentation in a real browser, from disk, as somebody opens it: no page says an error on the console or lacks a
picture, none is wider than the window, on a telephone and on a desk, and the search finds what each header is sought by.

Usage: check_site.py SITE [--screenshots FOLDER]      (by build/browser/env/bin/python; .ci/run site calls it)
       check_site.py --probe                          ends with 1 and the reason where the browser does not start
"""
import contextlib
import pathlib
import re
import sys
import time

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.common.by import By

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What a header is sought by where nothing in it has its own name.
CHIEF_NAMES = {
    "ovo/LayerUses.h": "LayerUse", "ovo/SceneTrial.h": "tryScene", "ovo/Subdivide.h": "subdivideUniform", "ovo/Variants.h": "VariantChoice",
    "ovo/Xform.h": "XformCache", "tarn/Area.h": "areaVector", "tarn/Constants.h": "kPi", "tarn/Convert.h": "truncToInt32",
    "tarn/Time.h": "defaultTimeValue", "tarn/Vec.h": "Vec3", "vela/Version.h": "buildInfo", "vela/asset/AssetManager.h": "setupManager",
    "vela/camera/LensProjection.h": "LensProjection", "vela/camera/SceneCamera.h": "cameraPrimLens",
    "vela/channels/DefaultChannelManager.h": "GetChannelManager", "vela/intersect/HitDetect.h": "HitDetector",
    "vela/intersect/Intersection.h": "CollisionResult", "vela/log/Log.h": "setApplicationName", "vela/mesh/MeshBuilders.h": "buildSphereMesh",
    "vela/mesh/MeshNormals.h": "calcPointNormals", "vela/mesh/Triangulate.h": "Triangulate", "vela/picture/Cryptomatte.h": "murmurHash3",
    "vela/picture/ExrFile.h": "writeExr", "vela/picture/JpegFile.h": "writeJpeg", "vela/picture/LayerTable.h": "LayerInfo",
    "vela/picture/PngFile.h": "writePng", "vela/picture/Tiles.h": "Tile", "vela/sampling/SamplingRng_tables.h": "Sequence",
    "vela/scene/CurvePrims.h": "Tubes", "vela/scene/ExplainRay.h": "explainRay", "vela/scene/FrameRange.h": "parseFrames",
    "vela/scene/MeshDefects.h": "MeshDefect", "vela/scene/Picking.h": "PixelRect", "vela/scene/Refinement.h": "refineShapes",
    "vela/scene/SceneExtent.h": "Extent", "vela/scene/SceneFiles.h": "namedFiles", "vela/scene/SceneMeshes.h": "listMeshes",
    "vela/scene/ScenePrims.h": "forEachPrim",
}
# These declare what others define, or gather others.
WITHOUT_A_NAME = re.compile(r"/(Api|Fwd|ForEachInstructionSet|Lanes\w*|VecOperators|vela|picture)\.h$|^vela/intersect/SceneTracer\.h$")
# How wide windows are, in pixels: a telephone and a desk.
WIDTHS = (400, 1400)
SHOWN = ("index.html", "docs/guide/first-picture.html", "docs/gallery.html", "docs/measurements.html", "docs/comparison.html",
         "reference/vela_trace.html")
# Seconds after which a page counts as broken. Nothing passes or fails by being quick.
PATIENCE = 120

# Pictures that did not load, once all that are to be seen have been asked for. Those below the fold are loaded when they are scrolled to.
LOAD_PICTURES = "document.querySelectorAll('img').forEach(i => { i.loading = 'eager'; });"
PENDING = "return [...document.images].filter(i => !i.complete).length"
MISSING = "return [...document.images].filter(i => i.naturalWidth === 0).map(i => i.src)"
WIDER = "return document.documentElement.scrollWidth - document.documentElement.clientWidth"


@contextlib.contextmanager
def browser():
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars", "--force-device-scale-factor=1"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(options=options, service=webdriver.ChromeService("/usr/bin/chromedriver"))
    driver.set_page_load_timeout(PATIENCE)
    try:
        yield driver
    finally:
        driver.quit()


def wait_for(what, driver, condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"{driver.current_url}: {what} did not come")
        time.sleep(0.02)


def resize(driver, width, height=900):
    """The page's own width: windows have borders, and headless ones a least width, so that the page is told."""
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                           {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})


def faults_of(driver, page, site):
    driver.get(page.as_uri())
    faults = []
    driver.execute_script(LOAD_PICTURES)
    wait_for("a picture", driver, lambda: driver.execute_script(PENDING) == 0)
    faults += [f"missing picture {address}" for address in driver.execute_script(MISSING)]
    faults += [f"console: {entry['message']}" for entry in driver.get_log("browser") if entry["level"] in ("SEVERE", "WARNING")]
    for width in WIDTHS:
        resize(driver, width)
        wider = driver.execute_script(WIDER)
        if wider > 0:
            faults.append(f"{wider} pixels wider than a window of {width}")
    return [f"{page.relative_to(site)}: {fault}" for fault in faults]


def found_by(driver, site, name):
    """The pages that a search lists, best first."""
    driver.get(f"{(site / 'search.html').as_uri()}?q={name}")
    said = lambda: driver.execute_script("return (document.querySelector('#search-results .search-summary') || {}).textContent || ''")
    wait_for(f"the answer to {name}", driver, lambda: re.search(r"\d+ page|did not match", said()))
    wanted = re.search(r"(\d+) page", said())
    count = int(wanted[1]) if wanted else 0
    links = lambda: driver.execute_script("return [...document.querySelectorAll('#search-results ul.search li > a')].map(a => a.getAttribute('href'))")
    wait_for(f"the list for {name}", driver, lambda: len(links()) >= min(count, 1))
    return links(), [e["message"] for e in driver.get_log("browser") if e["level"] == "SEVERE"]


def chief_names():
    """For each public header the page of its folder, and what it is sought by."""
    for header in sorted((ROOT / "src").rglob("*.h")):
        name = header.relative_to(ROOT / "src").as_posix()
        if "detail" in header.parts or header.stem.startswith("Test") or WITHOUT_A_NAME.search(name):
            continue
        text = re.sub(r"//.*", "", header.read_text())
        chief = CHIEF_NAMES.get(name, header.stem)
        assert re.search(rf"\b{chief}\b", text), f"{name}: say in CHIEF_NAMES what it is sought by: nothing in it is called {chief}"
        yield header.relative_to(ROOT / "src").parent.as_posix().replace("/", "_"), chief


def main():
    if sys.argv[1:] == ["--probe"]:
        try:
            with browser() as driver:
                driver.get("data:text/html,<title>here</title>")
                assert driver.title == "here"
        except (WebDriverException, AssertionError, OSError) as error:
            print(f"the browser does not start: {str(error).strip().splitlines()[0]}")
            return 1
        return 0

    site = pathlib.Path(sys.argv[1]).resolve()
    pages = sorted(path for path in site.rglob("*.html") if "_static" not in path.parts)
    assert len(pages) > 60, f"{site}: {len(pages)} pages"
    faults = []
    with browser() as driver:
        if "--screenshots" in sys.argv:
            folder = pathlib.Path(sys.argv[sys.argv.index("--screenshots") + 1])
            folder.mkdir(parents=True, exist_ok=True)
            for name in SHOWN:
                for width in WIDTHS:
                    resize(driver, width)
                    driver.get((site / name).as_uri())
                    driver.save_screenshot(str(folder / f"{pathlib.Path(name).stem}-{width}.png"))
            return 0
        for page in pages:
            faults += faults_of(driver, page, site)
        sought = list(chief_names())
        for folder, name in sought:
            links, errors = found_by(driver, site, name)
            faults += [f"search for {name}: console: {error}" for error in errors]
            # Of a name that many things have, the Python class stands first at times.
            if not any(f"reference/{folder}.html" in link or re.search(rf"reference/python\.html#.*\.{name}$", link) for link in links[:10]):
                faults.append(f"search for {name}: reference/{folder}.html is not among the first ten of {len(links)}: {links[:10]}")
    print("\n".join(faults) or f"docs: {len(pages)} pages and {len(sought)} searches in a browser")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
