"""Films on a Dask cluster (a real LocalCluster of two worker processes):
arrays whose reductions are NumPy's, temperatures and batch outputs that are
the tool's byte for byte, failed films as rows, a killed worker costing only
a retry, finished work skipped. Also the object parameters of
to_temperature and the cameras, against the tool."""
import csv
import json
import os
import signal
import subprocess
import threading
import time

import numpy as np
import pytest

distributed = pytest.importorskip("distributed")
import thermokit  # noqa: E402
import thermokit.batch  # noqa: E402
import thermokit.dask  # noqa: E402
from conftest import tool, tool_error  # noqa: E402

pytestmark = pytest.mark.timeout(90)


@pytest.fixture(scope="module")
def client():
    import logging
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=":0",
                                  silence_logs=logging.ERROR) as cluster, distributed.Client(cluster) as c:
        yield c


def same_bytes_but_clock(a, b):
    """Films equal byte for byte but for the header's date and time of writing (bytes 35 to 42)."""
    x, y = open(a, "rb").read(), open(b, "rb").read()
    return len(x) == len(y) and x[:35] == y[:35] and x[43:] == y[43:]


def test_temperatures_are_the_tools_with_object_parameters(films, demo, client, tmp_path):
    plate, curve = films["plate"], str(demo / "calibration.cal")
    options = ["--emissivity", "0.9", "--reflected", "25", "--distance", "40"]
    tool("export", plate, "--format", "npy", "--embedded", *options, "--kelvin", "-o", tmp_path / "law.npy")
    tool("export", plate, "--format", "npy", "--calib", curve, "--atmosphere", "5", "-o", tmp_path / "curve.npy")
    law, from_curve = np.load(tmp_path / "law.npy"), np.load(tmp_path / "curve.npy")
    film = thermokit.open(plate)
    levels = film[:]
    np.testing.assert_array_equal(
        film.law.to_temperature(levels, bits=14, unit="K", emissivity=0.9, reflected=25, distance=40), law)
    np.testing.assert_array_equal(
        thermokit.Calibration.load(curve).to_temperature(levels, bits=14, film=film, atmosphere=5), from_curve)
    pixel = json.loads(tool("temperature", plate, "--embedded", *options, "--pixel", "3,2", "--frame", "4",
                            "--json").stdout)
    assert np.float32(pixel["value"]) == film.law.to_temperature(
        levels[4, 2, 3], bits=14, emissivity=0.9, reflected=25, distance=40)
    with pytest.raises(ValueError, match=r"^--emissivity 2: expected a value above 0 and at most 1$"):
        film.law.to_temperature(levels, emissivity=2)
    with pytest.raises(ValueError, match="object parameters apply to temperatures"):
        film.law.to_temperature(levels, unit=None, emissivity=0.5)

    # Lazily, in chunks of 4 frames (6 frames: 4 + 2), on the cluster.
    lazy = thermokit.dask.temperatures(plate, chunk_frames=4, unit="K", emissivity=0.9, reflected=25, distance=40)
    assert (lazy.shape, lazy.dtype, lazy.chunks[0], lazy.attrs["unit"]) == ((6, 24, 40), np.float32, (4, 2), "K")
    np.testing.assert_array_equal(client.compute(lazy).result(), law)
    np.testing.assert_array_equal(thermokit.dask.temperatures(plate, curve, chunk_frames=5, atmosphere=5).compute(),
                                  from_curve)
    thermokit.write(tmp_path / "plain.film", levels)
    with pytest.raises(ValueError, match="plain.film: the film carries no radiometric law"):
        thermokit.dask.temperatures(tmp_path / "plain.film")


def test_film_arrays_reduce_as_numpy(films, client):
    path = films["plate"]
    whole = thermokit.open(path)[:]
    lazy = thermokit.dask.film_array(path, chunk_frames=4)
    assert (lazy.shape, lazy.dtype, lazy.chunks[0]) == (whole.shape, np.uint16, (4, 2))
    total, low, high, mean, noise = client.compute(
        [lazy.sum(axis=0), lazy.min(axis=(1, 2)), lazy.max(), lazy.mean(axis=0), lazy.std(axis=0)], sync=True)
    np.testing.assert_array_equal(total, whole.sum(axis=0))
    np.testing.assert_array_equal(low, whole.min(axis=(1, 2)))
    figures = list(csv.DictReader(tool("stats", path, "--csv").stdout.splitlines()))
    assert [float(r["min"]) for r in figures] == list(low)
    assert high == whole.max()
    np.testing.assert_allclose(mean, whole.mean(axis=0), rtol=1e-14)
    np.testing.assert_allclose(noise, whole.std(axis=0), rtol=1e-12)
    with thermokit.open(path) as film:
        assert lazy.attrs["header"] == film.header and lazy.attrs["bits"] == 14
        np.testing.assert_array_equal(lazy.attrs["times"], film.times)
    with pytest.raises(ValueError, match="chunk_frames 0"):
        thermokit.dask.film_array(path, chunk_frames=0)


