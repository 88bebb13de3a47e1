"""Batch runs on Dask: how a batch scales from one worker process to two, and
what one task costs the scheduler.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/python/bench_batch.py [--films 16] [--frames 200]
        [--size 640x512] [--dir D] [--out D] [--repeat 2] [--npy]

  scaling   the same batch (--films films of --frames frames: corrected by a
            NUC table and a bad-pixel map, measured in temperatures through
            the film's law with an emissivity, demodulated, one frame drawn;
            --npy adds the temperatures as .npy) on a LocalCluster of one
            worker process, then of two, the cluster already running and the
            outputs redone with force. Three runs, by the library's threads
            in each film's task (the batch's `threads`, checked in the
            summary rows):
              1 worker x 1 thread    the baseline of worker-process scaling
              1 worker x all cores   what `--workers 1` does by default
              2 workers x 1 thread   what `--workers 2` does on two cores
            and the ratios 2 workers / 1 worker (below 1 is better; the
            target is 0.6 or less against the one-thread baseline on two
            cores), beside the same ratio for SHA-256 tasks on the same
            clusters (what a shared machine gives two processes at the
            moment). For each run, the median time of a film inside its task
            and the run's time beyond the tasks' (idle workers, scheduler).
  overhead  what a task costs beyond its work, on the two-worker cluster:
            a round trip of empty tasks (submit, run, result) per task, and
            a batch over tiny films (one 8 x 8 frame) per film, less the
            time the films' work took inside the tasks

Films are made once in --dir (default a temporary folder, removed at the end)
and kept there when --dir is given. The outputs go to --dir/out, or to --out
(e.g. a tmpfs such as /dev/shm, to see what writing back to the disk costs);
their folder is removed at the end.
"""
import argparse
import hashlib
import logging
import os
import shutil
import statistics
import tempfile
import time

import numpy as np

import distributed
import thermokit
import thermokit.batch


def make_films(folder, films, frames, size):
    """One simulated film copied films times (separate files, so that each
    film is read from its own pages), a NUC table and a bad-pixel map."""
    os.makedirs(os.path.join(folder, "films"), exist_ok=True)
    first = os.path.join(folder, "films", "f00.film")
    if not os.path.exists(first):
        thermokit.simulate("lockin", size=size, frames=frames, seed=1, path=first, frame_rate=50.0,
                           defects=True).close()
    for k in range(1, films):
        path = os.path.join(folder, "films", f"f{k:02d}.film")
        if not os.path.exists(path):
            shutil.copyfile(first, path)
    nuc_path, bpr_path = os.path.join(folder, "cam.nuc"), os.path.join(folder, "cam.bpr")
    if not os.path.exists(nuc_path):
        width, height = size
        nuc = thermokit.Nuc(width, height)
        with thermokit.simulate(size=size, frames=4, seed=2, temperature=20.0, defects=True) as cold, \
                thermokit.simulate(size=size, frames=4, seed=2, temperature=60.0, defects=True) as hot:
            nuc.compute(cold, hot).save(nuc_path)
        thermokit.BadPixels.detect(nuc=nuc, gain=20).save(bpr_path)
    return [os.path.join(folder, "films")], nuc_path, bpr_path


def cluster(workers):
    return distributed.LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, dashboard_address=":0",
                                    silence_logs=logging.ERROR)


def timed_batch(client, inputs, output, options, repeat, threads):
    """The best time of the batch, its rows, and the time beyond the work
    inside the tasks (per worker: what the workers were not busy)."""
    best = None
    workers = len(client.scheduler_info()["workers"])
    for _ in range(repeat):
        start = time.perf_counter()
        rows = thermokit.batch.run(inputs, output, client=client, force=True, threads=threads, **options)
        elapsed = time.perf_counter() - start
        failed = [r for r in rows if r["status"] != "done"]
        if failed:
            raise SystemExit(f"batch failed: {failed[0]['error']}")
        if {r["threads"] for r in rows} != {threads}:
            raise SystemExit(f"the tasks ran with {sorted({r['threads'] for r in rows})} threads, not {threads}")
        if best is None or elapsed < best[0]:
            best = (elapsed, rows, elapsed - sum(r["wall_s"] for r in rows) / workers)
    return best


