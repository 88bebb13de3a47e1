"""Films: read as the tool exports them, written so that the tool reads them
back, indexed and converted like NumPy arrays, refused with the tool's words."""
import csv
import gc
import io
import json
import os
import struct
import subprocess
import threading
import time

import numpy as np
import pytest

import thermokit
from conftest import tool, tool_error


def same_fields(ours, tools):
    """Header fields equal, the tool's JSON giving 32-bit fields at their own precision (3.7)."""
    if isinstance(ours, dict):
        return ours.keys() == tools.keys() and all(same_fields(ours[k], tools[k]) for k in ours)
    if isinstance(ours, list):
        return len(ours) == len(tools) and all(same_fields(a, b) for a, b in zip(ours, tools))
    if isinstance(ours, float) and isinstance(tools, float):
        return ours == tools or np.float32(ours) == np.float32(tools)
    return ours == tools


def test_films_of_the_tool_read_as_it_exports_and_measures_them(films, tmp_path):
    path = films["plate"]
    tool("export", path, "--format", "npy", "-o", tmp_path / "levels.npy")
    tool("export", path, "--format", "npy", "--embedded", "-o", tmp_path / "degC.npy")
    info = json.loads(tool("info", "-v", path, "--json", "--frame", "2").stdout)
    stats = list(csv.DictReader(io.StringIO(tool("stats", path, "--embedded", "--csv").stdout)))
    with thermokit.open(path) as film:
        assert (len(film), film.shape, film.dtype, film.bits) == (6, (6, 24, 40), np.uint16, 14)
        assert film.frame_rate == pytest.approx(100.0)
        levels = film[:]
        np.testing.assert_array_equal(levels, np.load(tmp_path / "levels.npy"))
        celsius = film.law.to_temperature(levels, bits=film.bits)
        np.testing.assert_array_equal(celsius, np.load(tmp_path / "degC.npy"))
        np.testing.assert_array_equal(film.law.to_temperature(levels, unit="K", bits=film.bits),
                                      celsius + np.float32(273.15))
        assert same_fields(film.header, info["header"])
        assert same_fields(film.image_header(2), info["image_header"])
        times = film.times
    for n, row in enumerate(stats):
        lv, tv = thermokit.statistics(levels[n]), thermokit.statistics(celsius[n])
        assert (lv.count, lv.min, lv.max, lv.mean, lv.std) == (
            int(row["pixels"]), float(row["min"]), float(row["max"]), float(row["mean"]), float(row["stddev"]))
        # Calibrated extremes are floats, printed to float precision.
        assert (tv.count, np.float32(tv.min), np.float32(tv.max), tv.mean, tv.std) == (
            int(row["degC_pixels"]), np.float32(row["degC_min"]), np.float32(row["degC_max"]),
            float(row["degC_mean"]), float(row["degC_stddev"]))
        assert times[n] == pytest.approx(float(row["time_s"]) - float(stats[0]["time_s"]), abs=2e-6)


@pytest.mark.parametrize("kind", ["levels", "direct", "doubles"])
def test_films_written_here_read_back_in_the_tool(kind, tmp_path):
    rng = np.random.default_rng(7)
    path = tmp_path / f"{kind}.film"
    header = {"camera": "Camera 7", "comment": "written by pytest", "emissivity": 0.5, "filters": ["LP", "BP"]}
    if kind == "doubles":
        frames = rng.normal(30.0, 5.0, size=(3, 5, 7))
        thermokit.write(path, frames, header=header, frame_rate=25, times=[0.0, 0.5, 2.25])
    else:
        frames = rng.integers(0, 4096, size=(4, 5, 7), dtype=np.uint16)
        with thermokit.create(path, 7, 5, bits=12, frame_rate=25, header=header, direct=kind == "direct",
                              bank_size=4096, banks=2) as writer:
            writer.append(frames[0])
            writer.append(frames[1:])
            assert len(writer) == 4
    tool("export", path, "--format", "npy", "-o", tmp_path / "out.npy")
    np.testing.assert_array_equal(np.load(tmp_path / "out.npy"), frames)
    info = json.loads(tool("info", "-v", path, "--json").stdout)["header"]
    assert (info["camera"], info["comment"], info["emissivity"]) == ("Camera 7", "written by pytest", 0.5)
    assert (info["filters"][:3], info["frame_rate_hz"]) == (["LP", "BP", ""], pytest.approx(25.0))
    with thermokit.open(path) as film:
        expected = [0.0, 0.5, 2.25] if kind == "doubles" else [0.0, 0.04, 0.08, 0.12]
        np.testing.assert_allclose(film.times, expected, atol=2e-6)


def test_header_texts_are_8_bit_latin_1(tmp_path):
    path = tmp_path / "latin.film"
    thermokit.write(path, np.zeros((1, 2, 2), np.uint16), header={"camera": "Cam\xe9ra \xb0C"})
    assert open(path, "rb").read()[44:54] == b"Cam\xe9ra \xb0C\0"
    assert thermokit.open(path).header["camera"] == "Cam\xe9ra \xb0C"
    with pytest.raises(ValueError, match="header field camera: 8-bit \\(Latin-1\\) text expected"):
        thermokit.write(path, np.zeros((1, 2, 2), np.uint16), header={"camera": "\u20ac"})


