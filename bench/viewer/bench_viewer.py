"""The viewer's page in headless Chromium: how fast a frame change shows and how well playback
holds its rate, measured in the page (performance.now()). Targets: a frame change on screen within
50 ms at 640 x 512 and 150 ms at 1280 x 1024 (median of the changes); playback at 1:1 holds
50 frames/s. Figures depend on what else the machine runs: a person runs this, CI does not.

    /usr/bin/python3 -m pytest -q -s -p no:cacheprovider bench/viewer/bench_viewer.py

It takes the films, the running viewer and the browser of tests/viewer (THERMOKIT_TOOL names the
tool, default build/release)."""
import pathlib
import statistics
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests/viewer"))
from test_viewer import browser, films, viewer, wait  # noqa: E402,F401  (pytest fixtures)


def test_frame_changes_and_playback_are_fast(viewer, browser):
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import Select
    d = browser
    by = lambda i: d.find_element(By.ID, i)
    d.get(viewer.url)
    assert d.execute_async_script("thermokitView.ready.then(arguments[0])") is True
    for tab, steps, limit in ((0, 12, 50), (1, 5, 150)):
        d.find_elements(By.CSS_SELECTOR, "#tabs button")[tab].click()
        wait(lambda: by("frameText").text.startswith("frame 0 "))
        d.execute_script("thermokitView.timings.length = 0; arguments[0].focus()", by("slider"))
        for k in range(1, steps + 1):
            by("slider").send_keys(Keys.ARROW_RIGHT)
            wait(lambda: d.execute_script("return thermokitView.timings.length") == k)
        shown = [t["shownMs"] for t in d.execute_script("return thermokitView.timings")]
        print(f"film {tab}: frame changes shown after {shown} ms")
        assert statistics.median(shown) <= limit, shown
    d.find_elements(By.CSS_SELECTOR, "#tabs button")[0].click()
    wait(lambda: by("frameText").text.startswith("frame 12 / 19"))
    Select(by("zoom")).select_by_value("1")
    by("fps").clear()
    by("fps").send_keys("50", Keys.TAB)
    runs = []
    for _ in range(3):  # the best of three runs of 3 s: the machine may be busy with other work
        by("play").click()
        time.sleep(3)
        runs.append(d.execute_script("const p = thermokitView.player; return p.shown / (performance.now() - p.t0) * 1000"))
        by("play").click()
    print(f"playback at 50 frames/s: {runs} frames/s")
    assert max(runs) >= 0.95 * 50, runs
