"""A real browser without a window, for the tests of pages.

Usage: browser.py      says why none starts here, with exit code 1; prints nothing when one does
"""
import pathlib
import sys
import time

BROWSER, DRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"


def start(downloads=None):
    """A browser; what it downloads goes into that folder. Whatever selenium raises says why there is none."""
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    options = webdriver.ChromeOptions()
    options.binary_location = BROWSER
    # Root of a container may have no sandbox of the browser's own; shared memory is small there.
    for word in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu", "--window-size=1400,900"):
        options.add_argument(word)
    if downloads:
        options.add_experimental_option("prefs", {"download.default_directory": str(downloads), "download.prompt_for_download": False})
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(options=options, service=Service(DRIVER))


def until(true, what, seconds=120):
    """Waits until something holds; its value."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if value := true():
            return value
        time.sleep(0.05)
    raise AssertionError(f"not within {seconds} seconds: {what}")


def why_none():
    """Why no browser starts here; empty when one does."""
    for program in (BROWSER, DRIVER):
        if not pathlib.Path(program).exists():
            return f"{program} is not there: scripts/setup docs brings it"
    try:
        start().quit()
    except Exception as why:  # selenium's own kinds, and that of a missing selenium
        return (str(why).strip() or type(why).__name__).splitlines()[0]
    return ""


if __name__ == "__main__":
    if why := why_none():
        sys.exit(why)
