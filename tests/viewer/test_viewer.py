"""thermokit view: its server under hostile and heavy requests, and its page in a real headless
Chromium, checked against the tool's own commands (export, render, temperature, stats, correct).

Run with Debian's Python: /usr/bin/python3 -m pytest tests/viewer (THERMOKIT_TOOL names the tool,
default build/release). The tests named test_the_page* drive chromium through chromium-driver; the
page's speed is measured by bench/viewer/bench_viewer.py with the same fixtures."""
import http.client
import json
import os
import pathlib
import select
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import zlib
from concurrent.futures import ThreadPoolExecutor
from urllib.parse import quote

import numpy as np
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = os.environ.get("THERMOKIT_TOOL", str(ROOT / "build/release/apps/thermokit/thermokit"))
HEAD = struct.Struct("<4sBBHHHId4H")  # the 32 bytes before a frame's levels


def tool(*args):
    r = subprocess.run([TOOL, *map(str, args)], capture_output=True, text=True, timeout=120)
    assert r.returncode == 0, r.stderr
    return r.stdout


def read_png(path):
    """Pixels of an 8-bit RGB or RGBA PNG as an array of RGB (line by line, any filter)."""
    data = pathlib.Path(path).read_bytes()
    chunks, at = {}, 8
    while at < len(data):
        n, kind = struct.unpack(">I4s", data[at:at + 8])
        chunks[kind] = chunks.get(kind, b"") + data[at + 8:at + 8 + n]
        at += 12 + n
    w, h, depth, colour = struct.unpack(">IIBB", chunks[b"IHDR"][:10])
    assert depth == 8 and colour in (2, 6)
    bpp = 3 if colour == 2 else 4
    raw, rows, prev = zlib.decompress(chunks[b"IDAT"]), [], bytearray(w * bpp)
    for y in range(h):
        f, line = raw[y * (w * bpp + 1)], bytearray(raw[y * (w * bpp + 1) + 1:(y + 1) * (w * bpp + 1)])
        for i in range(len(line)):
            a, b, c = line[i - bpp] if i >= bpp else 0, prev[i], prev[i - bpp] if i >= bpp else 0
            p = a + b - c
            pred = [0, a, b, (a + b) // 2,
                    a if abs(p - a) <= abs(p - b) and abs(p - a) <= abs(p - c) else b if abs(p - b) <= abs(p - c) else c]
            line[i] = (line[i] + pred[f]) & 255
        rows.append(line)
        prev = line
    return np.frombuffer(b"".join(rows), np.uint8).reshape(h, w, bpp)[:, :, :3]


@pytest.fixture(scope="module")
def films(tmp_path_factory):
    d = tmp_path_factory.mktemp("viewer")
    tool("simulate", "--scene", "plate", "--size", "640x512", "--count", 20, "--move", 3, "--defects", "-o", d / "plate.film")
    tool("simulate", "--scene", "plate", "--size", "1280x1024", "--count", 6, "-o", d / "big.film")
    tool("simulate", "--size", "64x48", "--count", 4, "-o", d / "small.film")
    for t in (20, 40):
        tool("simulate", "--size", "640x512", "--count", 4, "--defects", "-t", t, "-o", d / f"bb{t}.film")
    tool("nuc", "compute", "--cold", d / "bb20.film", "--hot", d / "bb40.film", "-o", d / "cam.nuc")
    tool("badpixels", "detect", "--nuc", d / "cam.nuc", "--gain", 20, "-o", d / "cam.bpr")
    return d


class Viewer:
    """A running `thermokit view`, stopped with Ctrl-C (SIGINT), which must end it cleanly."""

    def __init__(self, *args):
        self.proc = subprocess.Popen([TOOL, "view", *map(str, args)], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                     text=True)
        ready, _, _ = select.select([self.proc.stdout], [], [], 30)
        assert ready, "the viewer printed no address"
        self.url = self.proc.stdout.readline().split()[-1]
        self.port = int(self.url.split(":")[2].split("/")[0])
        self.token = self.url.split("token=")[1]

    def get(self, path, token=True, host=None, method="GET", headers=None):
        c = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        h = dict(headers or {})
        if token:
            h["X-Thermokit-Token"] = self.token if token is True else token
        if host:
            h["Host"] = host
        c.request(method, path, headers=h)
        r = c.getresponse()
        body = r.read()
        c.close()
        return r.status, dict(r.getheaders()), body

    def raw(self, data):
        with socket.create_connection(("127.0.0.1", self.port), timeout=10) as s:
            s.sendall(data)
            return int(s.recv(4096).split()[1])

    def stop(self):
        self.proc.send_signal(signal.SIGINT)
        out, err = self.proc.communicate(timeout=15)
        assert self.proc.returncode == 0 and "stopped" in out, err