def test_frames_index_like_arrays_and_inputs_are_taken_in_any_layout(films):
    film = thermokit.open(films["plate"])
    every = np.stack([film[k] for k in range(len(film))])
    np.testing.assert_array_equal(list(film), every)
    np.testing.assert_array_equal(film[-1], every[-1])
    np.testing.assert_array_equal(film[np.int64(2)], every[2])
    np.testing.assert_array_equal(film[1:6:2], every[1:6:2])
    np.testing.assert_array_equal(film[[3, 0, 3]], every[[3, 0, 3]])
    np.testing.assert_array_equal(film[2, 3:5, ::2], every[2, 3:5, ::2])
    np.testing.assert_array_equal(film[1:3, 0], every[1:3, 0])
    assert film[5:1].shape == (0, 24, 40)
    buffer = np.zeros((24, 40), np.uint16)
    assert film.read(4, out=buffer) is buffer
    np.testing.assert_array_equal(buffer, every[4])
    for bad, error in [(np.zeros((24, 40), np.int16), TypeError), (np.zeros((40, 24), np.uint16), ValueError),
                       (np.zeros((24, 80), np.uint16)[:, ::2], TypeError)]:
        with pytest.raises(error, match="argument 'out'"):
            film.read(0, out=bad)
    frozen = np.zeros((24, 40), np.uint16)
    frozen.flags.writeable = False
    with pytest.raises(TypeError, match="writeable"):
        film.read(0, out=frozen)
    # Strided, byte-swapped and Fortran-ordered inputs give what their contiguous copies give.
    law, frame = film.law, every[3]
    for view in (frame[:, ::2], frame.astype(">u2"), np.asfortranarray(frame)):
        copy = np.ascontiguousarray(view, dtype=np.uint16)
        assert thermokit.statistics(view) == thermokit.statistics(copy)
        np.testing.assert_array_equal(law.to_temperature(view, bits=14), law.to_temperature(copy, bits=14))
    assert law.to_temperature(frame[0, 0], bits=14) == law.to_temperature(frame, bits=14)[0, 0]
    with pytest.raises(TypeError, match="argument 'levels': levels of type uint16 expected, got float64"):
        law.to_temperature(frame.astype(np.float64))
    with pytest.raises(ValueError, match="levels from 0 to 65535"):
        law.to_temperature([70000])
    with pytest.raises(TypeError, match="argument 'frame'"):
        thermokit.statistics(np.array([True, False]))
    with pytest.raises(IndexError, match="no frame 6 \\(the film holds 6\\)"):
        film[6]
    film.close()
    with pytest.raises(ValueError, match="the film is closed"):
        film[0]


def test_failures_say_what_the_tool_says(films, tmp_path):
    text, empty, cut = tmp_path / "text.film", tmp_path / "empty.film", tmp_path / "cut.film"
    text.write_bytes(b"not a film\n" * 500)
    empty.write_bytes(b"")
    data = open(films["plate"], "rb").read()
    cut.write_bytes(data[:-10])
    for path, error in [(tmp_path / "missing.film", FileNotFoundError), (text, ValueError), (empty, ValueError),
                        (cut, ValueError)]:
        with pytest.raises(error) as caught:
            thermokit.open(path)
        assert str(caught.value) == tool_error("stats", path)
    # A level beyond the film's depth is refused before anything is written.
    with pytest.raises(ValueError, match="level 4096 above 4095, the largest of a 12-bit film"):
        thermokit.write(tmp_path / "deep.film", np.full((2, 3, 3), 4096, np.uint16), bits=12)
    with pytest.raises(OSError, match="cannot be created \\(No such file or directory\\)"):
        thermokit.create(tmp_path / "no" / "such.film", 3, 3)
    with pytest.raises(ValueError, match="header field point: cannot be set by name"):
        thermokit.write(tmp_path / "header.film", np.zeros((1, 3, 3), np.uint16), header={"point": 4})
    assert sorted(os.listdir(tmp_path)) == ["cut.film", "empty.film", "text.film"]