def batch_inputs(films, root):
    """Two lock-in films in a subfolder, a truncated film and a file that is no film."""
    (root / "runs").mkdir(parents=True)
    for k, seed in enumerate((1, 2)):
        tool("simulate", "--scene", "lockin", "--size", "40x24", "--count", 32, "--period", 8, "--rate", 40,
             "--defects", "--seed", seed, "-o", root / "runs" / f"s{k}.film")
    data = open(films["plate"], "rb").read()
    (root / "cut.film").write_bytes(data[:len(data) - 700])
    (root / "notes.film").write_text("not a film\n")


def test_batch_writes_what_the_tool_writes_and_failures_are_rows(films, client, tmp_path):
    source, out, ref = tmp_path / "in", tmp_path / "out", tmp_path / "ref"
    batch_inputs(films, source)
    ref.mkdir()
    tool("nuc", "compute", "--cold", films["cold"], "--hot", films["hot"], "-o", ref / "cam.nuc")
    tool("badpixels", "detect", "--nuc", ref / "cam.nuc", "--gain", 3, "-o", ref / "cam.bpr")
    corrections = ["--nuc", ref / "cam.nuc", "--badpixels", ref / "cam.bpr"]
    conversion = ["--embedded", "--emissivity", "0.95"]
    outputs = ["--stats", "--roi", "2,3,30,15", "--npy", "--lockin", "--frequency", "5", "--filter", "median",
               "--picture", "--frame", "3", "--bar"]
    args = [str(source), "-o", str(out), *map(str, corrections + conversion + outputs)]
    assert thermokit.batch.main(args + ["--quiet", "--workers", "2"]) == 1

    rows = list(csv.DictReader(open(out / "summary.csv")))
    assert [(r["film"], r["status"]) for r in rows] == [
        ("cut.film", "failed"), ("notes.film", "failed"), ("runs/s0.film", "done"), ("runs/s1.film", "done")]
    for r in rows[:2]:
        assert r["error"] == tool_error("correct", source / r["film"], *corrections, "-o", ref / "x.film")
    summary = json.load(open(out / "summary.json"))
    assert [r["frames"] for r in summary["films"]] == [None, None, 32, 32]
    # Two workers of a local cluster share the cores; a worker of the caller's own cluster has its default, one.
    env_threads = os.environ.get("THERMOKIT_THREADS")
    shared = int(env_threads or max(1, len(os.sched_getaffinity(0)) // 2))
    assert [r["threads"] for r in summary["films"]] == [shared] * 4
    for name in ("s0", "s1"):
        film, mine = source / "runs" / f"{name}.film", out / "runs" / name
        corrected = ref / f"{name}.film"
        tool("correct", film, *corrections, "-o", corrected)
        assert (out / "runs" / f"{name}.film").read_bytes() == corrected.read_bytes()
        # The following outputs are of the corrected film, as the batch wrote and named it.
        corrected = str(mine) + ".film"
        stats = tool("stats", corrected, *conversion, "--roi", "2,3,30,15", "--csv").stdout
        assert open(str(mine) + ".csv").read() == stats
        tool("export", corrected, "--format", "npy", *conversion, "-o", ref / "t.npy")
        assert open(str(mine) + ".npy", "rb").read() == (ref / "t.npy").read_bytes()
        tool("lockin", corrected, "--frequency", 5, "--filter", "median", "-o", ref / name)
        for part in ("_module.film", "_phase.film"):
            assert same_bytes_but_clock(str(mine) + part, str(ref / name) + part)
        for part in ("_module.png", "_phase.png"):
            assert open(str(mine) + part, "rb").read() == open(str(ref / name) + part, "rb").read()
        tool("render", corrected, *conversion, "--frame", 3, "--bar", "-o", ref / "p.png")
        assert open(str(mine) + ".png", "rb").read() == (ref / "p.png").read_bytes()
        row = next(r for r in rows if r["film"] == f"runs/{name}.film")
        values = np.array([[float(v) for v in line.split(",")[7:10]] for line in stats.splitlines()[1:]])
        assert (row["unit"], float(row["min"]), float(row["max"])) == ("degC", values[:, 0].min(), values[:, 1].max())

    # Again: the finished films are skipped, the failed ones tried again; a newer film is redone.
    os.utime(source / "runs" / "s1.film")
    again = thermokit.batch.run([source], out, client=client, **batch_kwargs(corrections, conversion, outputs))
    assert [r["status"] for r in again] == ["failed", "failed", "skipped", "done"]
    assert [r["threads"] for r in again] == [int(env_threads or 1)] * 2 + [None, int(env_threads or 1)]
    assert again[2]["mean"] == pytest.approx(float(rows[2]["mean"]))
    forced = thermokit.batch.run([source / "runs"], out / "runs", client=client,
                                 **batch_kwargs(corrections, conversion, outputs + ["--force"]))
    assert [r["status"] for r in forced] == ["done", "done"]
    assert not [n for _, _, names in os.walk(out) for n in names if ".part-" in n]


def batch_kwargs(corrections, conversion, outputs):
    """The command-line options as keyword arguments of thermokit.batch.run."""
    args = thermokit.batch._parser().parse_args(["x", "-o", "y", *map(str, corrections + conversion + outputs)])
    kwargs = vars(args)
    for key in ("inputs", "output", "quiet", "workers", "scheduler"):
        kwargs.pop(key)
    return kwargs


def test_a_killed_worker_costs_only_a_retry(client, tmp_path):
    source, out = tmp_path / "in", tmp_path / "out"
    source.mkdir()
    for k in range(4):
        tool("simulate", "--scene", "lockin", "--size", "160x120", "--count", 400, "--period", 8, "--rate", 40,
             "--seed", k + 1, "-o", source / f"b{k}.film")
    pids = client.run(os.getpid)
    result = {}
    run = threading.Thread(target=lambda: result.update(rows=thermokit.batch.run(
        [source], out, client=client, stats=True, npy=True, lockin=True, frequency=5, embedded=True, emissivity=0.9)))
    run.start()
    killed = None
    deadline = time.monotonic() + 30
    while killed is None and time.monotonic() < deadline:
        for worker, keys in client.processing().items():
            if keys and worker in pids:
                os.kill(pids[worker], signal.SIGKILL)
                killed = pids[worker]
                break
        time.sleep(0.005)
    run.join(60)
    assert killed is not None and not run.is_alive()
    rows = result["rows"]
    assert [r["status"] for r in rows] == ["done"] * 4
    assert all(not r["worker"].endswith(f":{killed}") for r in rows)
    for k in range(4):
        tool("export", source / f"b{k}.film", "--format", "npy", "--embedded", "--emissivity", 0.9,
             "-o", tmp_path / "t.npy")
        assert (out / f"b{k}.npy").read_bytes() == (tmp_path / "t.npy").read_bytes()
        assert len((out / f"b{k}.csv").read_text().splitlines()) == 401
    assert not [n for n in os.listdir(out) if ".part-" in n]


def test_cameras_and_recordings_as_the_tool(tmp_path, monkeypatch):
    monkeypatch.setenv("THERMOKIT_FAKE_CAMERA", "1")
    listed = json.loads(tool("cameras", "--json").stdout)["cameras"]
    assert [{k: c[k] for k in listed[0]} for c in thermokit.cameras()] == listed
    # The simulated camera's pattern: pixel (x, y) of frame k is wave[(x + y + 2k) mod 64].
    status = thermokit.record(tmp_path / "sim.film", count=5, size=(70, 9), bits=12, rate=0)
    assert (status["frames"], status["lost"], status["width"], status["bits"]) == (5, 0, 70, 12)
    j = np.arange(64)
    wave = (4095 * np.minimum(j, 64 - j)) // 32
    x, y, k = np.arange(70)[None, None, :], np.arange(9)[None, :, None], np.arange(5)[:, None, None]
    np.testing.assert_array_equal(thermokit.open(tmp_path / "sim.film")[:], wave[(x + y + 2 * k) % 64])
    if any(c["id"] == "Fake_1" for c in listed):
        status = thermokit.record(tmp_path / "fake.film", camera="Fake_1", count=3, roi=(8, 4, 64, 32), bits=16,
                                  rate=50)
        film = thermokit.open(tmp_path / "fake.film")
        assert (len(film), film.shape[1:], film.bits, film.header["camera"], status["lost"]) == (
            3, (32, 64), 16, "Fake", 0)
    for camera, bits in (("nowhere", None), ("Fake_1", 13)):
        args = ["--bits", bits] if bits else []
        r = tool("record", "--camera", camera, "--count", 2, *args, "-o", tmp_path / "x.film", ok=False)
        with pytest.raises((OSError, ValueError)) as caught:
            thermokit.record(tmp_path / "x.film", camera=camera, count=2, bits=bits)
        assert f"thermokit: {caught.value}" == r.stderr.strip().splitlines()[-1]
        assert not (tmp_path / "x.film").exists()
    # Ctrl-C ends the recording with a whole film of every frame so far, then is raised.
    threading.Timer(0.5, os.kill, (os.getpid(), signal.SIGINT)).start()
    with pytest.raises(KeyboardInterrupt):
        thermokit.record(tmp_path / "stopped.film", count=100000, size=(32, 16), rate=100)
    assert 10 < len(thermokit.open(tmp_path / "stopped.film")) < 100000


def test_batch_on_a_scheduler_and_worker_started_apart(films, tmp_path):
    """`dask scheduler` and `dask worker` as the docs start them; the command line given --scheduler."""
    source, out = tmp_path / "in", tmp_path / "out"
    source.mkdir()
    tool("simulate", "--scene", "plate", "--size", "40x24", "--count", 5, "--seed", 4, "-o", source / "p.film")
    (source / "cut.film").write_bytes(open(films["plate"], "rb").read()[:-700])
    file = tmp_path / "scheduler.json"
    scheduler = subprocess.Popen(["/usr/bin/dask", "scheduler", "--host", "127.0.0.1", "--port", "0",
                                  "--dashboard-address", ":0", "--scheduler-file", file], stderr=subprocess.DEVNULL)
    worker = None
    try:
        deadline = time.monotonic() + 30
        while not file.exists() and time.monotonic() < deadline:
            time.sleep(0.1)
        address = json.load(open(file))["address"]
        worker = subprocess.Popen(["/usr/bin/dask", "worker", address, "--nworkers", "1", "--nthreads", "1",
                                   "--no-dashboard"], stderr=subprocess.DEVNULL)
        r = subprocess.run(["/usr/bin/python3", "-m", "thermokit.batch", source, "-o", out, "--stats", "--embedded",
                            "--npy", "--scheduler", address, "-q"], capture_output=True, text=True, timeout=60)
        assert r.returncode == 1 and r.stderr == f"thermokit.batch: {tool_error('stats', source / 'cut.film')}\n"
        rows = list(csv.DictReader(open(out / "summary.csv")))
        assert [(row["film"], row["status"]) for row in rows] == [("cut.film", "failed"), ("p.film", "done")]
        assert int(rows[1]["worker"].rsplit(":", 1)[1]) not in (os.getpid(), worker.pid)
        assert (out / "p.csv").read_text() == tool("stats", source / "p.film", "--embedded", "--csv").stdout
        tool("export", source / "p.film", "--format", "npy", "--embedded", "-o", tmp_path / "p.npy")
        assert (out / "p.npy").read_bytes() == (tmp_path / "p.npy").read_bytes()
    finally:
        for p in (worker, scheduler):
            if p:
                p.terminate()
                try:
                    p.wait(20)
                except subprocess.TimeoutExpired:
                    p.kill()
                    p.wait()


def test_a_script_must_guard_its_batch_and_one_worker_takes_every_core(films, tmp_path):
    script, out = tmp_path / "script.py", tmp_path / "out"
    call = f"thermokit.batch.run([{films['plate']!r}], {str(out)!r}, stats=True, workers=1)"
    env = {k: v for k, v in os.environ.items() if k != "THERMOKIT_THREADS"}

    def run(text):
        script.write_text(text)
        return subprocess.run(["/usr/bin/python3", script], env=env, capture_output=True, text=True, timeout=60)

    # At the top level, every worker process would run the batch again: refused before any starts.
    r = run(f"import thermokit.batch\n{call}\n")
    assert r.returncode == 1 and not out.exists()
    assert f'under `if __name__ == "__main__":` in a script ({script}, line 2)' in r.stderr
    r = run(f"import thermokit.batch\nif __name__ == '__main__':\n    print([r['threads'] for r in {call}])\n")
    assert r.returncode == 0, r.stderr
    assert r.stdout == f"[{len(os.sched_getaffinity(0))}]\n"