@pytest.fixture(scope="module")
def viewer(films):
    v = Viewer(films / "plate.film", films / "big.film", films / "small.film", "--embedded", "--nuc",
               films / "cam.nuc", "--badpixels", films / "cam.bpr")
    yield v
    v.stop()


def test_bad_command_lines_and_listen_warning(films):
    r = subprocess.run([TOOL, "view", films / "none.film"], capture_output=True, text=True, timeout=30)
    assert r.returncode == 1 and "none.film: not found" in r.stderr
    tool("export", films / "small.film", "--format", "npy", "-o", films / "small.npy")
    r = subprocess.run([TOOL, "view", films / "small.film", "--palette-file", films / "small.npy"], capture_output=True,
                       text=True, timeout=30)
    assert r.returncode == 1 and "small.npy" in r.stderr
    (films / "mine.ini").write_text("[Mine]\n(0,0,255)\n(255,128,0)\nEntries=64\n")
    v = Viewer(films / "small.film", "--listen", "0.0.0.0", "--palette-file", films / "mine.ini")
    try:
        assert "anyone who can reach this address and has the token can read the films" in v.proc.stderr.readline()
        mine = json.loads(v.get("/api/session")[2])["palettes"][-1]  # entries as red, green, blue
        assert (mine["number"], mine["name"], len(mine["entries"]), mine["entries"][0]) == (11, "Mine", 64, [0, 0, 255])
        assert v.get("/api/session", host=f"127.0.0.2:{v.port}")[0] == 200  # any address of the machine
        assert v.get("/api/session", host=f"attacker.example:{v.port}")[0] == 403
    finally:
        v.stop()


def test_every_request_is_screened(viewer, films):
    p = viewer.port
    assert viewer.get("/api/session")[0] == 200
    assert viewer.get("/", token=None)[0] == 403
    assert viewer.get("/api/session", token=None)[0] == 403
    assert viewer.get("/api/session", token="0" * 32)[0] == 403
    assert viewer.get(f"/?token={viewer.token}", token=None)[0] == 200
    # DNS rebinding: another name for this address, or another port, is refused.
    for host in (f"evil.example:{p}", f"127.0.0.1.evil.example:{p}", f"127.0.0.1:{p + 1}", "127.0.0.1"):
        assert viewer.get("/api/session", host=host)[0] == 403, host
    assert viewer.get("/api/session", host=f"localhost:{p}")[0] == 200
    # Films by number only: paths and unknown numbers are not found.
    for path in ("/etc/passwd", "/api/film/..%2F..%2Fetc%2Fpasswd/frame/0", "/api/film/0/../../etc/passwd",
                 "/api/film/" + quote(str(films / "plate.film"), safe="") + "/frame/0", "/api/film/3/frame/0",
                 "/api/film/0/frame/20", "/api/film/0/frame/99999999999999999999", "/api/film/-1/frame/0"):
        assert viewer.get(path)[0] == 404, path
    stats = "/api/film/0/stats?frame=0&shape=rect&x=0&y=0&w=1&h=1"
    for path in ("/api/film/0/frame/1?nuc=2", "/api/film/0/frame/1?file=/etc/passwd", "/api/film/0/frame/1?nuc=1&nuc=0",
                 stats.replace("frame=0", "frame=x"), stats.replace("rect", "triangle"), stats.replace("x=0", "x=600&w=41"),
                 stats.replace("&h=1", ""), stats.replace("frame=0", "frame=20")):
        assert viewer.get(path)[0] == 400, path
    assert viewer.raw(b"HELLO\r\n\r\n") == 400
    assert viewer.get("/api/session", method="POST")[0] == 405
    assert viewer.get("/api/session", method="DELETE")[0] == 405
    assert viewer.get("/api/session?" + "a" * 9000)[0] == 414
    assert viewer.raw(f"GET /api/session HTTP/1.1\r\nHost: 127.0.0.1:{p}\r\nX-Thermokit-Token: {viewer.token}\r\n"
                      f"Content-Length: 100000\r\n\r\n".encode() + b"x" * 5000) == 413
    assert 400 <= viewer.raw(f"GET / HTTP/1.1\r\nHost: 127.0.0.1:{p}\r\nX: {'b' * 20000}\r\n\r\n".encode()) < 500
    assert viewer.get("/api/session")[0] == 200  # still serving