def overhead(client, folder):
    # Empty tasks: a round trip each, a few hundred in flight at once.
    n = 400
    start = time.perf_counter()
    distributed.wait([client.submit(int, k, pure=False) for k in range(n)])
    round_trip = (time.perf_counter() - start) / n
    # Tiny films: the batch's own cost per film beyond the work in the task.
    tiny = os.path.join(folder, "tiny")
    os.makedirs(tiny, exist_ok=True)
    count = 64
    first = os.path.join(tiny, "t00.film")
    thermokit.write(first, np.zeros((1, 8, 8), np.uint16))
    for k in range(1, count):
        shutil.copyfile(first, os.path.join(tiny, f"t{k:02d}.film"))
    start = time.perf_counter()
    rows = thermokit.batch.run([tiny], os.path.join(folder, "tiny-out"), client=client, stats=True, force=True)
    elapsed = time.perf_counter() - start
    inside = sum(r["wall_s"] for r in rows)
    workers = len(client.scheduler_info()["workers"])
    return round_trip, elapsed / count, (elapsed - inside / workers) / count


def _hash(megabytes):
    data = bytes(1 << 20)
    h = hashlib.sha256()
    for _ in range(megabytes):
        h.update(data)
    return h.hexdigest()


def machine(client, tasks=4, megabytes=400):
    """The time of a few SHA-256 tasks (work without the GIL and without the
    disk) on the cluster: what the cores give at the moment."""
    start = time.perf_counter()
    distributed.wait([client.submit(_hash, megabytes, pure=False) for _ in range(tasks)])
    return time.perf_counter() - start


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--films", type=int, default=16)
    p.add_argument("--frames", type=int, default=200)
    p.add_argument("--size", default="640x512")
    p.add_argument("--dir")
    p.add_argument("--out", help="output folder (default: out under --dir)")
    p.add_argument("--repeat", type=int, default=2)
    p.add_argument("--npy", action="store_true")
    a = p.parse_args()
    size = tuple(int(v) for v in a.size.lower().split("x"))
    folder = a.dir or tempfile.mkdtemp(prefix="thermokit-bench-batch-")
    try:
        print(f"load average {' '.join(f'{v:.2f}' for v in os.getloadavg())} at the start")
        print(f"making {a.films} films of {a.frames} x {size[0]} x {size[1]} in {folder} ...", flush=True)
        inputs, nuc, bpr = make_films(folder, a.films, a.frames, size)
        options = dict(nuc=nuc, badpixels=bpr, embedded=True, emissivity=0.95, stats=True, lockin=True,
                       frequency=50.0 / 8, picture=True, npy=a.npy)
        output = os.path.join(a.out, "thermokit-bench-batch-out") if a.out else os.path.join(folder, "out")
        cores = len(os.sched_getaffinity(0))
        runs = {}
        # Warm: the films in the page cache, the output files made once.
        with cluster(1) as c, distributed.Client(c) as client:
            thermokit.batch.run(inputs, output, client=client, force=True, **options)
            runs["1 worker  x 1 thread "] = timed_batch(client, inputs, output, options, a.repeat, 1)
            runs[f"1 worker  x {cores} threads"] = timed_batch(client, inputs, output, options, a.repeat, cores)
            hash_one = machine(client)
        with cluster(2) as c, distributed.Client(c) as client:
            runs["2 workers x 1 thread "] = timed_batch(client, inputs, output, options, a.repeat, 1)
            hash_two = machine(client)
            trip, per_film, beyond = overhead(client, folder)
        megabytes = a.films * a.frames * size[0] * size[1] * 2 / 1e6
        for name, (elapsed, rows, idle) in runs.items():
            task = statistics.median(r["wall_s"] for r in rows)
            print(f"scaling   {name} {elapsed:8.2f} s  ({megabytes / elapsed:7.1f} MB/s of films; {task:.2f} s a film "
                  f"inside its task, {idle:.2f} s beyond the tasks)")
        one, all_cores, two = (r[0] for r in runs.values())
        print(f"          ratio 2 workers / 1 worker x 1 thread     {two / one:6.3f}  (target <= 0.6)")
        print(f"          ratio 2 workers / 1 worker x {cores} threads    {two / all_cores:6.3f}  (the defaults of "
              f"--workers 2 and --workers 1)")
        print(f"          SHA-256 tasks on the same clusters, 2 / 1   {hash_two / hash_one:6.3f}  (what the machine "
              f"gives two processes at the moment; 0.5 is two free cores)")
        print(f"overhead  empty task round trip {trip * 1e3:7.2f} ms a task")
        print(f"          batch of tiny films   {per_film * 1e3:7.2f} ms a film, {beyond * 1e3:.2f} ms of it beyond the "
              f"work in the task")
        print(f"load average {' '.join(f'{v:.2f}' for v in os.getloadavg())} at the end")
    finally:
        if not a.dir:
            shutil.rmtree(folder, ignore_errors=True)
        if a.out:
            shutil.rmtree(os.path.join(a.out, "thermokit-bench-batch-out"), ignore_errors=True)


if __name__ == "__main__":
    main()