@pytest.mark.skipif("asan" in os.environ.get("LD_PRELOAD", ""), reason="the sanitizers' shadow memory needs the address space")
def test_an_image_beyond_memory_is_a_memory_error(tmp_path):
    # 16384 x 16384 doubles an image (2 GiB) stated by the header of a sparse file,
    # opened in a process allowed 1 GiB more address space than it uses.
    path = tmp_path / "giant.film"
    thermokit.write(path, np.zeros((1, 2, 2)))
    data = bytearray(open(path, "rb").read()[:3476 + 1016])
    count = 16384 * 16384
    data[377:381] = struct.pack("<HH", 16384, 16384)
    data[19:27] = struct.pack("<II", 508 + count * 4, count)
    path.write_bytes(data)
    os.truncate(path, len(data) + 8 * count)
    script = ("import resource, thermokit\n"
              "used = int(open('/proc/self/statm').read().split()[0]) * resource.getpagesize()\n"
              "resource.setrlimit(resource.RLIMIT_AS, (used + (1 << 30),) * 2)\n"
              "try:\n    thermokit.open(%r)\nexcept MemoryError as e:\n    print(e)\n" % str(path))
    r = subprocess.run(["/usr/bin/python3", "-c", script], capture_output=True, text=True, timeout=60)
    assert r.stdout.strip() == f"file {path}: an image of {count} doubles cannot be allocated", r.stderr


def test_frames_outlive_their_film_and_gain_views_keep_their_table(films):
    film = thermokit.open(films["plate"])
    frame, expected = film[2], film[2].copy()
    film.close()
    del film
    nuc = thermokit.Nuc(40, 24)
    gain = nuc.gain
    nuc.gain[:] = 2.0
    nuc.offset[:, :20] = 1.0
    corrected = nuc.apply(frame, bits=14)
    np.testing.assert_array_equal(corrected[:, 20:], np.minimum(expected[:, 20:].astype(np.int64) * 2, 16383))
    np.testing.assert_array_equal(corrected[:, :20], np.minimum(expected[:, :20].astype(np.int64) * 2 + 1, 16383))
    del nuc
    gc.collect()
    assert gain.base is not None and float(gain.sum()) == 2.0 * gain.size
    np.testing.assert_array_equal(frame, expected)


@pytest.fixture(scope="module")
def big(tmp_path_factory):
    """41 MB of levels, as an array and as a film."""
    frames = np.random.default_rng(3).integers(0, 16384, size=(1000, 128, 160), dtype=np.uint16)
    path = tmp_path_factory.mktemp("big") / "big.film"
    thermokit.write(path, frames)
    return frames, str(path)


@pytest.mark.parametrize("call", ["read", "convert", "lockin"])
def test_heavy_calls_let_other_threads_run(call, big, films):
    frames, path = big
    film, law = thermokit.open(path), thermokit.open(films["plate"]).law
    work = {
        "read": lambda: film[list(range(1000)) * 3],
        "convert": lambda: law.to_temperature(frames, bits=16),
        "lockin": lambda: thermokit.lockin(path, 1.0),
    }[call]
    stamps, stop = [], [False]

    def spin():
        while not stop[0]:
            stamps.append(time.perf_counter())

    spinner = threading.Thread(target=spin)
    spinner.start()
    try:
        time.sleep(0.02)
        start = time.perf_counter()
        work()
        end = time.perf_counter()
    finally:
        stop[0] = True
        spinner.join(10)
    # Held for the whole call, the GIL would stop the spinner for most of it.
    times = [start] + [t for t in stamps if start < t < end] + [end]
    longest = max(b - a for a, b in zip(times, times[1:]))
    assert longest < 0.5 * (end - start), (longest, end - start)


THREAD_COUNTS = """
import json, threading, thermokit
def counts():
    seen = [thermokit.get_threads()]
    t = threading.Thread(target=lambda: seen.append(thermokit.get_threads()))
    t.start()
    t.join()
    return seen
print(json.dumps(counts()))
with thermokit.threads(5):
    print(json.dumps(counts()))
thermokit.set_threads(4)
print(json.dumps(counts()))
thermokit.set_threads(None)
print(json.dumps(counts()))
"""


def test_whole_film_calls_take_every_core_from_the_main_thread_only(films, tmp_path):
    """The library's threads as whole-film calls see them, from the main thread and from another one."""
    def counts(**env):
        env = {k: v for k, v in os.environ.items() if k != "THERMOKIT_THREADS"} | env
        r = subprocess.run(["/usr/bin/python3", "-c", THREAD_COUNTS], env=env, capture_output=True, text=True,
                           timeout=60)
        assert r.returncode == 0, r.stderr
        return [json.loads(line) for line in r.stdout.splitlines()]

    cores = len(os.sched_getaffinity(0))
    assert counts() == [[cores, 1], [5, 1], [4, 4], [cores, 1]]
    assert counts(THERMOKIT_THREADS="3") == [[3, 3], [5, 3], [4, 4], [3, 3]]
    with pytest.raises(ValueError, match="count 0: from 1 to 4096"):
        thermokit.set_threads(0)
    with pytest.raises(TypeError):
        thermokit.threads(2.5).__enter__()

    # The same bytes whatever the count.
    def export(name, count=None):
        with thermokit.threads(count):
            thermokit.export(films["lockin"], tmp_path / f"{name}.npy", embedded=True)

    export("main")
    other = threading.Thread(target=export, args=("other",))
    other.start()
    other.join()
    export("three", 3)
    assert len({(tmp_path / f"{n}.npy").read_bytes() for n in ("main", "other", "three")}) == 1