def levels_of(body):
    """The levels of a frame answer, either encoding."""
    _, version, encoding, _, point, line, *_ = HEAD.unpack(body[:32])
    n = point * line
    if encoding == 0:
        return np.frombuffer(body, "<u2", n, 32)
    planes = np.frombuffer(body, np.uint8, 2 * n, 32).astype(np.uint16)
    steps = (planes[:n] | (planes[n:] << 8)).reshape(line, point)
    return np.cumsum(steps, axis=1, dtype=np.uint16).ravel()


def test_frames_are_the_films_levels(viewer, films):
    tool("export", films / "plate.film", "--frames", 3, "--format", "raw", "-o", films / "f3.raw")
    raw = np.fromfile(films / "f3.raw", "<u2")
    status, h, plain = viewer.get("/api/film/0/frame/3")
    assert status == 200 and "Content-Encoding" not in h and len(plain) == 32 + 2 * 640 * 512
    magic, version, encoding, flags, point, line, n, t, auto_lo, auto_hi, lo, hi = HEAD.unpack(plain[:32])
    assert (magic, version, encoding, flags, point, line, n) == (b"TKFR", 1, 0, 0, 640, 512, 3)
    assert np.array_equal(levels_of(plain), raw) and (lo, hi) == (raw.min(), raw.max())
    frame3 = tool("stats", films / "plate.film", "--frames", 3, "--csv").splitlines()[1].split(",")
    assert abs(t - float(frame3[1])) < 1e-6
    # The automatic range is render's default display range.
    assert f"levels {auto_lo}..{auto_hi}" in tool("render", films / "plate.film", "--frame", 3, "-o", films / "r.png")
    # Deflated as line differences in byte planes when asked for and the client takes it.
    assert "Content-Encoding" not in viewer.get("/api/film/0/frame/3?deflate=1")[1]
    status, h, packed = viewer.get("/api/film/0/frame/3?deflate=1", headers={"Accept-Encoding": "gzip, deflate"})
    body = zlib.decompress(packed)
    assert h["Content-Encoding"] == "deflate" and len(packed) * 8 <= len(body) * 7 and body[5] == 1
    assert body[:5] == plain[:5] and body[6:32] == plain[6:32] and np.array_equal(levels_of(body), raw)
    # The corrections are those of thermokit correct; a film of another size has none.
    tool("correct", films / "plate.film", "--nuc", films / "cam.nuc", "--badpixels", films / "cam.bpr", "-o", films / "c.film")
    tool("export", films / "c.film", "--frames", 3, "--format", "raw", "-o", films / "c3.raw")
    corrected = viewer.get("/api/film/0/frame/3?nuc=1&bad=1")[2]
    assert HEAD.unpack(corrected[:32])[3] == 3 and np.array_equal(levels_of(corrected), np.fromfile(films / "c3.raw", "<u2"))
    assert not np.array_equal(levels_of(corrected), raw)
    assert HEAD.unpack(viewer.get("/api/film/1/frame/0?nuc=1&bad=1")[2][:32])[3] == 0
    big = json.loads(viewer.get("/api/session")[2])["films"][1]
    assert not big["nuc"]["available"] and "1280 x 1024" in big["nuc"]["why"]


def test_load_is_bounded(viewer):
    """100 concurrent frame requests from 10 clients, several times: no error, no growing memory;
    a flood beyond the frame rate is refused with 429, never served with an error."""
    def rss():
        for line in open(f"/proc/{viewer.proc.pid}/status"):
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) * 1024

    def client(k):  # request k of client k // 10: all 100 wait for each other, then go at once
        start.wait()
        return viewer.get(f"/api/film/{k % 2}/frame/{k % 6}?deflate={k % 3 // 2}", headers={"Accept-Encoding": "deflate"})[0]

    rounds = []
    for r in range(4):
        start = threading.Barrier(100)
        with ThreadPoolExecutor(100) as pool:
            statuses = list(pool.map(client, range(100)))
        assert statuses == [200] * 100
        rounds.append(rss())
        time.sleep(1.0)  # the frame budget refills
    print(f"server memory after each round of 100 frames: {[r >> 20 for r in rounds]} MiB")
    assert rounds[-1] - rounds[1] < 32 << 20, rounds
    t0, counts = time.monotonic(), {}
    with ThreadPoolExecutor(20) as pool:
        for s in pool.map(lambda i: viewer.get(f"/api/film/2/frame/{i % 4}")[0], range(1200)):
            counts[s] = counts.get(s, 0) + 1
    rate = json.loads(viewer.get("/api/session")[2])["frames_per_second"]
    print(f"flood of small frames: {counts} in {time.monotonic() - t0:.2f} s")
    assert set(counts) == {200, 429} and counts[200] <= rate * (1 + time.monotonic() - t0) + 5, counts


