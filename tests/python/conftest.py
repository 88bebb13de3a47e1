"""Fixtures of the Python package's tests: the thermokit tool beside the
package it was built with, private settings stores, films and a calibration
made by the tool, and a reader of the tool's PNG pictures."""
import os
import struct
import subprocess
import zlib

import numpy as np
import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
TOOL = os.environ.get("THERMOKIT_TOOL", os.path.join(ROOT, "build", "release", "apps", "thermokit", "thermokit"))


@pytest.fixture(scope="session", autouse=True)
def private_stores(tmp_path_factory):
    """Settings read while films are written stay in stores of the tests' own."""
    base = tmp_path_factory.mktemp("stores")
    os.environ["THERMOKIT_USER_STORE"] = str(base / "user.db")
    os.environ["THERMOKIT_MACHINE_STORE"] = str(base / "machine.db")


def tool(*args, ok=True):
    """Runs the tool; its completed process (standard error kept apart)."""
    r = subprocess.run([TOOL, *map(str, args)], capture_output=True, text=True, timeout=120)
    if ok:
        assert r.returncode == 0, r.stderr
    return r


def tool_error(*args):
    """The tool's one error line for a failing command, without its prefix."""
    r = tool(*args, ok=False)
    assert r.returncode == 1, r.stderr
    lines = r.stderr.strip().splitlines()
    assert lines[-1].startswith("thermokit: "), r.stderr
    return lines[-1][len("thermokit: "):]


@pytest.fixture(scope="session")
def films(tmp_path_factory):
    """Films of the simulated camera written by the tool: a plate scene with
    defects, cold and hot black bodies, a noise film and a lock-in sample."""
    d = tmp_path_factory.mktemp("films")
    made = {
        "plate": ["--scene", "plate", "--count", "6", "--move", "2", "--defects", "--seed", "3"],
        "cold": ["-t", "20", "--count", "4", "--defects", "--seed", "3"],
        "hot": ["-t", "60", "--count", "4", "--defects", "--seed", "3"],
        "noise": ["-t", "30", "--count", "8", "--defects", "--seed", "3"],
        "lockin": ["--scene", "lockin", "--count", "32", "--period", "8", "--rate", "40"],
    }
    for name, args in made.items():
        tool("simulate", "--size", "40x24", *args, "-o", d / f"{name}.film")
    return {name: str(d / f"{name}.film") for name in made}


@pytest.fixture(scope="session")
def demo(tmp_path_factory):
    """The demo's outputs: a calibration curve among them."""
    d = tmp_path_factory.mktemp("demo") / "out"
    tool("demo", "-q", "-o", d, "--size", "48x32", "--count", "4")
    return d


def read_png(path):
    """An 8-bit RGB PNG as a (height, width, 3) uint8 array."""
    data = open(path, "rb").read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    pos, idat, width = 8, b"", 0
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlace = struct.unpack(">IIBBBBB", body)
            assert (depth, colour, interlace) == (8, 2, 0)
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    raw = zlib.decompress(idat)
    stride = 3 * width
    rows, previous = [], bytearray(stride)
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - 3] if i >= 3 else 0
            b, c = previous[i], previous[i - 3] if i >= 3 else 0
            if kind == 1:
                line[i] = (line[i] + a) & 255
            elif kind == 2:
                line[i] = (line[i] + b) & 255
            elif kind == 3:
                line[i] = (line[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        rows.append(bytes(line))
        previous = line
    return np.frombuffer(b"".join(rows), np.uint8).reshape(height, width, 3)
