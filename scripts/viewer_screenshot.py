#!/usr/bin/python3
"""Makes docs/viewer.png: thermokit view on the demo's scene film, with a region, a profile and an
isotherm band, the corrections on. Run `thermokit demo -o out/demo` first, then
    /usr/bin/python3 scripts/viewer_screenshot.py [build/release/apps/thermokit/thermokit]"""
import pathlib
import select
import signal
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

root = pathlib.Path(__file__).resolve().parents[1]
tool = sys.argv[1] if len(sys.argv) > 1 else str(root / "build/release/apps/thermokit/thermokit")
demo = root / "out/demo"
view = subprocess.Popen([tool, "view", demo / "films/scene.film", demo / "films/bb_50C.film", "--embedded",
                         "--nuc", demo / "camera.nuc", "--badpixels", demo / "camera.bpr"],
                        stdout=subprocess.PIPE, text=True)
profile = tempfile.TemporaryDirectory()
driver = None
try:
    if not select.select([view.stdout], [], [], 30)[0]:
        sys.exit("the viewer did not start")
    url = view.stdout.readline().split()[-1]
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for a in ("--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking",
              "--disable-component-update", "--disable-sync", "--window-size=1500,1080",
              f"--user-data-dir={profile.name}"):
        options.add_argument(a)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.get(url)
    assert driver.execute_async_script("thermokitView.ready.then(arguments[0])")
    by = lambda i: driver.find_element(By.ID, i)
    for box in ("nuc", "bad"):
        by(box).click()
    Select(by("palette")).select_by_value("8")  # Hot Metal
    by("isoOn").click()
    for field, value in (("isoLow", "60"), ("isoHigh", "70")):
        by(field).send_keys(value, Keys.TAB)
    driver.find_element(By.CSS_SELECTOR, "input[name=tool][value=line]").click()
    overlay = by("overlay")
    w, h = overlay.size["width"], overlay.size["height"]
    ActionChains(driver).move_to_element_with_offset(overlay, -w // 2 + 20, h // 2 - 60).click_and_hold() \
        .move_by_offset(w - 40, -h + 120).release().perform()
    Select(by("shape")).select_by_value("ellipse")
    for field, value in zip(("rx", "ry", "rw", "rh"), (140, 150, 140, 120)):
        by(field).send_keys(str(value), Keys.TAB)
    ActionChains(driver).move_to_element_with_offset(overlay, -w // 6, -h // 12).perform()
    time.sleep(1.5)
    driver.save_screenshot(str(root / "docs/viewer.png"))
    print("docs/viewer.png written")
finally:
    if driver:
        driver.quit()
    view.send_signal(signal.SIGINT)
    view.wait(15)
    profile.cleanup()