@pytest.fixture(scope="module")
def browser(films):
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    o = webdriver.ChromeOptions()
    o.binary_location = "/usr/bin/chromium"
    profile = tempfile.TemporaryDirectory()
    for a in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
              "--disable-background-networking", "--disable-component-update", "--disable-sync",
              "--window-size=1800,1300", f"--user-data-dir={profile.name}"):
        o.add_argument(a)
    d = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=o)
    d.set_script_timeout(30)
    d.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": str(films)})
    yield d
    d.quit()
    profile.cleanup()


def wait(what, timeout=20):
    end = time.monotonic() + timeout
    while not (value := what()):
        assert time.monotonic() < end, "timed out"
        time.sleep(0.02)
    return value


def test_the_page_shows_the_tools_numbers(viewer, films, browser):
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import Select
    d, plate = browser, films / "plate.film"
    by = lambda i: d.find_element(By.ID, i)
    d.get(viewer.url)
    assert d.execute_async_script("thermokitView.ready.then(arguments[0])") is True
    # The slider: three steps right show frame 3 and its time.
    d.execute_script("arguments[0].focus()", by("slider"))
    by("slider").send_keys(Keys.ARROW_RIGHT * 3)
    wait(lambda: by("frameText").text == "frame 3 / 19")
    time3 = tool("stats", plate, "--frames", 3, "--csv").splitlines()[1].split(",")[1]  # seconds since midnight
    assert time3.startswith("32400.") and by("timeText").text.startswith("09:00:00." + time3.split(".")[1])
    # Colours: the picture downloaded, and the canvas at a chosen pixel, are render's for that palette.
    Select(by("palette")).select_by_value("8")
    Select(by("zoom")).select_by_value("2")
    tool("render", plate, "--frame", 3, "--palette", 8, "-o", films / "r8.png")
    expected = read_png(films / "r8.png")
    by("savePng").click()
    got = read_png(wait(lambda: (films / "plate-frame3.png").exists() and films / "plate-frame3.png"))
    assert np.array_equal(got, expected)
    x, y = 190, 160
    rgba = d.execute_script(f"return Array.from(document.getElementById('image').getContext('2d')"
                            f".getImageData({x}, {y}, 1, 1).data)")
    assert rgba == [*expected[y, x], 255]
    # The read-out under the pointer is temperature --pixel's.
    overlay = by("overlay")
    ActionChains(d).move_to_element_with_offset(overlay, 2 * x + 1 - overlay.size["width"] // 2,
                                                2 * y + 1 - overlay.size["height"] // 2).perform()
    line = tool("temperature", plate, "--embedded", "--pixel", f"{x},{y}", "--frame", 3).strip()
    assert line == f"{plate} frame 3 {by('readout').text}"
    # Exact halves round to the even digit, as printf does (JavaScript's toFixed rounds them up).
    halves = [(0.03125, 4), (25.03125, 4), (2.5, 0), (3.5, 0), (0.375, 2), (-0.0, 4), (-0.00005, 4)]
    assert d.execute_script("return arguments[0].map(([x, n]) => thermokitView.fixed(x, n))", halves) == \
        ["%.*f" % (n, x) for x, n in halves]
    # Region figures are stats' (JSON numbers exactly, the table as stats prints them), and the CSV is stats --csv.
    (films / "e.rgn").write_text("ellipse 300 200 41 31\n")
    for shape, box, args in (("rect", (100, 80, 64, 48), ["--roi", "100,80,64,48"]),
                             ("ellipse", (300, 200, 41, 31), ["--region-file", films / "e.rgn"])):
        Select(by("shape")).select_by_value(shape)
        for k, v in zip("xywh", box):
            by("r" + k).clear()
            by("r" + k).send_keys(str(v), Keys.TAB)
        want = dict(zip(("shape", "x", "y", "w", "h"), (shape, *box)))
        s = wait(lambda: (s := d.execute_script("return thermokitView.tab.stats")) and s["region"] == want and s)
        assert s["frame"] == 3
        csv = tool("stats", plate, *args, "--embedded", "--csv")
        row = [float(v) for v in csv.splitlines()[4].split(",")]
        lv, tv = s["levels"], s["values"]
        assert [lv["pixels"], lv["min"], lv["max"], lv["mean"], lv["stddev"]] == row[2:7]
        assert [np.float32(tv["min"]), np.float32(tv["max"]), tv["mean"], tv["stddev"], tv["pixels"],
                s["not_converted"]] == [np.float32(row[7]), np.float32(row[8]), *row[9:]]
        wait(lambda: f"{row[9]:.4f}" in by("stats").text and f"{row[5]:.6f}" in by("stats").text)
        href = by("saveCsv").get_attribute("href")
        assert viewer.get(href[href.index("/api"):], token=None)[2].decode() == csv
